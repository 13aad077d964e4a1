// SPDX-License-Identifier: Apache-2.0
#include "simulator/account.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <iostream>
#include <stdexcept>
#include <system_error>
#include <utility>

#include "simulator/text.h"

namespace quorvane::simulator {
namespace {

std::string StatusText(const BmcResponse& response) {
  switch (response.fault) {
    case Fault::kDrop:
      return "dropped";
    case Fault::kReset:
      return "reset";
    case Fault::kNotHttp:
      return "not HTTP";
    case Fault::kCutShort:
      return std::to_string(response.status) + " cut short";
    case Fault::kGarbage:
      return std::to_string(response.status) + " with garbage";
    case Fault::kSlowDrip:
      return std::to_string(response.status) + " byte by byte";
    case Fault::kNone:
      break;
  }
  return std::to_string(response.status);
}

std::string CannotWrite(const std::string& path, int error) {
  return "cannot write " + path + ": " + std::generic_category().message(error);
}

}  // namespace

std::string AccountOf(const Exchange& exchange) {
  std::string lines = Printable(exchange.request.method) + ' ' +
                      Printable(exchange.request.path) + ' ' +
                      StatusText(exchange.response);
  if (exchange.response.delay.count() > 0) {
    lines +=
        " after " + std::to_string(exchange.response.delay.count()) + " ms";
  }
  if (!exchange.note.empty()) lines += "  " + Printable(exchange.note);
  lines += '\n';
  for (const std::string& change : exchange.changes) {
    lines += Printable(change) + '\n';
  }
  return lines;
}

std::string AccountHeading(const std::string& address,
                           const std::string& scenario_file,
                           const Scenario& scenario) {
  return "Simulated BMC at https://" + address + "\nScenario " +
         Printable(scenario_file) + ": " + Printable(scenario.description) +
         '\n';
}

AccountFile::AccountFile(std::string path)
    : path_(std::move(path)),
      // O_NONBLOCK: a FIFO fails at once instead of waiting for a reader.
      fd_(open(
          path_.c_str(),
          O_WRONLY | O_CREAT | O_APPEND | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC,
          0666)) {
  if (fd_ < 0) {
    throw std::runtime_error(CannotWrite(path_, errno) +
                             ". Choose another account directory.");
  }
  struct stat status {};
  if (fstat(fd_, &status) != 0 || !S_ISREG(status.st_mode) ||
      ftruncate(fd_, 0) != 0) {
    close(fd_);
    throw std::runtime_error("cannot replace " + path_ +
                             ": it is not a regular file. Choose another "
                             "account directory.");
  }
}

AccountFile::~AccountFile() { close(fd_); }

void AccountFile::Append(const std::string& lines) {
  const ssize_t count = write(fd_, lines.data(), lines.size());
  if (count == static_cast<ssize_t>(lines.size()) || has_failed_) return;
  const int error = count < 0 ? errno : ENOSPC;
  has_failed_ = true;
  std::cerr << "simulator: " + Printable(CannotWrite(path_, error)) +
                   ". The account is incomplete.\n";
}

}  // namespace quorvane::simulator
