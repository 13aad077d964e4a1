// SPDX-License-Identifier: Apache-2.0
#include "tools/quorvane/run/bmc_text.h"

#include <cstddef>
#include <nlohmann/json.hpp>

#include "tools/quorvane/base/text.h"

namespace quorvane::tool {
namespace {

using Json = nlohmann::json;

// A single byte that is not UTF-8 must not hide the rest.
Json ParsedBody(const std::string& body) {
  return Json::parse(EscapedJson(body), nullptr, false);
}

std::string TextMember(const Json& object, const char* name) {
  if (!object.is_object()) return {};
  const auto member = object.find(name);
  return member != object.end() && member->is_string()
             ? member->get<std::string>()
             : std::string();
}

const Json& Member(const Json& object, const char* name) {
  static const Json nothing;
  if (!object.is_object()) return nothing;
  const auto member = object.find(name);
  return member != object.end() ? *member : nothing;
}

// More than a user reads, and little enough to search for repeats.
constexpr std::size_t kMaxTextBytes = 4096;

void AppendText(std::string& text, const std::string& more) {
  if (text.size() > kMaxTextBytes || more.empty() ||
      text.find(more) != std::string::npos) {
    return;
  }
  if (!text.empty()) text += ' ';
  text += more.substr(0, kMaxTextBytes);
}

bool IsAny(const Json& /*message*/) { return true; }

// MessageSeverity replaces Severity since version 1.1 of Message (DSP0268).
bool IsCritical(const Json& message) {
  return TextMember(message, "MessageSeverity") == "Critical" ||
         TextMember(message, "Severity") == "Critical";
}

void AppendMessages(std::string& text, const Json& messages,
                    bool (*is_included)(const Json&) = IsAny) {
  if (!messages.is_array()) return;
  for (const Json& message : messages) {
    if (!is_included(message)) continue;
    const std::string own = TextMember(message, "Message");
    AppendText(text, own.empty() ? TextMember(message, "MessageId") : own);
  }
}

}  // namespace

std::string ErrorText(const std::string& body) {
  const Json response = ParsedBody(body);
  if (response.is_discarded()) {
    constexpr std::size_t kMaxBytes = 200;
    return body.substr(0, kMaxBytes);
  }
  const Json& error = Member(response, "error");
  std::string text = TextMember(error, "message");
  AppendMessages(text, Member(error, "@Message.ExtendedInfo"));
  AppendMessages(text, Member(response, "@Message.ExtendedInfo"));
  AppendText(text, TextMember(response, "Message"));
  return text;
}

// The reasons of libcurl for a certificate or key that is not the expected one.
bool IsUntrusted(const std::string& reason) {
  return reason.find("SSL public key does not match") != std::string::npos ||
         reason.find("SSL peer certificate or SSH remote key was not OK") !=
             std::string::npos;
}

TaskReport ReadTask(const std::string& body) {
  const Json task = ParsedBody(body);
  const Json& messages = Member(task, "Messages");
  TaskReport report{.is_unreadable = !task.is_object(),
                    .status = TextMember(task, "TaskStatus")};
  AppendMessages(report.messages, messages);
  AppendMessages(report.critical, messages, IsCritical);
  return report;
}

}  // namespace quorvane::tool
