// SPDX-License-Identifier: Apache-2.0
// The messages between the tool and its worker process: one request, one
// response. They travel as CBOR (RFC 8949), because a JSON text cannot contain
// a password or a firmware name that is not UTF-8.
#ifndef QUORVANE_TOOLS_QUORVANE_WORKER_PROTOCOL_H_
#define QUORVANE_TOOLS_QUORVANE_WORKER_PROTOCOL_H_

#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "quorvane/inventory.h"
#include "quorvane/update.h"

namespace quorvane::tool {

struct InventoryCall {
  InventoryRequest request;
};
struct ChassisCall {
  InventoryRequest request;
};
/// The library call that the worker makes.
using LibraryCall = std::variant<UpdateRequest, InventoryCall, ChassisCall>;

struct WorkerRequest {
  LibraryCall call;
  /// Directory from which the worker must have loaded the library; empty: any.
  std::string rules_directory = {};
};

struct InventoryResult {
  bool was_read = false;  ///< What FetchInventory returned.
  std::vector<InventoryItem> items = {};
};
struct ChassisResult {
  bool was_read = false;  ///< What FetchChassisInfo returned.
  ChassisInfo info = {};
};
/// The library threw an exception.
struct WorkerError {
  std::string message;
  bool is_out_of_memory = false;
};
/// The result of the call, of the type that belongs to it, or an error.
using WorkerResponse =
    std::variant<UpdateResponse, InventoryResult, ChassisResult, WorkerError>;

/// @{ The bytes of a message.
std::string Encode(const WorkerRequest& request);
std::string Encode(const WorkerResponse& response);
/// @}

/// @{ The message that `Encode` made `bytes` of.
/// @throws std::exception if `bytes` is not such a message.
WorkerRequest DecodeRequest(std::string_view bytes);
WorkerResponse DecodeResponse(std::string_view bytes);
/// @}

}  // namespace quorvane::tool

#endif  // QUORVANE_TOOLS_QUORVANE_WORKER_PROTOCOL_H_
