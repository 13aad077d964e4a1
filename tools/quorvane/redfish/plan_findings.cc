// SPDX-License-Identifier: Apache-2.0
#include <fmt/core.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <functional>
#include <string_view>

#include "tools/quorvane/redfish/plan.h"

namespace quorvane::tool {
namespace {

// What the rows of the table ask.
struct Situation {
  const Plan& plan;
  const ServiceFacts& facts;
  const PlanRequest& request;
  UpdateServiceFacts service;  // empty if unknown
  bool is_file;

  explicit Situation(const Plan& of)
      : plan(of),
        facts(of.facts),
        request(of.request),
        service(of.facts.update_service.value_or(UpdateServiceFacts{})),
        is_file(of.request.image.IsFile()) {}

  [[nodiscard]] const PlannedPhase* Find(std::string_view name) const {
    const auto found = std::find_if(
        plan.phases.begin(), plan.phases.end(),
        [&](const PlannedPhase& phase) { return phase.phase == name; });
    return found == plan.phases.end() ? nullptr : &*found;
  }

  // @{ Whether the plan has the phase, and its URIs are in these states.
  [[nodiscard]] bool AreAllAbsent(std::string_view name) const {
    const PlannedPhase* phase = Find(name);
    return phase != nullptr &&
           std::all_of(phase->uris.begin(), phase->uris.end(),
                       [](const PlannedUri& uri) {
                         return uri.state == UriState::kAbsent;
                       });
  }
  [[nodiscard]] bool IsAny(std::string_view name, UriState state) const {
    const PlannedPhase* phase = Find(name);
    return phase != nullptr &&
           std::any_of(
               phase->uris.begin(), phase->uris.end(),
               [state](const PlannedUri& uri) { return uri.state == state; });
  }
  // At least one URI is unknown, and none is known to exist.
  [[nodiscard]] bool AreUnknown(std::string_view name) const {
    return IsAny(name, UriState::kUnknown) &&
           !IsAny(name, UriState::kAdvertised) &&
           !IsAny(name, UriState::kPresent);
  }
  // @}

  [[nodiscard]] bool IsProtocolRejected() const;

  // This host downloads the image and uploads it if SimpleUpdate fails.
  [[nodiscard]] bool CanUploadInstead() const {
    return request.CanDownload() && !AreAllAbsent("Upload");
  }

  [[nodiscard]] bool IsInInventory(const std::string& uri) const {
    return std::any_of(facts.firmware.begin(), facts.firmware.end(),
                       [&](const auto& one) { return one.uri == uri; });
  }

