// SPDX-License-Identifier: Apache-2.0
/// @file
/// The whole public interface of libQuorvaneLib.so.1.
///
/// A program starts the log (`InitLogger`), reads the inventory
/// (`FetchInventory`) or updates a server (`PerformUpdate`), saves the result
/// as JSON (`SaveUpdateResponseJson`), and ends the log (`ShutdownLogger`). The
/// rules file `brindle.config.json` next to the library specifies how an update
/// reacts to errors; see `quorvane/config.h`.
///
/// Every call blocks and runs on the thread of the caller; the library starts
/// no threads. Only `SetThreadLogger` keeps a reference to its argument.
#ifndef QUORVANE_QUORVANE_H_
#define QUORVANE_QUORVANE_H_

#include "quorvane/config.h"     // IWYU pragma: export
#include "quorvane/export.h"     // IWYU pragma: export
#include "quorvane/http.h"       // IWYU pragma: export
#include "quorvane/inventory.h"  // IWYU pragma: export
#include "quorvane/logging.h"    // IWYU pragma: export
#include "quorvane/update.h"     // IWYU pragma: export
#include "quorvane/version.h"    // IWYU pragma: export

#endif  // QUORVANE_QUORVANE_H_
