// SPDX-License-Identifier: Apache-2.0
#include "tools/quorvane/worker/bmc_lock.h"

#include <fmt/core.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <system_error>

#include "tools/quorvane/base/address.h"
#include "tools/quorvane/base/error.h"

namespace quorvane::tool {
namespace {

// A name in the abstract namespace of unix(7): it needs no file, and ends with
// the process that bound it.
struct Name {
  sockaddr_un address{};
  socklen_t length = 0;

  explicit Name(const std::string& bmc) {
    address.sun_family = AF_UNIX;
    const std::string text = "quorvane/" + NormalizedAddress(bmc);
    const std::size_t size = std::min(text.size(), sizeof address.sun_path - 1);
    std::copy_n(text.begin(), size, address.sun_path + 1);
    length = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + 1 + size);
  }
  [[nodiscard]] const sockaddr* get() const {
    return reinterpret_cast<const sockaddr*>(&address);
  }
};

Descriptor NewSocket() {
  return Descriptor(
      socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
}

// The process that bound the name; 0 if it ended in the meantime.
pid_t HolderOf(const Name& name) {
  const Descriptor client = NewSocket();
  ucred holder{};
  socklen_t size = sizeof holder;
  if (connect(client.get(), name.get(), name.length) != 0 ||
      getsockopt(client.get(), SOL_SOCKET, SO_PEERCRED, &holder, &size) != 0) {
    return 0;
  }
  return holder.pid;
}

}  // namespace

BmcLock::BmcLock(const std::string& address) : socket_(NewSocket()) {
  const Name name(address);
  if (bind(socket_.get(), name.get(), name.length) == 0 &&
      listen(socket_.get(), SOMAXCONN) == 0) {
    return;
  }
  const int error = errno;
  const pid_t holder = error == EADDRINUSE ? HolderOf(name) : 0;
  throw ToolError(
      ExitCode::kUsage,
      error == EADDRINUSE
          ? fmt::format("Cannot start: the process {} changes the firmware of "
                        "{} at this moment. Wait until it ends.",
                        holder, address)
          : fmt::format("Cannot lock {}: {}. Free some memory or descriptors, "
                        "then try again.",
                        address, std::generic_category().message(error)));
}

}  // namespace quorvane::tool
