// SPDX-License-Identifier: Apache-2.0
/// @file
/// What the shared library shows of itself. Everything else in it is hidden.
#ifndef QUORVANE_EXPORT_H_
#define QUORVANE_EXPORT_H_

#define QUORVANE_EXPORT __attribute__((visibility("default")))
/// For what an exported class keeps to itself.
#define QUORVANE_HIDDEN __attribute__((visibility("hidden")))

#endif  // QUORVANE_EXPORT_H_
