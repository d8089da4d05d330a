// The descriptors of the event loop, by key. A walk has a wait for each row, so that a wait must be cheap:
// with epoll the kernel receives the descriptors once, not before every wait, and with a timer's descriptor
// the deadline only when it is earlier than the one before.
#pragma once

#include <sys/epoll.h>

#include <array>
#include <cstddef>
#include <cstdint>

namespace agent {

class WatchedDescriptors {
 public:
  static constexpr std::size_t kTimer = 4;  // the key of the deadline; those before it are the caller's
  static constexpr std::size_t kKeys = 5;

  WatchedDescriptors();
  ~WatchedDescriptors();
  WatchedDescriptors(const WatchedDescriptors&) = delete;
  WatchedDescriptors& operator=(const WatchedDescriptors&) = delete;

  // From now on this descriptor (-1: none) has the key, for these events (of epoll). The generation differs
  // when a new descriptor may have the former one's number. With EPOLLET the kernel looks at the descriptor
  // once for each arrival instead of twice, before and after the wait that the arrival ends.
  void watch(std::size_t key, int fd, std::uint32_t events, std::uint32_t generation);
  // The next wait also finds what it has found before, with EPOLLET.
  void ask_again() { has_changed_ = true; }
  // Waits until the deadline (by clock_monotonic(); possibly until an earlier one of before), and at most so
  // many milliseconds (-1: no limit). The events of each key, kTimer's at the deadline; none after an error,
  // which is logged.
  std::array<std::uint32_t, kKeys> wait(std::uint64_t deadline, int milliseconds);

 private:
  void watch_anew();
  void set_timer(std::uint64_t deadline);
  void take_timer();

  struct Watched {
    int fd = -1;
    std::uint32_t events = 0;
    std::uint32_t generation = 0;
    bool operator==(const Watched&) const = default;
  };
  int epoll_;
  int timer_;
  std::uint64_t timer_ends_ = UINT64_MAX;
  bool has_changed_ = false;
  std::array<Watched, kKeys> watched_;
};

}  // namespace agent
