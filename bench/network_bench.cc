// SPDX-License-Identifier: Apache-2.0
#include "bench/network_bench.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <memory>
#include <sstream>
#include <string>

#include "bench/process.h"

namespace quorvane::bench {
namespace {

namespace fs = std::filesystem;

constexpr long long kMebi = 1LL << 20;
constexpr long long kGibi = 1LL << 30;

constexpr const char* kCollection =
    "/redfish/v1/UpdateService/FirmwareInventory";

// A sparse file of zeros.
std::string Image(const std::string& directory, long long size) {
  std::string path = directory + "/image-" + std::to_string(size);
  std::ofstream(path).close();
  fs::resize_file(path, static_cast<std::uintmax_t>(size));
  return path;
}

// The client program and its rules file, which must be in the directory of the
// program that contains the library code.
class Client {
 public:
  explicit Client(const std::string& directory)
      : program_(directory + "/client"), log_(directory + "/client.log") {
    fs::create_symlink(QUORVANE_BENCH_CLIENT, program_);
    fs::copy_file(QUORVANE_BENCH_RULES, directory + "/brindle.config.json");
  }

  [[nodiscard]] Command Call(const std::string& operation,
                             const std::string& bmc,
                             const std::string& argument) const {
    return {program_, operation, bmc, argument, log_};
  }

  // CPU seconds of the whole process.
  [[nodiscard]] double Cpu(const std::string& operation, const std::string& bmc,
                           const std::string& argument) const {
    return Run(Call(operation, bmc, argument)).cpu_seconds;
  }

  // Peak of resident memory, in MiB.
  [[nodiscard]] double PeakMemory(const std::string& operation,
                                  const std::string& bmc,
                                  const std::string& argument) const {
    return std::stod(Run(Call(operation, bmc, argument)).output);
  }

  // CPU seconds of one of `count` parallel updates.
  [[nodiscard]] double UpdateCpu(const std::string& bmc,
                                 const std::string& image, int count) const {
    Command call = Call("updates", bmc, image);
    call.push_back(std::to_string(count));
    std::istringstream output(Run(call).output);
    double peak = 0;
    double seconds = 0;
    output >> peak >> seconds;
    return seconds;
  }

