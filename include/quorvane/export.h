// SPDX-License-Identifier: Apache-2.0
/// @file
/// Visibility of the symbols of the shared library. Everything that is not
/// exported is hidden.
#ifndef QUORVANE_EXPORT_H_
#define QUORVANE_EXPORT_H_

#include <cstddef>  // defines the options of the standard library

// These options change the layout of std::string and of the containers. A
// program with other options than the library links without an error, and then
// corrupts memory. If you built the library with the same options, define
// QUORVANE_SAME_STANDARD_LIBRARY_OPTIONS in the programs that use it.
// _GLIBCXX_ASSERTIONS does not change the layout.
#ifndef QUORVANE_SAME_STANDARD_LIBRARY_OPTIONS
#ifdef _GLIBCXX_DEBUG
#error "Quorvane: compile without _GLIBCXX_DEBUG (see quorvane/export.h)"
#endif
#if defined(_GLIBCXX_USE_CXX11_ABI) && !_GLIBCXX_USE_CXX11_ABI
#error "Quorvane: compile with _GLIBCXX_USE_CXX11_ABI=1 (see quorvane/export.h)"
#endif
#endif

#define QUORVANE_EXPORT __attribute__((visibility("default")))
/// For the private types of an exported class.
#define QUORVANE_HIDDEN __attribute__((visibility("hidden")))

#endif  // QUORVANE_EXPORT_H_
