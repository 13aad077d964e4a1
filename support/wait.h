// SPDX-License-Identifier: Apache-2.0
#ifndef QUORVANE_SUPPORT_WAIT_H_
#define QUORVANE_SUPPORT_WAIT_H_

namespace quorvane {

/// Blocks the calling thread for `seconds`; returns at once if it is 0 or less.
/// A signal does not shorten the wait. The library sleeps nowhere else.
void SleepSeconds(int seconds);

}  // namespace quorvane

#endif  // QUORVANE_SUPPORT_WAIT_H_
