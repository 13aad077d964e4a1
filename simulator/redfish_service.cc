// SPDX-License-Identifier: Apache-2.0
// Handling of requests, and changes of the state.
#include "simulator/redfish_service.h"

#include <algorithm>
#include <stdexcept>
#include <utility>

#include "simulator/parse_json.h"
#include "simulator/redfish.h"
#include "simulator/text.h"

namespace quorvane::simulator {
namespace {

bool Contains(const std::vector<std::string>& list, const std::string& text) {
  return std::find(list.begin(), list.end(), text) != list.end();
}

bool IsRead(const RecordedRequest& request) {
  return request.method == "GET" || request.method == "HEAD";
}

bool PathMatches(const std::string& pattern, const std::string& path) {
  if (!pattern.ends_with('*')) return pattern == path;
  const std::string_view prefix = pattern;
  return path.starts_with(prefix.substr(0, prefix.size() - 1));
}

void AddGeneratedMembers(Inventory& inventory) {
  for (int i = 1; i <= inventory.generated; ++i) {
    std::string number = std::to_string(i);
    number.insert(0, number.size() < 4 ? 4 - number.size() : 0, '0');
    inventory.members.push_back(
        {"Component-" + number, "Component " + number, "1.0.0"});
  }
  inventory.generated = 0;
}

RedfishService::Outcome MethodNotAllowed(const std::string& allow) {
  return {ErrorResponse(405, "OperationNotAllowed",
                        "The resource does not support this method.",
                        "Use one of: " + allow + '.', {{"Allow", allow}}),
          {}};
}

RedfishService::Outcome BadRequest(const std::string& key,
                                   const std::string& message,
                                   const std::string& resolution) {
  return {ErrorResponse(400, key, message, resolution), message};
}

RedfishService::Outcome MalformedJson() {
  return BadRequest("MalformedJSON", "The body is not a JSON object.",
                    "Send a JSON object.");
}

// An empty body counts as "{}", because an action without parameters may be
// posted without a body.
std::optional<Json> ParseObject(const std::string& text) {
  try {
    Json json = ParseJson(text.empty() ? "{}" : text);
    if (json.is_object()) return json;
  } catch (const std::runtime_error&) {
    return {};
  }
  return {};
}

const FormPart* FindPart(const RecordedRequest& request,
                         std::string_view name) {
  const auto found =
      std::find_if(request.parts.begin(), request.parts.end(),
                   [&](const FormPart& part) { return part.name == name; });
  return found == request.parts.end() ? nullptr : &*found;
}

std::string ImageBytes(const Image& image) {
  if (!image.text.empty()) return image.text;
  std::string bytes(image.size, '\0');
  unsigned int value = 1;  // any fixed sequence that does not compress well
  for (char& byte : bytes) {
    value = value * 1664525U + 1013904223U;
    byte = static_cast<char>(value >> 24U);
  }
  return bytes;
}

}  // namespace

RedfishService::RedfishService(Scenario scenario, Clock now)
    : scenario_(std::move(scenario)),
      now_(std::move(now)),
      power_is_on_(scenario_.power_state == "On") {
  AddGeneratedMembers(scenario_.firmware);
  AddGeneratedMembers(scenario_.software);
  if (scenario_.task.steps.empty()) {
    scenario_.task.steps = {{.state = "Completed", .percent = 100}};
  }
  for (const FaultRule& rule : scenario_.faults) faults_.push_back({rule});
}

std::string RedfishService::FirmwareVersion(const std::string& id) const {
  const auto& members = scenario_.firmware.members;
  const auto found =
      std::find_if(members.begin(), members.end(),
                   [&](const InventoryMember& m) { return m.id == id; });
  return found == members.end() ? std::string() : found->version;
}

RedfishService::Outcome RedfishService::Respond(
    const RecordedRequest& request) {
  Outcome outcome = RespondWithFaults(request);
  outcome.changes = std::exchange(changes_, {});
  return outcome;
}

RedfishService::Outcome RedfishService::RespondWithFaults(
    const RecordedRequest& request) {
  if (auto unavailable = RespondWhileRebooting()) return *unavailable;
  const FaultRule* fault = MatchFault(request, /*before_body=*/false);
  if (fault == nullptr) return Handle(request);
  if (!fault->executes_request) return {fault->response, "fault"};
  Outcome outcome = Handle(request);
  outcome.response.fault = fault->response.fault;
  outcome.response.delay = fault->response.delay;
  outcome.response.drip = fault->response.drip;
  outcome.note += outcome.note.empty() ? "fault" : ", fault";
  return outcome;
}

std::optional<BmcResponse> RedfishService::RespondBeforeBody(
    const RecordedRequest& request) {
  const FaultRule* fault = MatchFault(request, /*before_body=*/true);
  if (fault == nullptr) return {};
  return fault->response;
}

// A rule counts only the requests to which no earlier rule applied, so that
// rules in a row describe a sequence: reject two requests, then drop the next.
const FaultRule* RedfishService::MatchFault(const RecordedRequest& request,
                                            bool before_body) {
  for (CountedFault& fault : faults_) {
    const FaultRule& rule = fault.rule;
    if (rule.before_body != before_body ||
        (rule.after_reboot && reboots_ == 0) ||
        (!rule.method.empty() && rule.method != request.method) ||
        (!rule.path.empty() && !PathMatches(rule.path, request.path)) ||
        (!rule.phase.empty() && rule.phase != PhaseOf(request)) ||
        (rule.first > 0 && fault.applied >= rule.first)) {
      continue;
    }
    const int position = fault.matched++ - rule.after;
    if (position < 0 || position % std::max(rule.every, 1) != 0) continue;
    ++fault.applied;
    return &rule;
  }
  return nullptr;
}

std::string RedfishService::PhaseOf(const RecordedRequest& request) const {
  const std::string path = NormalizePath(request.path);
  const auto within = [&](std::string_view root) {
    return path == root || !MemberId(path, root).empty();
  };
  if (IsRead(request)) {
    if (within(kFirmwareInventory) || within(kSoftwareInventory)) {
      return "inventory";
    }
    if (within(kChassisCollection)) return "chassis";
    if (!MemberId(path, kTasks).empty() ||
        !MemberId(path, kTaskMonitors).empty()) {
      return "task";
    }
    const bool is_image = std::any_of(
        scenario_.images.begin(), scenario_.images.end(),
        [&](const Image& image) { return image.path == request.path; });
    return is_image ? "download" : "";
  }
  if (path == NormalizePath(scenario_.simple_update.path)) {
    const auto body = ParseObject(request.body);
    return body && body->contains("ImageURI") ? "simple_update" : "activation";
  }
  if (Contains(scenario_.upload.multipart_paths, request.path) ||
      Contains(scenario_.upload.binary_paths, request.path)) {
    return "upload";
  }
  const bool is_reset = within(kSystems) && path.ends_with(".Reset");
  return is_reset ? "reboot" : "";
}

bool RedfishService::IsAuthorized(const RecordedRequest& request) const {
  const std::string value = Header(request, "Authorization");
  const std::string_view field = value;
  constexpr std::string_view kScheme = "Basic ";
  return field.size() > kScheme.size() &&
         EqualsIgnoringCase(field.substr(0, kScheme.size()), kScheme) &&
         Trim(field.substr(kScheme.size())) ==
             Base64(scenario_.user + ':' + scenario_.password);
}

std::optional<RedfishService::Outcome> RedfishService::RespondWhileRebooting() {
  if (unavailable_until_ && now_() >= *unavailable_until_) {
    unavailable_until_.reset();
  }
  if (!unavailable_until_) {
    if (unavailable_requests_ == 0) return {};
    --unavailable_requests_;
  }
  if (!scenario_.reboot.returns_503) {
    return Outcome{{.fault = Fault::kDrop}, "no response: rebooting"};
  }
  return Outcome{ErrorResponse(503, "ServiceTemporarilyUnavailable",
                               "The service is starting.", "Retry later.",
                               {{"Retry-After", "10"}}),
                 "rebooting"};
}

RedfishService::Outcome RedfishService::Handle(const RecordedRequest& request) {
  for (auto& [id, task] : tasks_) AdvanceByClock(task);
  const std::string path = NormalizePath(request.path);
  if (IsRead(request)) {
    for (const Image& image : scenario_.images) {
      if (image.path != request.path) continue;
      return {{.body = ImageBytes(image),
               .headers = {{"Content-Type", "application/octet-stream"}}},
              "image served"};
    }
  }
  // DSP0266: the service root requires no authentication.
  const bool is_public =
      IsRead(request) && (path == "/redfish" || path == kServiceRoot);
  if (!is_public && !IsAuthorized(request)) {
    return {ErrorResponse(401, "NoValidSession",
                          "The request lacks valid credentials.",
                          "Send the user and password of an account.",
                          {{"WWW-Authenticate", "Basic realm=\"Redfish\""}}),
            "credentials rejected"};
  }
  return Route(request, path);
}

RedfishService::Outcome RedfishService::Route(const RecordedRequest& request,
                                              const std::string& path) {
  AdvanceVersionChange(request, path);
  const bool is_post = request.method == "POST";
  if (Contains(scenario_.upload.multipart_paths, request.path) ||
      Contains(scenario_.upload.binary_paths, request.path)) {
    return is_post || request.method == "PUT" ? Upload(request)
                                              : MethodNotAllowed("POST, PUT");
  }
  if (path == NormalizePath(scenario_.simple_update.path)) {
    return is_post ? UpdateAction(request) : MethodNotAllowed("POST");
  }
  if (path == MemberPath(kSystems, scenario_.system_id) +
                  "/Actions/ComputerSystem.Reset") {
    return is_post ? ResetSystem(request) : MethodNotAllowed("POST");
  }
  for (const auto collection : {kTasks, kTaskMonitors}) {
    const std::string id = MemberId(path, collection);
    if (id.empty()) continue;
    return IsRead(request) ? PollTask(id, collection == kTaskMonitors)
                           : MethodNotAllowed("GET, HEAD");
  }
  const auto resource = Resource(path, request.query);
  if (!resource) {
    return {ErrorResponse(
                404, "ResourceMissingAtURI",
                "There is no resource at " + Printable(request.path) + '.',
                "Start at " + std::string(kServiceRoot) + '.'),
            {}};
  }
  if (!IsRead(request)) return MethodNotAllowed("GET, HEAD");
  return {JsonResponse(200, *resource), {}};
}

RedfishService::Outcome RedfishService::Upload(const RecordedRequest& request) {
  if (auto disabled = RespondIfDisabled()) return *disabled;
  if (auto busy = RespondIfBusy()) return *busy;
  const bool is_multipart =
      Header(request, "Content-Type").starts_with("multipart/form-data");
  if (!is_multipart && Contains(scenario_.upload.binary_paths, request.path)) {
    return StoreImage(request.body, {});
  }
  if (!Contains(scenario_.upload.multipart_paths, request.path)) {
    return {ErrorResponse(415, "GeneralError",
                          "This URI accepts binary uploads only.",
                          "Send the image as application/octet-stream."),
            "multipart upload to a binary path"};
  }
  if (request.method != "POST") return MethodNotAllowed("POST");
  const FormPart* file = FindPart(request, "UpdateFile");
  if (!is_multipart || file == nullptr) {
    return BadRequest("PropertyMissing", "The request has no part UpdateFile.",
                      "Send multipart/form-data with UpdateFile.");
  }
  std::vector<std::string> targets;
  if (const FormPart* parameters = FindPart(request, "UpdateParameters")) {
    const auto json = ParseObject(parameters->content);
    if (!json) return MalformedJson();
    targets = StringArray(*json, "Targets");
  }
  return StoreImage(file->content, std::move(targets));
}

RedfishService::Outcome RedfishService::StoreImage(
    const std::string& image, std::vector<std::string> targets) {
  if (image.empty()) {
    return BadRequest("GeneralError", "The image is empty.",
                      "Send the bytes of an image.");
  }
  const std::uint64_t limit = scenario_.upload.max_bytes;
  if (limit > 0 && image.size() > limit) {
    return {ErrorResponse(413, "PayloadTooLarge",
                          "The image has " + std::to_string(image.size()) +
                              " bytes; at most " + std::to_string(limit) +
                              " are accepted.",
                          "Send a smaller image."),
            "image too large"};
  }
  image_size_ = image.size();
  image_sha256_ = Sha256(image);
  Outcome outcome = Accept(scenario_.upload.status, std::move(targets),
                           !scenario_.activation.required);
  outcome.note = "image of " + std::to_string(image_size_) +
                 " bytes stored, SHA-256 " + image_sha256_ + "; " +
                 outcome.note;
  return outcome;
}

RedfishService::Outcome RedfishService::UpdateAction(
    const RecordedRequest& request) {
  if (auto disabled = RespondIfDisabled()) return *disabled;
  const auto body = ParseObject(request.body);
  if (!body) return MalformedJson();
  std::vector<std::string> targets = StringArray(*body, "Targets");
  const bool activates = !body->contains("ImageURI");
  const int status =
      activates ? scenario_.activation.status : scenario_.simple_update.status;
  if (status >= 400) {
    return {ErrorResponse(status, "ActionNotSupported",
                          "The action is not supported by this BMC.",
                          "Upload the image instead."),
            "action rejected"};
  }
  if (activates && image_size_ == 0) {
    return BadRequest("ActionParameterMissing",
                      "ImageURI is missing, and no image was uploaded.",
                      "Send an ImageURI, or upload an image first.");
  }
  if (!activates) {
    if (auto rejection = RejectParameters((*body)["ImageURI"], targets)) {
      return *rejection;
    }
  }
  if (auto busy = RespondIfBusy()) return *busy;
  Outcome outcome = Accept(status, std::move(targets), /*installs=*/true);
  outcome.note =
      (activates ? "activation started; " : "SimpleUpdate started; ") +
      outcome.note;
  return outcome;
}

std::optional<RedfishService::Outcome> RedfishService::RejectParameters(
    const Json& image_uri, const std::vector<std::string>& targets) const {
  const SimpleUpdateAction& action = scenario_.simple_update;
  const std::string uri =
      image_uri.is_string() ? image_uri.get<std::string>() : "";
  const std::string scheme = uri.substr(0, uri.find("://"));
  if (std::none_of(action.protocols.begin(), action.protocols.end(),
                   [&](const std::string& protocol) {
                     return EqualsIgnoringCase(protocol, scheme);
                   })) {
    return BadRequest("ActionParameterNotSupported",
                      "The protocol of ImageURI is not supported.",
                      "See TransferProtocol@Redfish.AllowableValues.");
  }
  if (action.requires_targets && targets.empty()) {
    return BadRequest("ActionParameterMissing",
                      "The action requires the parameter Targets.",
                      "Send at least one target.");
  }
  return {};
}

RedfishService::Outcome RedfishService::Accept(int status,
                                               std::vector<std::string> targets,
                                               bool installs) {
  Task task{.id = std::to_string(next_task_),
            .targets = std::move(targets),
            .installs = installs,
            .step_start = now_()};
  if (status != 202) {
    FinishUpdate(task);
    if (status == 204) return {{.status = 204}, "completed immediately"};
    return {JsonResponse(status, {{"Message", "The update is complete."}}),
            "completed immediately"};
  }
  ++next_task_;
  const TaskScript& script = scenario_.task;
  HeaderList headers;
  if (script.location != "none") {
    headers.emplace_back(
        "Location",
        MemberPath(script.location == "task" ? kTasks : kTaskMonitors,
                   task.id));
  }
  if (script.retry_after > 0) {
    headers.emplace_back("Retry-After", std::to_string(script.retry_after));
  }
  EnterStep(task, 0);
  Outcome outcome{{.status = 202, .headers = headers}, "task " + task.id};
  if (script.task_in_body) {
    outcome.response = JsonResponse(202, TaskBody(task), std::move(headers));
  }
  tasks_.insert_or_assign(task.id, std::move(task));
  return outcome;
}

std::optional<RedfishService::Outcome> RedfishService::RespondIfBusy() const {
  const auto running =
      std::find_if(tasks_.begin(), tasks_.end(),
                   [&](const auto& entry) { return IsRunning(entry.second); });
  if (running == tasks_.end()) return {};
  HeaderList headers;
  if (scenario_.upload.busy_retry_after > 0) {
    headers.emplace_back("Retry-After",
                         std::to_string(scenario_.upload.busy_retry_after));
  }
  return Outcome{
      ErrorResponse(503, "ServiceTemporarilyUnavailable",
                    "An update is already running.",
                    "Wait for task " + running->first + '.', headers),
      "busy with task " + running->first};
}

std::optional<RedfishService::Outcome> RedfishService::RespondIfDisabled()
    const {
  if (scenario_.service_enabled) return {};
  return Outcome{
      ErrorResponse(503, "ServiceDisabled", "The UpdateService is disabled.",
                    "Enable the UpdateService."),
      "UpdateService disabled"};
}

RedfishService::Outcome RedfishService::ResetSystem(
    const RecordedRequest& request) {
  const auto body = ParseObject(request.body);
  if (!body) return MalformedJson();
  const auto found = body->find("ResetType");
  const std::string type = found != body->end() && found->is_string()
                               ? found->get<std::string>()
                               : "";
  if (!Contains(scenario_.reset_types, type)) {
    std::string allowed;
    for (const std::string& each : scenario_.reset_types) {
      allowed += (allowed.empty() ? "" : ", ") + each;
    }
    return BadRequest("ActionParameterNotSupported",
                      "ResetType is missing or not supported.",
                      "Use one of: " + allowed + '.');
  }
  const bool switches_off = type == "ForceOff" || type == "GracefulShutdown" ||
                            (type == "PushPowerButton" && power_is_on_);
  const bool was_on = std::exchange(power_is_on_, !switches_off);
  const bool stays_on = was_on && (type == "On" || type == "ForceOn");
  if (switches_off || stays_on) return {{.status = 204}, "reset: " + type};
  Reboot(/*by_itself=*/false);
  return {{.status = 204}, "reset: " + type + ", the BMC reboots"};
}

void RedfishService::Reboot(bool by_itself) {
  ++reboots_;
  unavailable_requests_ = scenario_.reboot.requests;
  if (scenario_.reboot.requests == 0 && scenario_.reboot.seconds > 0) {
    unavailable_until_ =
        now_() + std::chrono::duration_cast<TimePoint::duration>(
                     std::chrono::duration<double>(scenario_.reboot.seconds));
  }
  for (auto& [id, task] : tasks_) {
    if (IsStaged(task)) {
      if (task.step + 1 < scenario_.task.steps.size()) {
        EnterStep(task, task.step + 1);
      } else {
        FinishUpdate(task);
      }
    } else if (IsRunning(task)) {
      // A BMC reboots by itself to apply the image. A reset by a client aborts
      // the update.
      if (by_itself) {
        FinishUpdate(task);
      } else {
        task.is_aborted = true;
      }
    }
  }
  StartVersionChange();
  if (!scenario_.reboot.keeps_tasks) tasks_.clear();
}

void RedfishService::StartVersionChange() {
  // A further reboot does not restart the delay.
  if (!pending_targets_ || change_) return;
  const VersionChange& change = scenario_.version_change;
  if (change.after_reads == 0 && change.after_seconds <= 0) {
    ApplyPendingUpdate();
  } else {
    change_ = DelayedChange{.reads_left = change.after_reads};
  }
}

void RedfishService::AdvanceVersionChange(const RecordedRequest& request,
                                          const std::string& path) {
  if (!change_) return;
  const double seconds = scenario_.version_change.after_seconds;
  if (seconds > 0) {
    if (!change_->due) {
      change_->due = now_() + std::chrono::duration_cast<TimePoint::duration>(
                                  std::chrono::duration<double>(seconds));
    }
    if (now_() >= *change_->due) ApplyPendingUpdate();
    return;
  }
  // The further pages of a collection belong to the same read.
  if (IsRead(request) && path == kFirmwareInventory && request.query.empty() &&
      change_->reads_left-- == 0) {
    ApplyPendingUpdate();
  }
}

void RedfishService::ApplyPendingUpdate() {
  if (!pending_targets_) return;
  const auto is_target = [&](const InventoryMember& member) {
    return Contains(*pending_targets_,
                    MemberPath(kFirmwareInventory, member.id));
  };
  auto& members = scenario_.firmware.members;
  const bool updates_all =
      std::none_of(members.begin(), members.end(), is_target);
  for (InventoryMember& member : members) {
    const bool changes = !member.updated_version.empty() &&
                         member.version != member.updated_version;
    if (changes && (updates_all || is_target(member))) {
      member.version = member.updated_version;
      changes_.push_back(member.id + " is now " + member.version);
    }
  }
  pending_targets_.reset();
  change_.reset();
}

}  // namespace quorvane::simulator
