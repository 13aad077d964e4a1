// SPDX-License-Identifier: Apache-2.0
#include "update/download.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <stdexcept>
#include <utility>

#include "config/limits.h"
#include "logging/redact.h"
#include "quorvane/logging.h"
#include "update/last_segment.h"

namespace quorvane {
namespace {

constexpr mode_t kOwnerOnly = 0600;

enum class Lock {
  kTaken,
  kHeldElsewhere,
  kUnavailable,  // for example on a file system without locks
};

Lock TryLock(const Descriptor& file) {
  if (flock(file.get(), LOCK_EX | LOCK_NB) == 0) return Lock::kTaken;
  return errno == EWOULDBLOCK ? Lock::kHeldElsewhere : Lock::kUnavailable;
}

// Whether `path` refers to the open file. False also if a system call fails: a
// file that can belong to another run must not be removed.
bool RefersTo(const std::string& path, const Descriptor& file) {
  struct stat named {};
  struct stat opened {};
  return lstat(path.c_str(), &named) == 0 && fstat(file.get(), &opened) == 0 &&
         named.st_dev == opened.st_dev && named.st_ino == opened.st_ino;
}

// Removes the file of a crashed run, or a symbolic link. Does not remove the
// file of a run that is still active.
//
// A run removes a name only while it holds the lock of the file. So no other
// run can give the name to another file between the check and the removal. A
// symbolic link has no lock: two runs that find the same link can still
// interfere with each other.
bool RemoveLeftover(const std::string& path) {
  const Descriptor old(
      open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK));
  if (!old.IsOpen() && errno == ENOENT) return true;
  const bool removable =
      old.IsOpen() ? TryLock(old) == Lock::kTaken && RefersTo(path, old)
                   : errno == ELOOP;
  return removable && unlink(path.c_str()) == 0;
}

std::string PathInTmp(const std::string& last_segment) {
  const std::string name =
      last_segment.empty() ? "firmware_download.bin" : last_segment;
  return "/tmp/" + name.substr(0, name.find('?'));
}

std::optional<TemporaryImage> Download(const HttpClient& client,
                                       const std::string& image_uri,
                                       const ImagePath& path) {
  const Response response =
      client.get(image_uri, {}, kImageTimeoutMs, "", "", "");
  if (response.status_code != 200 || response.body.empty()) {
    LogError(kUpdate,
             "Download returned HTTP " + std::to_string(response.status_code));
    return std::nullopt;
  }
  std::optional<TemporaryImage> image = TemporaryImage::Create(path.path);
  if (!image || !image->Write(response.body)) {
    LogError(kUpdate, "Failed to write temp file: " + path.for_log);
    return std::nullopt;
  }
  LogInfo(kUpdate, "Download complete: " + path.for_log + " (" +
                       std::to_string(image->size()) + " bytes)");
  return image;
}

}  // namespace

TemporaryImage::TemporaryImage(std::string path, Descriptor file)
    : path_(std::move(path)), file_(std::move(file)) {}

TemporaryImage::~TemporaryImage() {
  // If another run holds the lock, that run removes the file.
  if (file_.IsOpen() && TryLock(file_) != Lock::kHeldElsewhere &&
      RefersTo(path_, file_)) {
    static_cast<void>(unlink(path_.c_str()));
  }
}

std::optional<TemporaryImage> TemporaryImage::Create(const std::string& path) {
  std::string owned_path = path;
  if (!RemoveLeftover(path)) return std::nullopt;
  Descriptor file(open(path.c_str(),
                       O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC,
                       kOwnerOnly));
  if (!file.IsOpen()) return std::nullopt;
  TemporaryImage image(std::move(owned_path), std::move(file));
  // Before the lock, another run can have removed the file as a leftover.
  if (TryLock(image.file_) == Lock::kHeldElsewhere ||
      !RefersTo(path, image.file_)) {
    return std::nullopt;
  }
  return image;
}

bool TemporaryImage::Write(std::string_view image) const {
  if (!WriteAll(file_.get(), image)) return false;
  // Closing reports a delayed write error; file_ keeps the lock.
  Descriptor copy(fcntl(file_.get(), F_DUPFD_CLOEXEC, 0));
  return copy.IsOpen() && copy.Close();
}

long long TemporaryImage::size() const {
  struct stat found {};
  return fstat(file_.get(), &found) == 0 ? found.st_size : -1;
}

// The segment comes from the caller's URI. It contains no slash, so the file
// stays in the directory.
ImagePath TemporaryPath(const std::string& image_uri) {
  return {.path = PathInTmp(LastSegment(image_uri)),
          .for_log = PathInTmp(LastSegmentForLog(image_uri))};
}

std::optional<TemporaryImage> DownloadImageToTemp(const HttpClient& client,
                                                  const std::string& image_uri,
                                                  const ImagePath& path) {
  LogInfo(kUpdate, "Downloading from: " + RedactUri(image_uri));
  LogInfo(kUpdate, "Download target: " + path.for_log);
  try {
    return Download(client, image_uri, path);
  } catch (const std::runtime_error& failure) {
    LogError(kUpdate, std::string("Download failed: ") + failure.what());
    return std::nullopt;
  }
}

}  // namespace quorvane
