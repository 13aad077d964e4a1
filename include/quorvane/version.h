// SPDX-License-Identifier: Apache-2.0
/// @file
/// The version. The build and the packages read it from this header.
#ifndef QUORVANE_VERSION_H_
#define QUORVANE_VERSION_H_

#define QUORVANE_VERSION_MAJOR 1
#define QUORVANE_VERSION_MINOR 0
#define QUORVANE_VERSION_PATCH 0
/// "MAJOR.MINOR.PATCH"
#define QUORVANE_VERSION_STRING                                         \
  QUORVANE_VERSION_TEXT(QUORVANE_VERSION_MAJOR, QUORVANE_VERSION_MINOR, \
                        QUORVANE_VERSION_PATCH)

#define QUORVANE_VERSION_TEXT(major, minor, patch) \
  QUORVANE_VERSION_QUOTE(major)                    \
  "." QUORVANE_VERSION_QUOTE(minor) "." QUORVANE_VERSION_QUOTE(patch)
#define QUORVANE_VERSION_QUOTE(number) #number

#endif  // QUORVANE_VERSION_H_
