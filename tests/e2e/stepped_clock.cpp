// For tests: preloaded into a program, adds to its wall clock the seconds in the file MPLS_TEST_CLOCK_STEP,
// and to its monotonic clock those in the file MPLS_TEST_MONOTONIC_STEP.
#include <fcntl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <array>
#include <cstdlib>
#include <ctime>

namespace {

time_t step(const char* path) {
  const int fd = path == nullptr ? -1 : open(path, O_RDONLY | O_CLOEXEC);
  if (fd < 0) return 0;
  std::array<char, 32> text{};
  const ssize_t size = read(fd, text.data(), text.size() - 1);
  close(fd);
  return size <= 0 ? 0 : std::strtol(text.data(), nullptr, 10);
}

}  // namespace

extern "C" [[gnu::visibility("default")]] int clock_gettime(clockid_t id, timespec* now) noexcept {
  const long result = syscall(SYS_clock_gettime, id, now);
  static const char* const wall = std::getenv("MPLS_TEST_CLOCK_STEP");
  static const char* const monotonic = std::getenv("MPLS_TEST_MONOTONIC_STEP");
  if (result == 0 && id == CLOCK_REALTIME) now->tv_sec += step(wall);
  if (result == 0 && id == CLOCK_MONOTONIC) now->tv_sec += step(monotonic);
  return static_cast<int>(result);
}
