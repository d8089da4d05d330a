#include "platform/core/files/synchronize.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <filesystem>

Status synchronize_directory(const std::string& path) {
  const int fd = open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (fd < 0) return errno == EACCES ? kStatusOk : static_cast<Status>(errno);
  const int error = fsync(fd) == 0 ? 0 : errno;
  close(fd);
  return error == EINVAL ? kStatusOk : static_cast<Status>(error);
}

Status rename_durably(const std::string& from, const std::string& to) {
  if (std::rename(from.c_str(), to.c_str()) != 0) return static_cast<Status>(errno);
  return synchronize_directory(std::filesystem::path(to).parent_path() / ".");
}
