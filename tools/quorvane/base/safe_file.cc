// SPDX-License-Identifier: Apache-2.0
#include "tools/quorvane/base/safe_file.h"

#include <fcntl.h>
#include <fmt/core.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <optional>
#include <system_error>

#include "tools/quorvane/base/error.h"
#include "tools/quorvane/base/text.h"

namespace quorvane::tool {
namespace {

namespace fs = std::filesystem;

constexpr mode_t kOthersWrite = S_IWGRP | S_IWOTH;

std::string SystemReason() { return std::generic_category().message(errno); }

[[noreturn]] void Reject(const std::string& failure, const std::string& reason,
                         const std::string& remedy) {
  throw ToolError(ExitCode::kUsage,
                  fmt::format("{}: {}. {}", failure, reason, remedy));
}

bool IsOwn(const struct stat& found) {
  return found.st_uid == geteuid() || found.st_uid == 0;
}

bool IsNullDevice(const struct stat& found) {
  constexpr unsigned kMemoryDevices = 1;  // null(4)
  constexpr unsigned kNull = 3;
  return S_ISCHR(found.st_mode) && major(found.st_rdev) == kMemoryDevices &&
         minor(found.st_rdev) == kNull;
}

void RequireOwnRegular(const struct stat& found, const std::string& failure) {
  if (!S_ISREG(found.st_mode)) {
    Reject(failure, "it is not a regular file",
           "Use a regular file of your own.");
  }
  if (!IsOwn(found)) {
    Reject(failure, "it belongs to another user",
           "Use a regular file of your own.");
  }
}

void RequireOwnUnshared(const struct stat& found, const std::string& path,
                        const std::string& failure) {
  RequireOwnRegular(found, failure);
  if ((found.st_mode & kOthersWrite) != 0) {
    Reject(failure, "other users can write to it",
           "Run `chmod go-w " + path + "`.");
  }
}

struct stat StatOfDirectory(const fs::path& directory,
                            const std::string& failure) {
  struct stat found {};
  if (stat(directory.c_str(), &found) != 0) {
    Reject(failure, directory.string() + ": " + SystemReason(),
           "Use an existing directory.");
  }
  return found;
}

// With the sticky bit, other users cannot replace files.
void RequireNoWriters(const fs::path& directory, mode_t writers,
                      const std::string& failure) {
  const struct stat found = StatOfDirectory(directory, failure);
  if ((found.st_mode & writers) != 0 && (found.st_mode & S_ISVTX) == 0) {
    Reject(
        failure,
        "other users can replace files in the directory " + directory.string(),
        "Use another directory, or run `chmod go-w " + directory.string() +
            "`.");
  }
}

// `directory` and each directory above it.
void RequireOwnDirectories(fs::path directory, const std::string& failure) {
  while (true) {
    if (!IsOwn(StatOfDirectory(directory, failure))) {
      Reject(failure,
             "the directory " + directory.string() + " belongs to another user",
             "Use a directory of your own.");
    }
    RequireNoWriters(directory, kOthersWrite, failure);
    if (directory == directory.root_path()) return;
    directory = directory.parent_path();
  }
}

std::string CannotWrite(const std::string& path) {
  return "Cannot write " + path;
}

constexpr const char* kStandardOutput = "/dev/stdout";

fs::path DirectoryOf(const std::string& path) {
  const fs::path directory = fs::path(path).parent_path();
  return directory.empty() ? fs::path(".") : directory;
}

// The current state of `path`; nothing if it does not exist.
std::optional<struct stat> DocumentAt(const std::string& path) {
  struct stat found {};
  if (lstat(path.c_str(), &found) != 0) {
    if (errno == ENOENT && !fs::path(path).filename().empty()) {
      return std::nullopt;
    }
    Reject(CannotWrite(path), SystemReason(), "Use a file of your own.");
  }
  if (S_ISLNK(found.st_mode)) {
    Reject(CannotWrite(path), "it is a symbolic link", "Use the file itself.");
  }
  if (!IsNullDevice(found)) RequireOwnRegular(found, CannotWrite(path));
  return found;
}

// A new file in the same directory that replaces the document when complete.
class Replacement {
 public:
  explicit Replacement(const std::string& path)
      : path_(path), name_(path + ".XXXXXX") {
    file_ = Descriptor(mkostemp(name_.data(), O_CLOEXEC));
    if (!file_.IsOpen()) Fail();
  }
  ~Replacement() {
    if (!name_.empty()) unlink(name_.c_str());
  }
  Replacement(const Replacement&) = delete;
  Replacement& operator=(const Replacement&) = delete;

