#include "platform/router/route_watch/state_file.h"

#include <utility>

#include "platform/core/base/clock.h"
#include "platform/core/base/log.h"
#include "platform/core/files/replace_file.h"

namespace route_watch {
namespace {

constexpr std::uint64_t kWriteInterval = kNanosecondsPerSecond;
constexpr std::uint64_t kRetryInterval = 10 * kNanosecondsPerSecond;

}  // namespace

StateFile::StateFile(std::string path, EventManager* manager, std::function<StoredStates()> states)
    : path_(std::move(path)), manager_(manager), states_(std::move(states)), worker_(manager) {}

StateFile::~StateFile() {
  event_timer_cancel(manager_, timer_);
}

void StateFile::write_soon() {
  is_changed_ = true;
  start_timer(kWriteInterval);
}

void StateFile::write_now() {
  worker_.finish();
  if (!is_changed_) return;
  write();
  worker_.finish();
}

void StateFile::start_timer(std::uint64_t delay) {
  if (timer_ != 0 || worker_.is_busy()) return;
  timer_ = event_timer_start(manager_, delay, [this] {
    timer_ = 0;
    write();
  });
}

void StateFile::write() {
  is_changed_ = false;
  const auto status = std::make_shared<Status>(kStatusOk);
  worker_.run([path = path_, states = states_(),
               status] { *status = replace_file(path, text_of(states), 0600, Survives::kPowerCut); },
              [this, status] { end_write(*status); });
}

void StateFile::end_write(Status status) {
  if (status != kStatusOk) {
    is_changed_ = true;
    if (!std::exchange(fails_, true))
      log_warning("route watch",
                  "%s cannot be written, so what is lost while the daemon is down is not logged: %s",
                  path_.c_str(), err_text(status));
    return start_timer(kRetryInterval);
  }
  if (std::exchange(fails_, false)) log_notice("route watch", "%s is written again", path_.c_str());
  if (is_changed_) start_timer(kWriteInterval);
}

}  // namespace route_watch
