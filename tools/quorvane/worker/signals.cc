// SPDX-License-Identifier: Apache-2.0
#include "tools/quorvane/worker/signals.h"

#include <fcntl.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <system_error>

#include "tools/quorvane/base/error.h"

namespace quorvane::tool {
namespace {

// Output to a closed terminal would fail.
void LeaveTerminal() {
  const Descriptor nowhere(open("/dev/null", O_WRONLY | O_CLOEXEC));
  for (const int stream : {STDOUT_FILENO, STDERR_FILENO}) {
    if (isatty(stream) == 1 || errno == EIO) dup2(nowhere.get(), stream);
  }
}

}  // namespace

Signals::Signals(OnHangup on_hangup) : on_hangup_(on_hangup) {
  sigset_t handled;
  sigemptyset(&handled);
  for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
    struct sigaction current {};
    sigaction(signal, nullptr, &current);
    // A blocked signal would arrive although it is ignored.
    if (current.sa_handler != SIG_IGN) sigaddset(&handled, signal);
  }
  sigprocmask(SIG_BLOCK, &handled, &before_);
  descriptor_ = Descriptor(signalfd(-1, &handled, SFD_CLOEXEC | SFD_NONBLOCK));
  if (descriptor_.IsOpen()) return;
  throw ToolError(
      ExitCode::kFailed,
      "Cannot receive signals: " + std::generic_category().message(errno) +
          ". Free some memory or processes, then try again.");
}

Signals::~Signals() { sigprocmask(SIG_SETMASK, &before_, nullptr); }

bool Signals::MustStop() {
  signalfd_siginfo received{};
  while (read(descriptor_.get(), &received, sizeof received) > 0) {
    const bool is_hangup = received.ssi_signo == SIGHUP;
    if (is_hangup) LeaveTerminal();
    must_stop_ = must_stop_ || !is_hangup || on_hangup_ == OnHangup::kStop;
  }
  return must_stop_;
}

sigset_t Signals::ChildMask() const {
  sigset_t mask = before_;
  for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
    sigaddset(&mask, signal);
  }
  return mask;
}

}  // namespace quorvane::tool
