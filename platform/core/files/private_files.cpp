#include "platform/core/files/private_files.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <system_error>
#include <utility>

#include "platform/core/base/log.h"
#include "platform/core/files/synchronize.h"

namespace {

constexpr mode_t kPermissions = 0777;

using FileStatus = struct stat;

Status errno_status() {
  return errno == 0 ? kStatusIo : static_cast<Status>(errno);
}

Status check_owner(const std::string& path, uid_t owner) {
  if (owner == 0 || owner == geteuid()) return kStatusOk;
  const std::string own = geteuid() == 0 ? "" : " or to user " + std::to_string(geteuid());
  log_error("files", "%s belongs to user %u: it must belong to root%s; remove it or change its owner",
            path.c_str(), owner, own.c_str());
  return kStatusAccess;
}

// A file of root is refused if this process cannot use it: another user's daemon has left it.
Status check_access(const std::string& path, const FileStatus& file) {
  if (file.st_uid == geteuid() || faccessat(AT_FDCWD, path.c_str(), R_OK | W_OK, AT_EACCESS) == 0)
    return kStatusOk;
  log_error("files", "%s belongs to user %u and user %u may not read and write it: change its owner",
            path.c_str(), file.st_uid, geteuid());
  return kStatusAccess;
}

mode_t without_excess(const FileStatus& status, mode_t mode) {
  return status.st_mode & ~(kPermissions & ~mode) & ~static_cast<mode_t>(S_IFMT);
}

bool has_excess(const FileStatus& status, mode_t mode) {
  return status.st_uid == geteuid() && (status.st_mode & kPermissions & ~mode) != 0;
}

Status set_mode(const std::string& path, mode_t mode) {
  return chmod(path.c_str(), mode) == 0 ? kStatusOk : errno_status();
}

// Permissions to write that has_excess() does not let this process take away.
Status check_writers(const std::string& path, const FileStatus& directory, mode_t mode) {
  if ((directory.st_mode & S_IWOTH) != 0) {
    log_error("files", "everybody may write to %s: check what it contains, then run chmod o-w on it",
              path.c_str());
    return kStatusAccess;
  }
  if (directory.st_uid == geteuid() || (directory.st_mode & S_IWGRP & ~mode) == 0) return kStatusOk;
  log_error("files",
            "group %u may write to %s: check what it contains, then run chmod g-w and chown %u on it",
            directory.st_gid, path.c_str(), geteuid());
  return kStatusAccess;
}

Status check_directory(const std::string& path, const FileStatus& link, const FileStatus& directory,
                       mode_t mode) {
  if (!S_ISDIR(directory.st_mode)) return ENOTDIR;
  if (const Status status = check_owner(path, link.st_uid)) return status;
  if (const Status status = check_owner(path, directory.st_uid)) return status;
  return check_writers(path, directory, mode);
}

Status check_file(const std::string& path, const FileStatus& file) {
  if (S_ISREG(file.st_mode)) return check_owner(path, file.st_uid);
  log_error("files", "%s is not a regular file: remove it", path.c_str());
  return kStatusAccess;
}

Status create_file(const std::string& path) {
  const int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, kPrivateFileMode);
  if (fd < 0) return errno_status();
  close(fd);
  return kStatusOk;
}

// A status for the descriptor's file; 0 if it may be used.
Status secure(const std::string& path, int fd) {
  FileStatus file{};
  if (fstat(fd, &file) != 0) return errno_status();
  if (const Status status = check_file(path, file)) return status;
  if (!has_excess(file, kPrivateFileMode)) return kStatusOk;
  return fchmod(fd, without_excess(file, kPrivateFileMode)) == 0 ? kStatusOk : errno_status();
}

Status restrict_file(const std::string& path, mode_t mode) {
  FileStatus file{};
  if (lstat(path.c_str(), &file) != 0) return errno == ENOENT ? kStatusOk : errno_status();
  if (!S_ISREG(file.st_mode) || !has_excess(file, mode)) return kStatusOk;
  const Status status = set_mode(path, without_excess(file, mode));
  return status == ENOENT ? kStatusOk : status;  // removed meanwhile
}

// A new directory has the mode whatever the umask is, and is found again after a power cut.
Status finish_directory(const std::string& path, mode_t mode) {
  if (const Status status = set_mode(path, mode)) return status;
  return synchronize_directory(path + "/..");
}

}  // namespace

Status prepare_directory(const std::string& path, mode_t mode) {
  if (mkdir(path.c_str(), mode) == 0) return finish_directory(path, mode);
  if (errno != EEXIST) return errno_status();
  FileStatus link{};
  FileStatus directory{};
  if (lstat(path.c_str(), &link) != 0 || stat(path.c_str(), &directory) != 0) return errno_status();
  if (const Status status = check_directory(path, link, directory, mode)) return status;
  return has_excess(directory, mode) ? set_mode(path, without_excess(directory, mode)) : kStatusOk;
}

Status restrict_files(const std::string& directory, mode_t mode) {
  namespace fs = std::filesystem;
  std::error_code failure;
  fs::recursive_directory_iterator entry(directory, fs::directory_options::skip_permission_denied, failure);
  for (; !failure && entry != fs::end(entry); entry.increment(failure)) {
    if (const Status status = restrict_file(entry->path(), mode)) return status;
  }
  return static_cast<Status>(failure.value());
}

Status prepare_private_file(const std::string& path) {
  FileStatus file{};
  if (lstat(path.c_str(), &file) != 0) return errno == ENOENT ? create_file(path) : errno_status();
  if (const Status status = check_file(path, file)) return status;
  if (const Status status = check_access(path, file)) return status;
  return has_excess(file, kPrivateFileMode) ? set_mode(path, without_excess(file, kPrivateFileMode))
                                            : kStatusOk;
}

int open_private_file(const std::string& path, int flags) {
  const int fd =
      open(path.c_str(), flags | O_CREAT | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC, kPrivateFileMode);
  if (fd < 0) return -1;
  const Status status = secure(path, fd);
  if (status == kStatusOk) return fd;
  close(fd);
  errno = static_cast<int>(status);
  return -1;
}
