// SPDX-License-Identifier: Apache-2.0
// The rules file: whatever it holds, loading gives a valid Config or a reason
// of bounded length.
#include <sys/mman.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <string_view>

#include "fuzz/property.h"
#include "quorvane/config.h"
#include "support/file.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes,
                                      std::size_t size) {
  const quorvane::Descriptor file(memfd_create("rules", MFD_CLOEXEC));
  Demand(quorvane::WriteAll(file.get(),
                            {reinterpret_cast<const char*>(bytes), size}),
         "the input can be written");
  const std::string path = "/proc/self/fd/" + std::to_string(file.get());
  try {
    const quorvane::Config config = quorvane::LoadConfig(path);
    Demand(config.max_retries >= 1 && config.sleep_time >= 1 &&
               config.polling_interval >= 1 &&
               config.max_polling_time_seconds >= 1,
           "numbers are at least 1");
    Demand(!config.ip.empty() || !config.ipv6.empty(), "there is a target");
    Demand(!config.inventory_uri.empty() && !config.upload_uri.empty() &&
               !config.task_uri.empty() && !config.activation_uri.empty() &&
               !config.reboot_uri.empty(),
           "every phase has a URI");
  } catch (const std::runtime_error& error) {
    const std::string reason = error.what();
    if (reason.rfind("JSON parse error", 0) == 0) {
      const std::size_t shown = reason.find("\": ") + 3;
      Demand(reason.size() - shown <= 100, "a syntax error shows 100 bytes");
      const std::string_view text(reinterpret_cast<const char*>(bytes), size);
      Demand(text.find("password") == std::string_view::npos ||
                 reason.size() == shown,
             "a syntax error beside a secret shows no text");
    }
  }
  return 0;
}
