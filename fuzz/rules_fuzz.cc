// SPDX-License-Identifier: Apache-2.0
// The rules file: for any content, loading returns a valid Config or fails with
// a reason of limited length.
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
  CheckProperty(quorvane::WriteAll(
                    file.get(), {reinterpret_cast<const char*>(bytes), size}),
                "the input is written");
  const std::string path = "/proc/self/fd/" + std::to_string(file.get());
  try {
    const quorvane::Config config = quorvane::LoadConfig(path);
    CheckProperty(config.max_retries >= 1 && config.sleep_time >= 1 &&
                      config.polling_interval >= 1 &&
                      config.max_polling_time_seconds >= 1,
                  "numbers are at least 1");
    CheckProperty(!config.ip.empty() || !config.ipv6.empty(),
                  "there is a target");
    CheckProperty(!config.inventory_uri.empty() && !config.upload_uri.empty() &&
                      !config.task_uri.empty() &&
                      !config.activation_uri.empty() &&
                      !config.reboot_uri.empty(),
                  "every phase has a URI");
  } catch (const std::runtime_error& error) {
    const std::string reason = error.what();
    if (reason.rfind("JSON parse error", 0) == 0) {
      const std::size_t shown = reason.find("\": ") + 3;
      CheckProperty(reason.size() - shown <= 100,
                    "a syntax error shows 100 bytes");
      const std::string_view text(reinterpret_cast<const char*>(bytes), size);
      CheckProperty(text.find("password") == std::string_view::npos ||
                        reason.size() == shown,
                    "a syntax error in a file with a password shows no text");
    }
  }
  return 0;
}
