#include "platform/core/http/endpoint.h"

#include <net/if.h>

#include <utility>

#include "platform/core/base/clock.h"
#include "platform/core/base/log.h"

namespace http {

namespace {

constexpr std::uint64_t kCheckInterval = kRetrySeconds * kNanosecondsPerSecond;

// 0 without a VRF, and if it does not exist.
unsigned device_of(const Place& place) {
  return place.vrf.empty() ? 0 : if_nametoindex(place.vrf.c_str());
}

}  // namespace

Endpoint::Endpoint(EventManager* manager, std::string what, Place place, Page page)
    : manager_(manager), what_(std::move(what)), place_(std::move(place)), page_(std::move(page)) {
  check();
}

Endpoint::~Endpoint() {
  event_timer_cancel(manager_, timer_);
}

void Endpoint::check() {
  if (is_open() && device_of(place_) != device_) {
    log_warning(what_.c_str(), "the VRF %s was deleted or created again", place_.vrf.c_str());
    server_.reset();
  }
  if (!is_open()) open();
  timer_ = event_timer_start(manager_, kCheckInterval, [this] { check(); });
}

void Endpoint::open() {
  device_ = device_of(place_);
  std::string failure;
  const int socket = open_listening_socket(place_, &failure);
  if (socket >= 0) failure = open_server(socket);
  if (failure.empty()) {
    reported_.clear();
    log_notice(what_.c_str(), "%s is served at %s", page_.path.c_str(), describe(place_).c_str());
  } else {
    report(failure);
  }
}

// Empty, or what fails.
std::string Endpoint::open_server(int socket) {
  auto server = std::make_unique<Server>(manager_, socket, page_);
  if (const Status status = server->start()) return err_text(status);
  server_ = std::move(server);
  return {};
}

void Endpoint::report(const std::string& failure) {
  if (std::exchange(reported_, failure) == failure) return;
  log_warning(what_.c_str(), "%s is not served at %s, which is tried again every %u s: %s",
              page_.path.c_str(), describe(place_).c_str(), kRetrySeconds, failure.c_str());
}

}  // namespace http
