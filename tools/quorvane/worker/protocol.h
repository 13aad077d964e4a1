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
/// A request to the service root (DSP0266, "Service root"), without
/// credentials: whether the BMC responds at all. Takes at most
/// `kProbeSeconds`.
struct ProbeCall {
  std::string address;
};
/// The reboot of the library's update, by the same rules, without an update.
struct RestartCall {
  InventoryRequest request;
};
/// Follows a task to its end, as the library's update does.
struct WatchCall {
  InventoryRequest request;
  std::string task_uri = {};
  int percent_complete = -1;  ///< What it reported last; -1: not known.
};
/// Reads the public key of a server, without credentials.
struct KeyCall {
  std::string address;
};
/// What the responses to earlier requests showed about the account.
struct LoginState {
  bool was_accepted = false;  ///< A resource that needs a login was returned.
  int refusals = 0;           ///< HTTP 401

  void Note(const std::string& uri, long status);
  /// Whether the BMC refuses the account, and not only one resource. More
  /// requests could lock the account.
  [[nodiscard]] bool IsRefused() const;
};

/// Reads resources with GET, one after the other; see `ReadResult`.
struct ReadCall {
  InventoryRequest request;
  /// Paths on the BMC, such as "/redfish/v1/". Nothing else is requested.
  std::vector<std::string> uris = {};
  /// After this time, the rest is not requested.
  double limit_seconds = 300;
  LoginState login = {};  ///< Before the call.
};
/// The call that the worker makes.
using LibraryCall =
    std::variant<UpdateRequest, InventoryCall, ChassisCall, ProbeCall,
                 RestartCall, WatchCall, KeyCall, ReadCall>;

constexpr unsigned kProbeSeconds = 15;

/// How the worker identifies the BMC.
struct Trust {
  std::string pinned_key = {};    ///< "sha256//BASE64"; empty: any key.
  std::string ca_file = {};       ///< Certificates (PEM); empty: no check.
  bool forbids_download = false;  ///< No request to the host of an image.

  [[nodiscard]] bool IsChecked() const {
    return !pinned_key.empty() || !ca_file.empty();
  }
};

struct WorkerRequest {
  LibraryCall call;
  Trust trust = {};
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
struct ProbeResult {
  long status = 0;          ///< Of the response; 0: none.
  std::string reason = {};  ///< Why there is none.
};
/// What the BMC returned for one URI of a `ReadCall`.
struct ReadResource {
  std::string uri;
  long status = 0;          ///< Of the response; 0: none.
  std::string body = {};    ///< Empty if it is too large, see `reason`.
  std::string reason = {};  ///< Why there is no response, or no body.
};
struct ReadResult {
  std::vector<ReadResource> resources = {};  ///< In the order of the URIs.
};
struct KeyResult {
  std::string key;  ///< "sha256//BASE64"
};
/// The library threw an exception.
struct WorkerError {
  std::string message;
  bool is_out_of_memory = false;
  bool is_login_refused = false;  ///< The worker ended the call itself.
};
/// The result of the call, of the type that belongs to it, or an error.
using WorkerResponse =
    std::variant<UpdateResponse, InventoryResult, ChassisResult, ProbeResult,
                 KeyResult, WorkerError, ReadResult>;

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
