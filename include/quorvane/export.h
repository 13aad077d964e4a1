// SPDX-License-Identifier: Apache-2.0
/// @file
/// What the shared library shows of itself. Everything else in it is hidden.
#ifndef QUORVANE_EXPORT_H_
#define QUORVANE_EXPORT_H_

#include <cstddef>  // defines the options of the standard library

// These options change the layout of std::string and of the containers. A
// program whose options differ from the library's links, and corrupts memory.
// A library that you build with them yourself is fine: define
// QUORVANE_SAME_STANDARD_LIBRARY_OPTIONS in the programs that use it.
// _GLIBCXX_ASSERTIONS changes no layout.
#ifndef QUORVANE_SAME_STANDARD_LIBRARY_OPTIONS
#ifdef _GLIBCXX_DEBUG
#error "Quorvane: compile without _GLIBCXX_DEBUG (see quorvane/export.h)"
#endif
#if defined(_GLIBCXX_USE_CXX11_ABI) && !_GLIBCXX_USE_CXX11_ABI
#error "Quorvane: compile with _GLIBCXX_USE_CXX11_ABI=1 (see quorvane/export.h)"
#endif
#endif

#define QUORVANE_EXPORT __attribute__((visibility("default")))
/// For what an exported class keeps to itself.
#define QUORVANE_HIDDEN __attribute__((visibility("hidden")))

#endif  // QUORVANE_EXPORT_H_
