// A device is not opened at all, because that can have an effect. A file that is replaced by one after the
// first check is noticed by the second, and O_NONBLOCK keeps its opening from waiting.
#include "platform/core/files/read_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <utility>

#include "platform/core/base/fault.h"

namespace {

constexpr std::size_t kPiece = 64U << 10;

struct Descriptor {
  explicit Descriptor(const std::string& path)
      : fd(open(path.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC)) {}
  ~Descriptor() {
    if (fd >= 0) close(fd);
  }
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;
  const int fd;
};

const char* kind_of(mode_t mode) {
  switch (mode & S_IFMT) {
    case S_IFDIR:
      return "a directory";
    case S_IFIFO:
      return "a FIFO";
    case S_IFSOCK:
      return "a socket";
    default:
      return "a device";
  }
}

Status system_error(std::string* error) {
  const auto status = static_cast<Status>(errno);
  *error = err_text(status);
  return status;
}

Status require_regular(const struct stat& found, std::string* error) {
  if (S_ISREG(found.st_mode)) return kStatusOk;
  *error = std::string("it is ") + kind_of(found.st_mode) + ", not a regular file";
  return kStatusInvalid;
}

Status read_all(int fd, std::size_t limit, std::string* text, std::string* error) {
  for (;;) {
    const std::size_t known = text->size();
    text->resize(known + std::min(kPiece, limit + 1 - known));
    const ssize_t length = read(fd, text->data() + known, text->size() - known);
    text->resize(known + static_cast<std::size_t>(std::max<ssize_t>(length, 0)));
    if (length < 0 && errno == EINTR) continue;
    if (length < 0) return system_error(error);
    if (length == 0) return kStatusOk;
    if (text->size() > limit) break;
  }
  *error = "it has more than " + std::to_string(limit) + " octets";
  return kStatusMessageTooLarge;
}

}  // namespace

Status read_file(const std::string& path, std::size_t limit, std::string* text, std::string* error) {
  if (const Status status = fault_check("read_file")) {
    *error = err_text(status);
    return status;
  }
  struct stat found {};
  if (stat(path.c_str(), &found) != 0) return system_error(error);
  if (const Status status = require_regular(found, error)) return status;
  const Descriptor file(path);
  if (file.fd < 0 || fstat(file.fd, &found) != 0) return system_error(error);
  if (const Status status = require_regular(found, error)) return status;
  std::string whole;
  const Status status = read_all(file.fd, limit, &whole, error);
  if (status == kStatusOk) *text = std::move(whole);
  return status;
}
