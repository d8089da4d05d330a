#include "platform/core/files/replace_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>

#include "platform/core/base/fault.h"
#include "platform/core/files/synchronize.h"

namespace {

Status last_error() {
  return errno == 0 ? kStatusIo : static_cast<Status>(errno);
}

Status write_all(int fd, std::string_view text) {
  while (!text.empty()) {
    const ssize_t count = write(fd, text.data(), text.size());
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) return last_error();
    text.remove_prefix(static_cast<std::size_t>(count));
  }
  return kStatusOk;
}

// What a former process left is removed, and no link is followed: it could name the file of another user.
Status write_new(const std::string& path, std::string_view text, mode_t mode, Survives survives) {
  unlink(path.c_str());
  const int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, mode);
  if (fd < 0) return last_error();
  Status status = fchmod(fd, mode) == 0 ? write_all(fd, text) : last_error();
  if (status == kStatusOk && survives == Survives::kPowerCut && fsync(fd) != 0) status = last_error();
  if (close(fd) != 0 && status == kStatusOk) return last_error();
  return status;
}

Status rename_new(const std::string& beside, const std::string& path, Survives survives) {
  if (survives == Survives::kPowerCut) return rename_durably(beside, path);
  return std::rename(beside.c_str(), path.c_str()) == 0 ? kStatusOk : last_error();
}

}  // namespace

Status write_beside(const std::string& path, std::string_view text, mode_t mode, Survives survives) {
  if (const Status status = fault_check("replace_file")) return status;
  const std::string beside = path_beside(path);
  const Status status = write_new(beside, text, mode, survives);
  if (status != kStatusOk) unlink(beside.c_str());
  return status;
}

Status replace_file(const std::string& path, std::string_view text, mode_t mode, Survives survives) {
  if (const Status status = write_beside(path, text, mode, survives)) return status;
  const std::string beside = path_beside(path);
  const Status status = rename_new(beside, path, survives);
  if (status != kStatusOk) unlink(beside.c_str());
  return status;
}