  void ReplaceWith(std::string_view text, mode_t mode, bool is_synced) {
    if (!WriteAll(file_.get(), text) ||
        (is_synced && fsync(file_.get()) != 0) ||
        fchmod(file_.get(), mode) != 0 ||
        rename(name_.c_str(), path_.c_str()) != 0) {
      Fail();
    }
    name_.clear();
  }

 private:
  [[noreturn]] void Fail() const {
    Reject(CannotWrite(path_), SystemReason(),
           "Use a file in a directory that you can write to.");
  }

  std::string path_;
  std::string name_;
  Descriptor file_;
};

mode_t ModeOfNewFiles(const DocumentOptions& options) {
  constexpr mode_t kReadWriteForAll = 0666;
  constexpr mode_t kReadForAll = 0644;
  if (options.is_for_services) return kReadForAll;
  const mode_t mask = umask(0);
  umask(mask);
  return kReadWriteForAll & ~mask;
}

constexpr const char* kPrivateDirectory = "quorvane-run-";

Descriptor LockDirectory(const std::string& path) {
  Descriptor directory(
      open(path.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
  if (directory.IsOpen() && flock(directory.get(), LOCK_EX | LOCK_NB) != 0) {
    directory.Close();
  }
  return directory;
}

// Directories of processes that ended without removing them. One that is new
// may not be locked yet.
void RemoveLeftovers(const std::string& parent) {
  constexpr time_t kNewSeconds = 60;
  std::error_code unreadable;
  for (const auto& entry : fs::directory_iterator(parent, unreadable)) {
    const std::string path = entry.path().string();
    if (entry.path().filename().string().rfind(kPrivateDirectory, 0) != 0) {
      continue;
    }
    struct stat found {};
    const Descriptor lock = LockDirectory(path);
    if (!lock.IsOpen() || fstat(lock.get(), &found) != 0 ||
        found.st_uid != geteuid() ||
        found.st_mtime > time(nullptr) - kNewSeconds) {
      continue;
    }
    std::error_code unused;  // the next process tries again
    fs::remove_all(path, unused);
  }
}

}  // namespace

std::string FirstLineOf(const std::string& path, const std::string& what) {
  const std::string failure =
      fmt::format("Cannot use the {} file {}", what, path);
  const Descriptor file(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
  struct stat found {};
  if (!file.IsOpen() || fstat(file.get(), &found) != 0) {
    Reject(failure, SystemReason(), "Check its name and mode.");
  }
  RequireOwnUnshared(found, path, failure);
  if ((found.st_mode & (S_IRGRP | S_IROTH)) != 0) {
    fmt::print(stderr,
               "quorvane: Other users can read the {} file {}. Run `chmod 600 "
               "{}`.\n",
               what, Printable(path), Printable(path));
  }
  constexpr std::size_t kMaxBytes = 65536;
  std::string line;
  std::array<char, 4096> chunk{};
  while (line.find('\n') == std::string::npos && line.size() < kMaxBytes) {
    const ssize_t count = read(file.get(), chunk.data(), chunk.size());
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) Reject(failure, SystemReason(), "Check the file.");
    if (count == 0) break;
    line.append(chunk.data(), static_cast<std::size_t>(count));
  }
  return line.substr(0, line.find('\n'));
}

void RequireTrusted(const std::string& path, const std::string& what) {
  const std::string failure =
      fmt::format("Cannot use the {} file {}", what, path);
  std::error_code unresolved;
  const fs::path file = fs::canonical(path, unresolved);
  struct stat found {};
  if (unresolved || stat(file.c_str(), &found) != 0) return;
  RequireOwnUnshared(found, path, failure);
  RequireOwnDirectories(file.parent_path(), failure);
}

Descriptor OpenForAppending(const std::string& path) {
  constexpr int kFlags = O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC |
                         O_NOFOLLOW | O_NONBLOCK | O_NOCTTY;
  const std::string failure = "Cannot write the log " + path;
  Descriptor file(open(path.c_str(), kFlags, S_IRUSR | S_IWUSR));
  if (!file.IsOpen()) {
    if (errno == ELOOP) {
      Reject(failure, "it is a symbolic link", "Use the file itself.");
    }
    if (errno == ENXIO) {  // a FIFO that has no reader
      Reject(failure, "it is not a regular file",
             "Use a regular file of your own.");
    }
    return file;
  }
  struct stat found {};
  if (fstat(file.get(), &found) != 0) return {};
  if (!IsNullDevice(found)) RequireOwnUnshared(found, path, failure);
  return file;
}

void CheckDocumentPath(const std::string& path) {
  if (path == kStandardOutput) return;
  if (const auto found = DocumentAt(path); found && IsNullDevice(*found)) {
    return;
  }
  const fs::path directory = DirectoryOf(path);
  if (access(directory.c_str(), W_OK | X_OK) != 0) {
    Reject(CannotWrite(path), SystemReason(),
           "Use a file in a directory that you can write to.");
  }
  RequireNoWriters(directory, S_IWOTH, CannotWrite(path));
}

// The file itself is replaced by each change, so its directory has the lock.
Descriptor LockDocument(const std::string& path) {
  Descriptor directory(
      open(DirectoryOf(path).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (!directory.IsOpen() || flock(directory.get(), LOCK_EX) != 0) {
    Reject(CannotWrite(path), SystemReason(),
           "Use a file in a directory of your own.");
  }
  return directory;
}

void WriteDocument(const std::string& path, std::string_view text,
                   const DocumentOptions& options) {
  if (path == kStandardOutput) {
    fmt::print("{}", EscapedJson(text));
    if (std::fflush(stdout) == 0) return;
    Reject(CannotWrite(path), SystemReason(),
           "Free some space, or use a file.");
  }
  CheckDocumentPath(path);
  const auto found = DocumentAt(path);
  if (found && IsNullDevice(*found)) return;
  constexpr mode_t kPermissions = 0777;
  Replacement(path).ReplaceWith(
      text, found ? found->st_mode & kPermissions : ModeOfNewFiles(options),
      options.is_synced);
}

void MakeDocumentDirectory(const std::string& path) {
  constexpr mode_t kForAll = 0777;  // minus the umask
  const std::string failure = "Cannot create the directory " + path;
  struct stat found {};
  if (mkdir(path.c_str(), kForAll) == 0) return;
  if (errno != EEXIST || lstat(path.c_str(), &found) != 0) {
    Reject(failure, SystemReason(), "Use a directory that you can write to.");
  }
  if (!S_ISDIR(found.st_mode) || !IsOwn(found) ||
      (found.st_mode & S_IWOTH) != 0) {
    Reject(failure,
           "what has this name is not a directory of your own, or every user "
           "can write to it",
           "Remove it, or use another name.");
  }
}

std::string TemporaryDirectory() {
  std::error_code unknown;
  fs::path directory = fs::temp_directory_path(unknown);
  if (unknown) directory = "/tmp";
  const std::string failure =
      "Cannot use " + directory.string() + " for temporary files";
  const fs::path resolved = fs::canonical(directory, unknown);
  if (unknown) {
    Reject(failure, unknown.message(),
           "Set TMPDIR to a directory of your own.");
  }
  RequireOwnDirectories(resolved, failure);
  return directory.string();
}

PrivateDirectory::PrivateDirectory()
    : path_((fs::path(TemporaryDirectory()) / kPrivateDirectory).string() +
            "XXXXXX") {
  RemoveLeftovers(DirectoryOf(path_).string());
  if (mkdtemp(path_.data()) == nullptr) {
    Reject(
        "Cannot create a private directory in " + DirectoryOf(path_).string(),
        SystemReason(), "Set TMPDIR to a directory that you can write to.");
  }
  lock_ = LockDirectory(path_);
}

PrivateDirectory::~PrivateDirectory() {
  std::error_code unused;  // a directory that stays contains no secret
  fs::remove_all(path_, unused);
}

}  // namespace quorvane::tool
