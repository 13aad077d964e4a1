// SPDX-License-Identifier: Apache-2.0
#ifndef QUORVANE_TOOLS_QUORVANE_WORKER_SIGNALS_H_
#define QUORVANE_TOOLS_QUORVANE_WORKER_SIGNALS_H_

#include <csignal>

#include "tools/quorvane/base/descriptor.h"

namespace quorvane::tool {

/// While it exists, the signals that end the tool arrive on a descriptor, so
/// that the tool can end a run in order. Signals that the caller ignores, as
/// nohup(1) does with SIGHUP, stay ignored.
class Signals {
 public:
  /// What a closed terminal (SIGHUP) means.
  enum class OnHangup {
    kContinue,  ///< The run continues without a display.
    kStop,      ///< The same as SIGTERM.
  };

  explicit Signals(OnHangup on_hangup);
  ~Signals();
  Signals(const Signals&) = delete;
  Signals& operator=(const Signals&) = delete;

  /// Readable when a signal arrived; see `MustStop`.
  [[nodiscard]] int descriptor() const { return descriptor_.get(); }

  /// Handles the signals that arrived.
  /// @return Whether the run must stop; true for ever after the first time.
  bool MustStop();

  /// The mask for a child process: signals that reach the whole process group
  /// do not end it before its parent decides.
  [[nodiscard]] sigset_t ChildMask() const;

 private:
  OnHangup on_hangup_;
  bool must_stop_ = false;
  sigset_t before_{};
  Descriptor descriptor_;
};

}  // namespace quorvane::tool

#endif  // QUORVANE_TOOLS_QUORVANE_WORKER_SIGNALS_H_
