// A closed descriptor leaves the kernel's set only if no other process has it, and its number may already be
// another key's: after changes, which are rare, all are watched anew.
#include "agent/watched_descriptors.h"

#include <sys/timerfd.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <stdexcept>
#include <string>
#include <utility>

#include "platform/core/base/clock.h"
#include "platform/core/base/log.h"

namespace agent {
namespace {

constexpr char kProgram[] = "mpls_vpn_snmp";

int opened(int fd, const char* function) {
  if (fd < 0) throw std::runtime_error(std::string(function) + ": " + std::strerror(errno));
  return fd;
}

}  // namespace

WatchedDescriptors::WatchedDescriptors()
    : epoll_(opened(epoll_create1(EPOLL_CLOEXEC), "epoll_create1")),
      timer_(opened(timerfd_create(CLOCK_MONOTONIC, TFD_NONBLOCK | TFD_CLOEXEC), "timerfd_create")) {
  watch(kTimer, timer_, EPOLLIN, 0);
}

WatchedDescriptors::~WatchedDescriptors() {
  close(timer_);
  close(epoll_);
}

void WatchedDescriptors::watch(std::size_t key, int fd, std::uint32_t events, std::uint32_t generation) {
  const Watched now{fd, events, generation};
  if (std::exchange(watched_[key], now) != now) has_changed_ = true;
}

void WatchedDescriptors::watch_anew() {
  close(epoll_);
  epoll_ = opened(epoll_create1(EPOLL_CLOEXEC), "epoll_create1");
  for (std::size_t key = 0; key < kKeys; ++key) {
    if (watched_[key].fd < 0) continue;
    epoll_event event{};
    event.events = watched_[key].events;
    event.data.u64 = key;
    if (epoll_ctl(epoll_, EPOLL_CTL_ADD, watched_[key].fd, &event) != 0)
      log_error(kProgram, "epoll_ctl: %s", std::strerror(errno));
  }
}

void WatchedDescriptors::set_timer(std::uint64_t deadline) {
  timer_ends_ = deadline;
  const std::uint64_t now = clock_monotonic();
  const std::uint64_t ns = deadline > now ? deadline - now : 1;  // 0 would stop it
  itimerspec value{};
  value.it_value.tv_sec = static_cast<time_t>(ns / kNanosecondsPerSecond);
  value.it_value.tv_nsec = static_cast<long>(ns % kNanosecondsPerSecond);
  if (timerfd_settime(timer_, 0, &value, nullptr) != 0)
    log_error(kProgram, "timerfd_settime: %s", std::strerror(errno));
}

std::array<std::uint32_t, WatchedDescriptors::kKeys> WatchedDescriptors::wait(std::uint64_t deadline,
                                                                              int milliseconds) {
  if (std::exchange(has_changed_, false)) watch_anew();
  if (deadline < timer_ends_) set_timer(deadline);
  std::array<epoll_event, kKeys> events;
  const int count = epoll_wait(epoll_, events.data(), static_cast<int>(events.size()), milliseconds);
  if (count < 0 && errno != EINTR) log_error(kProgram, "epoll_wait: %s", std::strerror(errno));
  std::array<std::uint32_t, kKeys> found{};
  for (int i = 0; i < count; ++i) {
    const epoll_event& event = events[static_cast<std::size_t>(i)];
    found[event.data.u64] = event.events;
  }
  if (found[kTimer] != 0) take_timer();
  return found;
}

// Reading clears the expiration, or the next wait would end at once.
void WatchedDescriptors::take_timer() {
  std::uint64_t expirations = 0;
  if (read(timer_, &expirations, sizeof expirations) < 0 && errno != EAGAIN)
    log_error(kProgram, "timerfd: %s", std::strerror(errno));
  timer_ends_ = UINT64_MAX;
}

}  // namespace agent
