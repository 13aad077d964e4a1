// SPDX-License-Identifier: Apache-2.0
#include "update/download.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <stdexcept>
#include <utility>

#include "logging/redact.h"
#include "quorvane/logging.h"
#include "update/helpers.h"

namespace quorvane {
namespace {

constexpr mode_t kOwnerOnly = 0600;

enum class Lock {
  kTaken,
  kHeldElsewhere,
  kUnavailable,  // such as on a file system without locks
};

Lock TryLock(const Descriptor& file) {
  if (flock(file.get(), LOCK_EX | LOCK_NB) == 0) return Lock::kTaken;
  return errno == EWOULDBLOCK ? Lock::kHeldElsewhere : Lock::kUnavailable;
}

// Whether `path` names the very file that is open. False also when the system
// does not say: what may be another run's must not be removed.
bool IsNamed(const std::string& path, const Descriptor& file) {
  struct stat named {};
  struct stat opened {};
  return lstat(path.c_str(), &named) == 0 && fstat(file.get(), &opened) == 0 &&
         named.st_dev == opened.st_dev && named.st_ino == opened.st_ino;
}

// Removes what a run that died left behind, or a symbolic link that somebody
// put there. A file that a living run holds stays.
//
// A run removes a name only while it holds the lock of the file behind it. So
// between the check of the name and its removal no other run can give the name
// to another file. A symbolic link has no lock: two runs that find the same one
// could still get in each other's way.
bool RemoveLeftOver(const std::string& path) {
  const Descriptor old(
      open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK));
  if (!old.IsOpen() && errno == ENOENT) return true;
  const bool removable =
      old.IsOpen() ? TryLock(old) == Lock::kTaken && IsNamed(path, old)
                   : errno == ELOOP;
  return removable && unlink(path.c_str()) == 0;
}

std::string TemporaryPathOf(const std::string& last_segment) {
  const std::string name =
      last_segment.empty() ? "firmware_download.bin" : last_segment;
  return "/tmp/" + name.substr(0, name.find('?'));
}

std::optional<TemporaryImage> Download(const HttpClient& client,
                                       const std::string& image_uri,
                                       const ImagePath& path) {
  const Response answer =
      client.get(image_uri, {}, kImageTimeoutMs, "", "", "");
  if (answer.status_code != 200 || answer.body.empty()) {
    LogError(kUpdate,
             "Download returned HTTP " + std::to_string(answer.status_code));
    return std::nullopt;
  }
  std::optional<TemporaryImage> image = TemporaryImage::Create(path.path);
  if (!image || !image->Write(answer.body)) {
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
  // Another run that holds the lock is about to remove the file.
  if (file_.IsOpen() && TryLock(file_) != Lock::kHeldElsewhere &&
      IsNamed(path_, file_)) {
    static_cast<void>(unlink(path_.c_str()));
  }
}

std::optional<TemporaryImage> TemporaryImage::Create(const std::string& path) {
  std::string owned_path = path;
  if (!RemoveLeftOver(path)) return std::nullopt;
  Descriptor file(open(path.c_str(),
                       O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC,
                       kOwnerOnly));
  if (!file.IsOpen()) return std::nullopt;
  TemporaryImage image(std::move(owned_path), std::move(file));
  // Between the two calls another run may have taken the file for a left-over.
  if (TryLock(image.file_) == Lock::kHeldElsewhere ||
      !IsNamed(path, image.file_)) {
    return std::nullopt;
  }
  return image;
}

bool TemporaryImage::Write(std::string_view image) const {
  if (!WriteAll(file_.get(), image)) return false;
  // Closing tells of a write that failed late; the lock lives on in file_.
  Descriptor copy(fcntl(file_.get(), F_DUPFD_CLOEXEC, 0));
  return copy.IsOpen() && copy.Close();
}

long long TemporaryImage::size() const {
  struct stat found {};
  return fstat(file_.get(), &found) == 0 ? found.st_size : -1;
}

// Another party chose the segment, but it holds no slash, so the file stays in
// the folder.
ImagePath TemporaryPath(const std::string& image_uri) {
  return {.path = TemporaryPathOf(LastSegment(image_uri)),
          .for_log = TemporaryPathOf(LastSegmentForLog(image_uri))};
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
