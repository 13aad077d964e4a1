// SPDX-License-Identifier: Apache-2.0
/// @file
/// What the shared library shows of itself. Everything else in it is hidden.
#ifndef QUORVANE_EXPORT_H_
#define QUORVANE_EXPORT_H_

#define QUORVANE_EXPORT __attribute__((visibility("default")))

#endif  // QUORVANE_EXPORT_H_
