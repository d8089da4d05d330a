#include "platform/core/files/lock_file.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <thread>

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::chrono::milliseconds kRetry{10};

struct flock whole_file() {
  struct flock lock {};
  lock.l_type = F_WRLCK;
  lock.l_whence = SEEK_SET;
  return lock;
}

pid_t holder_of(int fd) {
  struct flock lock = whole_file();
  return fcntl(fd, F_GETLK, &lock) == 0 && lock.l_type != F_UNLCK && lock.l_pid > 0 ? lock.l_pid : 0;
}

}  // namespace

Status lock_file(int fd, std::chrono::milliseconds patience, pid_t* holder) {
  const Clock::time_point deadline = Clock::now() + patience;
  for (;;) {
    struct flock lock = whole_file();
    if (fcntl(fd, F_SETLK, &lock) == 0) return kStatusOk;
    if (errno != EAGAIN && errno != EACCES && errno != EINTR) return static_cast<Status>(errno);
    *holder = holder_of(fd);
    if (Clock::now() >= deadline) return kStatusTimedOut;
    std::this_thread::sleep_for(kRetry);
  }
}

pid_t find_lock_holder(const char* path) {
  const int fd = open(path, O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC);
  if (fd < 0) return 0;
  const pid_t holder = holder_of(fd);
  close(fd);
  return holder;
}

std::string describe_process(pid_t process) {
  return process == 0 ? "another process" : "process " + std::to_string(process);
}
