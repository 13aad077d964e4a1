// SPDX-License-Identifier: Apache-2.0
#ifndef QUORVANE_SUPPORT_WAIT_H_
#define QUORVANE_SUPPORT_WAIT_H_

namespace quorvane {

/// Blocks the calling thread for that many whole seconds; 0 or less: not at
/// all. A signal does not shorten the wait. The only sleep of the library.
void SleepSeconds(int seconds);

}  // namespace quorvane

#endif  // QUORVANE_SUPPORT_WAIT_H_
