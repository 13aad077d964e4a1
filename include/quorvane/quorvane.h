// SPDX-License-Identifier: Apache-2.0
/// @file
/// The whole public interface of libQuorvaneLib.so.1.
///
/// A caller starts the log (`InitLogger`), reads the inventory
/// (`FetchInventory`) or updates a server (`PerformUpdate`), keeps what came
/// back as JSON (`SaveUpdateResponseJson`) and ends the log
/// (`ShutdownLogger`). The rules file `brindle.config.json` beside the library
/// decides how an update recovers; see `quorvane/config.h`.
///
/// Every call blocks and runs on the caller's thread; the library starts none.
/// No call but `SetThreadLogger` retains what it is given.
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