 private:
  std::string program_, log_;
};

using ClientPtr = std::shared_ptr<const Client>;

// curl with the options that a script for a BMC uses.
Command Curl(const Command& rest, const std::string& output = "/dev/null") {
  Command command = {"curl", "-q", "-s",   "-S", "-f",
                     "-k",   "-o", output, "-u", "admin:password"};
  command.insert(command.end(), rest.begin(), rest.end());
  return command;
}

// The requests of a successful update.
std::vector<Command> UpdateRequests(const std::string& base,
                                    const std::string& image) {
  std::vector<Command> requests = {Curl({base + kCollection})};
  for (int i = 0; i < kFewMembers; ++i) {
    requests.push_back(Curl({base + kCollection + "/" + std::to_string(i)}));
  }
  requests.push_back(
      Curl({"-F", "UpdateFile=@" + image, "-H",
            "Expect:", base + "/redfish/v1/UpdateService/MultipartUpload"}));
  requests.push_back(Curl({base + "/redfish/v1/TaskService/Tasks/1"}));
  requests.push_back(
      Curl({"--json", R"({"ResetType":"GracefulRestart"})",
            base + "/redfish/v1/Systems/system/Actions/ComputerSystem.Reset"}));
  return requests;
}

// One curl with a connection for each member, because a BMC closes them.
Command InventoryWithCurl(const std::string& directory,
                          const std::string& base) {
  const std::string urls = directory + "/urls";
  std::ofstream list(urls);
  list << "url = " << base << kCollection << "\noutput = /dev/null\n";
  for (int i = 0; i < kManyMembers; ++i) {
    list << "url = " << base << kCollection << "/" << i
         << "\noutput = /dev/null\n";
  }
  return {
      "curl",           "-q", "-s", "-S", "-f", "-k", "--no-sessionid", "-u",
      "admin:password", "-K", urls};
}

void AddUploads(const ClientPtr& client, const std::string& directory,
                const std::string& bmc, std::vector<Comparison>& rows) {
  const std::string image = Image(directory, kGibi);
  const std::string url = "https://" + bmc + "/redfish/v1/UpdateService/update";
  rows.push_back({.name = "upload/multipart",
                  .measure = "multipart upload of 1 GiB",
                  .reference = "`curl -F`",
                  .unit = "s",
                  .bound = 1.10,
                  .cost = [=] { return client->Cpu("multipart", bmc, image); },
                  .reference_cost =
                      [=] {
                        return Run(Curl({"-F", "UpdateFile=@" + image, "-H",
                                         "Expect:", url}))
                            .cpu_seconds;
                      }});
  rows.push_back(
      {.name = "upload/binary",
       .measure = "binary upload of 1 GiB",
       .reference = "`curl -T`",
       .unit = "s",
       .bound = 1.10,
       .cost = [=] { return client->Cpu("binary", bmc, image); },
       .reference_cost =
           [=] {
             return Run(Curl({"-T", image, "-H", "Expect:", url})).cpu_seconds;
           }});
  for (const long long size : {kMebi, kGibi, 5 * kGibi}) {
    for (const char* operation : {"multipart", "binary"}) {
      const std::string file = Image(directory, size);
      rows.push_back(
          {.name = std::string("memory/") + operation + "/" +
                   std::to_string(size / kMebi),
           .measure = "peak memory of an upload, 1 MiB to 5 GiB",
           .reference = "24 MiB",
           .unit = "MiB",
           .bound = 1,
           .cost = [=] { return client->PeakMemory(operation, bmc, file); },
           .reference_cost = [] { return 24; },
           .repetitions = 1});
    }
  }
}

void AddDownloads(const ClientPtr& client, const std::string& directory,
                  const std::string& bmc, std::vector<Comparison>& rows) {
  const std::string size_in_bytes = std::to_string(136 * kMebi);
  const std::string url = "https://" + bmc + "/images/" + size_in_bytes;
  rows.push_back(
      {.name = "download/cpu",
       .measure = "GET of 136 MiB, held in memory",
       .reference = "`curl -o FILE`",
       .unit = "s",
       .bound = 1.3,
       .cost = [=] { return client->Cpu("download", bmc, size_in_bytes); },
       .reference_cost =
           [=] {
             return Run(Curl({url}, directory + "/download")).cpu_seconds;
           },
       .pairs = 3});
  // The library stores the image under this name in /tmp, so it must be unique.
  const std::string name = fs::path(directory).filename().string() + ".bin";
  for (const long long size : {256 * kMebi, 1536 * kMebi}) {
    const double mebibytes = static_cast<double>(size) / kMebi;
    std::string uri = "https://";
    uri.append(bmc).append("/images/").append(std::to_string(size));
    uri.append("/").append(name);
    rows.push_back(
        {.name = "memory/download/" + std::to_string(size / kMebi),
         .measure = "peak memory of an update that downloads " +
                    std::to_string(size / kMebi) + " MiB",
         .reference = "1.10 x the image + 16 MiB",
         .unit = "MiB",
         .bound = 1,
         .cost = [=] { return client->PeakMemory("update", bmc, uri); },
         .reference_cost = [=] { return 1.10 * mebibytes + 16; },
         .repetitions = 1});
  }
}

void AddUpdates(const ClientPtr& client, const std::string& directory,
                const std::string& bmc, std::vector<Comparison>& rows) {
  const std::string image = Image(directory, kMebi);
  const auto requests = UpdateRequests("https://" + bmc, image);
  const std::string reference =
      "its " + std::to_string(requests.size()) + " requests by `curl`";
  const auto sum =
      [requests](const std::function<double(const Command&)>& cost) {
        double total = 0;
        for (const Command& request : requests) total += cost(request);
        return total;
      };
  rows.push_back(
      {.name = "update/cpu",
       .measure = "one update",
       .reference = reference,
       .unit = "s",
       .bound = 0.40,
       .cost = [=] { return client->Cpu("update", bmc, image); },
       .reference_cost =
           [=] {
             return sum([](const Command& c) { return Run(c).cpu_seconds; });
           },
       .pairs = 5});
  rows.push_back({.name = "update/calls",
                  .measure = "system calls of one update",
                  .reference = reference,
                  .unit = "calls",
                  .bound = 0.40,
                  .cost =
                      [=] {
                        return SystemCalls(client->Call("update", bmc, image),
                                           directory);
                      },
                  .reference_cost =
                      [=] {
                        return sum([&](const Command& c) {
                          return SystemCalls(c, directory);
                        });
                      },
                  .repetitions = 5});
  rows.push_back({.name = "update/parallel",
                  .measure = "one of 50 parallel updates",
                  .reference = "one update alone",
                  .unit = "s",
                  .bound = 1.3,
                  .cost = [=] { return client->UpdateCpu(bmc, image, 50); },
                  .reference_cost =
                      [=] {
                        double total = 0;
                        for (int i = 0; i < 10; ++i) {
                          total += client->UpdateCpu(bmc, image, 1);
                        }
                        return total / 10;
                      }});
}

}  // namespace

std::vector<Comparison> NetworkComparisons(const std::string& directory,
                                           const std::string& bmc,
                                           const std::string& big_bmc) {
  const auto client = std::make_shared<const Client>(directory);
  std::vector<Comparison> rows;
  AddUploads(client, directory, bmc, rows);
  AddDownloads(client, directory, bmc, rows);
  const Command curl = InventoryWithCurl(directory, "https://" + big_bmc);
  rows.push_back({.name = "inventory",
                  .measure = "inventory of 200 members",
                  .reference = "one `curl`, a connection for each member",
                  .unit = "s",
                  .bound = 1.05,
                  .cost =
                      [=] {
                        return client->Cpu("inventory", big_bmc,
                                           std::to_string(kManyMembers));
                      },
                  .reference_cost = [=] { return Run(curl).cpu_seconds; }});
  AddUpdates(client, directory, bmc, rows);
  return rows;
}

}  // namespace quorvane::bench