  // The system whose reset is expected; nothing if it is unknown.
  [[nodiscard]] const SystemFacts* RebootedSystem() const {
    const PlannedPhase* phase = Find("Reboot");
    if (phase == nullptr) return nullptr;
    for (const PlannedUri& uri : phase->uris) {
      if (!uri.is_expected) continue;
      for (const SystemFacts& system : facts.systems) {
        if (system.reset_uri && IsSamePath(*system.reset_uri, uri.uri)) {
          return &system;
        }
      }
    }
    return nullptr;
  }
};

std::string Upper(std::string_view text) {
  std::string upper;
  for (const char c : text) {
    upper += static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
  }
  return upper;
}

std::string Listed(const std::vector<std::string>& texts) {
  std::string list;
  for (const std::string& text : texts) {
    list += (list.empty() ? "" : ", ") + text;
  }
  return list;
}

// The first few texts, and how many follow.
std::string FirstOf(std::vector<std::string> texts) {
  constexpr std::size_t kMaxListed = 4;
  const std::size_t count = texts.size();
  texts.resize(std::min(count, kMaxListed));
  return Listed(texts) + (count > kMaxListed
                              ? fmt::format(" and {} more", count - kMaxListed)
                              : "");
}

std::string SchemeOf(const PlanImage& image) {
  return Upper(image.uri.substr(0, image.uri.find(':')));
}

// DSP2046, UpdateService, TransferProtocolType. "NSF" is its former spelling of
// NFS, and CIFS is the protocol of smb: URIs. With "OEM", the BMC accepts
// schemes that it does not list.
bool Situation::IsProtocolRejected() const {
  if (is_file || !service.protocols) return false;
  const std::string scheme = SchemeOf(request.image);
  return std::none_of(service.protocols->begin(), service.protocols->end(),
                      [&](const std::string& protocol) {
                        const std::string name = Upper(protocol);
                        return name == scheme || name == "OEM" ||
                               (name == "NSF" && scheme == "NFS") ||
                               (name == "CIFS" && scheme == "SMB");
                      });
}

// The targets for which `is_listed` is true, in one text.
std::string TargetsThat(
    const Situation& at,
    const std::function<bool(const std::string&)>& is_listed) {
  std::vector<std::string> listed;
  for (const std::string& uri : at.request.targets) {
    if (is_listed(uri)) listed.push_back(uri);
  }
  return Listed(listed);
}

std::string AbsentTargets(const Situation& at) {
  return TargetsThat(at, [&](const std::string& uri) {
    return !at.IsInInventory(uri) &&
           at.facts.PresenceAt(uri) == Presence::kAbsent;
  });
}

std::string FixedTargets(const Situation& at) {
  return TargetsThat(at, [&](const std::string& uri) {
    const auto is_fixed = [&](const FirmwareFacts& one) {
      return one.uri == uri && one.updateable == false;
    };
    return std::any_of(at.facts.targets.begin(), at.facts.targets.end(),
                       is_fixed) ||
           std::any_of(at.facts.firmware.begin(), at.facts.firmware.end(),
                       is_fixed);
  });
}

std::string UnlistedTargets(const Situation& at) {
  return TargetsThat(at, [&](const std::string& uri) {
    return !at.IsInInventory(uri) &&
           at.facts.PresenceAt(uri) != Presence::kAbsent;
  });
}

std::string RunningTasks(const Situation& at) {
  std::vector<std::string> tasks;
  for (const BmcTask& task : at.facts.tasks.tasks) {
    if (task.IsRunning()) {
      tasks.push_back(fmt::format("{} ({})", task.uri, task.state));
    }
  }
  return Listed(tasks);
}

// The upload URIs that the BMC advertises.
std::string AdvertisedUploads(const Situation& at) {
  std::vector<std::string> uris;
  if (at.service.multipart_uri) uris.push_back(*at.service.multipart_uri);
  if (at.service.binary_uri) uris.push_back(*at.service.binary_uri);
  return Listed(uris);
}

std::string DraftAdvice(const Situation& at) {
  return fmt::format(
      "Use rules with the URIs of this BMC; `quorvane rules draft --bmc {} "
      "--user NAME --output FILE` writes them.",
      at.request.bmc);
}

bool IsUploadAdvertised(const Situation& at) {
  return at.IsAny("Upload", UriState::kAdvertised) ||
         at.IsAny("Binary upload", UriState::kAdvertised);
}

struct FindingRow {
  const char* code;
  bool (*is_blocker)(const Situation&);
  bool (*applies)(const Situation&);
  std::string (*message)(const Situation&);
  std::string (*action)(const Situation&);
};

bool Always(const Situation& /*at*/) { return true; }
bool Never(const Situation& /*at*/) { return false; }
// Some BMCs return 404 for a GET of a URI that accepts only POST. So a 404 is
// final only if the resource that would advertise the URI was read, or is
// absent itself.
bool IfServiceKnown(const Situation& at) {
  return at.facts.update_service.has_value() ||
         at.facts.update_service_presence == Presence::kAbsent;
}
bool IfSystemKnown(const Situation& at) {
  return at.facts.are_systems_complete && !at.facts.systems.empty();
}
bool UnlessUploadWorks(const Situation& at) {
  return IfServiceKnown(at) && !at.CanUploadInstead();
}

// One row for each finding. A row applies only if the BMC itself reported what
// it rests on.
// NOLINTNEXTLINE(readability-function-size)
const auto& BlockerRows() {
  static const std::array rows = {
      FindingRow{
          "update_service_disabled", Always,
          [](const Situation& at) { return at.service.is_enabled == false; },
          [](const Situation&) {
            return std::string(
                "The update service of the BMC is disabled "
                "(ServiceEnabled is false), so it rejects updates.");
          },
          [](const Situation&) {
            return std::string(
                "Enable the update service in the settings of the BMC.");
          }},
      FindingRow{
          "image_too_large", Always,
          [](const Situation& at) {
            return at.is_file && at.service.max_bytes &&
                   static_cast<double>(at.request.image.size) >
                       *at.service.max_bytes;
          },
          [](const Situation& at) {
            return fmt::format(
                "The image has {} bytes, but the BMC accepts at most {:.0f} "
                "(MaxImageSizeBytes).",
                at.request.image.size, *at.service.max_bytes);
          },
          [](const Situation&) {
            return std::string(
                "Use a smaller package, or let the BMC download the image with "
                "--image.");
          }},
      FindingRow{
          "upload_uri_absent", IfServiceKnown,
          [](const Situation& at) {
            return at.is_file && at.AreAllAbsent("Upload");
          },
          [](const Situation& at) {
            const std::string uris = AdvertisedUploads(at);
            return "The BMC has none of the upload URIs of the rules (HTTP "
                   "404)" +
                   (!uris.empty() ? ". It advertises " + uris + "."
                    : at.facts.update_service
                        ? std::string(", and it advertises no upload.")
                        : std::string("."));
          },
          [](const Situation& at) {
            return AdvertisedUploads(at).empty() && at.service.simple_update_uri
                       ? std::string(
                             "Let the BMC download the image with --image.")
                       : DraftAdvice(at);
          }},
      FindingRow{
          "simple_update_uri_absent", UnlessUploadWorks,
          [](const Situation& at) { return at.AreAllAbsent("SimpleUpdate"); },
          [](const Situation& at) {
            return std::string(
                       "The BMC has none of the SimpleUpdate URIs of the rules "
                       "(HTTP 404)") +
                   (at.service.simple_update_uri
                        ? ". It advertises " + *at.service.simple_update_uri +
                              "."
                    : at.CanUploadInstead()
                        ? ", so this host downloads the image and uploads it."
                        : ".");
          },
          [](const Situation& at) {
            return at.service.simple_update_uri
                       ? DraftAdvice(at)
                       : std::string(
                             "Download the image yourself and use "
                             "--file.");
          }},
      FindingRow{
          "protocol_not_allowed", UnlessUploadWorks,
          [](const Situation& at) { return at.IsProtocolRejected(); },
          [](const Situation& at) {
            return fmt::format(
                "The BMC does not download images by {}, only by {} "
                "(TransferProtocol){}.",
                SchemeOf(at.request.image), Listed(*at.service.protocols),
                at.CanUploadInstead()
                    ? ", so this host downloads the image and uploads it"
                    : "");
          },
          [](const Situation&) {
            return std::string(
                "Put the image on a server with one of these protocols, or use "
                "--file.");
          }},
      FindingRow{"target_absent", Always,
                 [](const Situation& at) { return !AbsentTargets(at).empty(); },
                 [](const Situation& at) {
                   return "The BMC has no such target (HTTP 404): " +
                          AbsentTargets(at) + ".";
                 },
                 [](const Situation&) {
                   return std::string(
                       "Use URIs of `quorvane inventory --uris`.");
                 }},
      FindingRow{"target_not_updateable", Always,
                 [](const Situation& at) { return !FixedTargets(at).empty(); },
                 [](const Situation& at) {
                   return "The BMC reports that this target cannot be updated "
                          "(Updateable is false): " +
                          FixedTargets(at) + ".";
                 },
                 [](const Situation&) {
                   return std::string(
                       "Use a target that is updateable, or "
                       "leave out --target.");
                 }},
      FindingRow{
          "activation_uri_absent", IfServiceKnown,
          [](const Situation& at) { return at.AreAllAbsent("Activation"); },
          [](const Situation&) {
            return std::string(
                "With --target, an upload needs an activation, but the BMC has "
                "none of the activation URIs of the rules (HTTP 404). The "
                "update fails after the upload.");
          },
          [](const Situation& at) {
            return at.service.simple_update_uri
                       ? DraftAdvice(at)
                       : std::string("Leave out --target.");
          }},
      FindingRow{
          "reset_uri_absent", IfSystemKnown,
          [](const Situation& at) { return at.AreAllAbsent("Reboot"); },
          [](const Situation&) {
            return std::string(
                "The rules require a reboot, but the BMC has none of their "
                "reset URIs (HTTP 404). The update fails after the upload.");
          },
          [](const Situation& at) {
            return DraftAdvice(at) +
                   " Or update with --restart never and reboot the system "
                   "yourself.";
          }},
      FindingRow{
          "graceful_restart_not_allowed", Always,
          [](const Situation& at) {
            const SystemFacts* system = at.RebootedSystem();
            if (system == nullptr || !system->reset_types) return false;
            const auto& types = *system->reset_types;
            return std::find(types.begin(), types.end(), "GracefulRestart") ==
                   types.end();
          },
          [](const Situation& at) {
            return fmt::format(
                "The rules require a reboot by GracefulRestart, but {} allows "
                "only {} (ResetType). The update fails after the upload.",
                at.RebootedSystem()->uri,
                Listed(*at.RebootedSystem()->reset_types));
          },
          [](const Situation&) {
            return std::string(
                "Update with --restart never and reboot the system yourself.");
          }},
  };
  return rows;
}

// NOLINTNEXTLINE(readability-function-size)
const auto& WarningRows() {
  static const std::array rows = {
      FindingRow{
          "service_root_unknown", Never,
          [](const Situation& at) { return !at.facts.is_root_read; },
          [](const Situation& at) {
            return fmt::format(
                "{} does not respond to {} as a Redfish service does.",
                at.request.bmc, kServiceRootUri);
          },
          [](const Situation&) {
            return std::string(
                "Check that --bmc is the address of a BMC, and that Redfish is "
                "enabled in its settings.");
          }},
      FindingRow{
          "update_service_unknown", Never,
          [](const Situation& at) { return !at.facts.update_service; },
          [](const Situation& at) {
            return at.facts.update_service_presence == Presence::kAbsent
                       ? std::string(
                             "The BMC has no UpdateService (HTTP 404), so it "
                             "is not known what it accepts.")
                       : std::string(
                             "The UpdateService could not be read, so it is "
                             "not known what the BMC accepts.");
          },
          [](const Situation&) {
            return std::string(
                "Run the command again, with --log FILE to see the responses. "
                "The account may need more privileges.");
          }},
      FindingRow{
          "resources_refused", Never,
          [](const Situation& at) { return !at.facts.refused_uris.empty(); },
          [](const Situation& at) {
            return "The BMC does not let the account read " +
                   FirstOf(at.facts.refused_uris) +
                   " (HTTP 401 or 403), so the plan does not cover it.";
          },
          [](const Situation&) {
            return std::string(
                "Use an account with more privileges, or check that "
                "the update does not need it.");
          }},
      FindingRow{
          "update_service_unhealthy", Never,
          [](const Situation& at) {
            return at.service.state.value_or("Enabled") != "Enabled" ||
                   at.service.health.value_or("OK") != "OK";
          },
          [](const Situation& at) {
            return fmt::format(
                "The update service reports the state {} and the health {}.",
                at.service.state.value_or("unknown"),
                at.service.health.value_or("unknown"));
          },
          [](const Situation&) {
            return std::string(
                "Read the log of the BMC. A restart of the BMC may help.");
          }},
      FindingRow{"upload_uri_not_advertised", Never,
                 [](const Situation& at) {
                   return at.is_file && !IsUploadAdvertised(at) &&
                          !AdvertisedUploads(at).empty() &&
                          !at.AreAllAbsent("Upload");
                 },
                 [](const Situation& at) {
                   return "The BMC advertises " + AdvertisedUploads(at) +
                          " for uploads, which the rules do not contain.";
                 },
                 DraftAdvice},
      FindingRow{"upload_uri_unknown", Never,
                 [](const Situation& at) {
                   return at.is_file && at.AreUnknown("Upload");
                 },
                 [](const Situation&) {
                   return std::string(
                       "It is not known whether the BMC has an upload URI of "
                       "the rules.");
                 },
                 [](const Situation&) {
                   return std::string(
                       "Compare upload_uri in the rules with the manual of the "
                       "BMC.");
                 }},
      FindingRow{
          "multipart_not_advertised", Never,
          [](const Situation& at) {
            return at.is_file && at.facts.update_service &&
                   !at.service.multipart_uri &&
                   at.IsAny("Binary upload", UriState::kAdvertised);
          },
          [](const Situation&) {
            return std::string(
                "The BMC advertises only a binary upload. The multipart "
                "upload, which comes first, probably fails, and the retries "
                "of the rules delay the update.");
          },
          [](const Situation&) {
            return std::string(
                "Nothing, if the delay does not matter. Otherwise, lower "
                "max_retries in the rules.");
          }},
      FindingRow{
          "simple_update_unknown", Never,
          [](const Situation& at) { return at.AreUnknown("SimpleUpdate"); },
          [](const Situation&) {
            return std::string(
                "It is not known whether the BMC has a SimpleUpdate URI of the "
                "rules.");
          },
          [](const Situation&) {
            return std::string(
                "Compare activation_uri in the rules with the manual of the "
                "BMC.");
          }},
      FindingRow{"target_not_in_inventory", Never,
                 [](const Situation& at) {
                   return !at.facts.firmware.empty() &&
                          !UnlistedTargets(at).empty();
                 },
                 [](const Situation& at) {
                   return "The inventory does not contain this target, so "
                          "`quorvane update` rejects it: " +
                          UnlistedTargets(at) + ".";
                 },
                 [](const Situation&) {
                   return std::string(
                       "Use URIs of `quorvane inventory --uris`, or --force to "
                       "skip the check.");
                 }},
      FindingRow{
          "inventory_incomplete", Never,
          [](const Situation& at) { return !at.facts.is_firmware_complete; },
          [](const Situation& at) {
            return at.facts.firmware.empty()
                       ? std::string(
                             "The firmware inventory could not be read, so "
                             "the versions before and after the update cannot "
                             "be compared.")
                       : std::string(
                             "A part of the firmware inventory could not be "
                             "read.");
          },
          [](const Situation&) {
            return std::string(
                "Compare inventory_uri in the rules with the BMC; run "
                "`quorvane inventory` for details.");
          }},
      FindingRow{"task_running", Never,
                 [](const Situation& at) { return !RunningTasks(at).empty(); },
                 [](const Situation& at) {
                   return "The BMC runs a task now: " + RunningTasks(at) +
                          ". It may reject an update until that ends.";
                 },
                 [](const Situation&) {
                   return std::string(
                       "Wait until the task ends; `quorvane task URI` shows "
                       "it.");
                 }},
      FindingRow{
          "system_off", Never,
          [](const Situation& at) {
            return at.facts.systems.size() == 1 &&
                   at.facts.systems.front().power_state == "Off";
          },
          [](const Situation&) {
            return std::string(
                "The system is off. Some components cannot be updated then, "
                "and a BMC can reject the reboot.");
          },
          [](const Situation&) {
            return std::string("Turn the system on before the update.");
          }},
      FindingRow{"reset_uri_unknown", Never,
                 [](const Situation& at) { return at.AreUnknown("Reboot"); },
                 [](const Situation&) {
                   return std::string(
                       "It is not known whether the BMC has a reset URI of the "
                       "rules.");
                 },
                 [](const Situation&) {
                   return std::string(
                       "Compare reboot_uri in the rules with the manual of the "
                       "BMC.");
                 }},
  };
  return rows;
}

}  // namespace

std::vector<PlanFinding> FindingsOf(const Plan& plan) {
  const Situation at(plan);
  std::vector<PlanFinding> findings;
  const auto add = [&](const auto& rows) {
    for (const FindingRow& row : rows) {
      if (!row.applies(at)) continue;
      findings.push_back({.is_blocker = row.is_blocker(at),
                          .code = row.code,
                          .message = row.message(at),
                          .action = row.action(at)});
    }
  };
  add(BlockerRows());
  add(WarningRows());
  std::stable_partition(findings.begin(), findings.end(),
                        [](const auto& one) { return one.is_blocker; });
  return findings;
}

}  // namespace quorvane::tool
