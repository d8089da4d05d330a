#include "sources/kernel/netlink/listener.h"

#include <sys/epoll.h>

#include <cerrno>
#include <utility>

namespace kernel {

EventListener::EventListener(Client* client, Options options)
    : client_(client), options_(std::move(options)), socket_(options_.faults) {}

Status EventListener::open() {
  const Status status = try_open();
  if (status != kStatusOk) socket_.close();
  return status;
}

Status EventListener::try_open() {
  if (const Status status = socket_.open()) return status;
  if (const Status status = socket_.set_receive_buffer(options_.receive_buffer)) return status;
  for (const int group : options_.groups) {
    if (const Status status = socket_.join(group)) return status;
  }
  return kStatusOk;
}

Status EventListener::watch(EventManager* manager) {
  const Status status = event_fd_add(manager, socket_.fd(), EPOLLIN, [this](int, std::uint32_t) { read(); });
  if (status == kStatusOk) manager_ = manager;
  return status;
}

void EventListener::unwatch() {
  if (manager_ == nullptr) return;
  if (is_open()) event_fd_remove(manager_, socket_.fd());
  if (reopen_timer_ != 0) event_timer_cancel(manager_, std::exchange(reopen_timer_, 0));
  manager_ = nullptr;
}

void EventListener::stop() {
  unwatch();
  socket_.close();
}

void EventListener::read() {
  drained_ = !is_open();
  for (unsigned count = 0; count < options_.batch && !drained_; ++count) {
    std::span<const std::uint8_t> datagram;
    switch (socket_.receive(&datagram)) {
      case Received::kDatagram:
        client_->on_datagram(datagram);
        break;
      case Received::kForeign:
        break;
      case Received::kNothing:
        drained_ = true;
        break;
      case Received::kLost:
        client_->on_events_lost();
        break;
      case Received::kFailed:
        receive_failed(static_cast<Status>(errno));
        break;
    }
  }
  client_->on_batch_end();
}

void EventListener::receive_failed(Status status) {
  event_fd_remove(manager_, socket_.fd());
  socket_.close();
  drained_ = true;
  client_->on_listener_failure(Failure::kReceiving, status);
  reopen_later();
}

void EventListener::reopen_later() {
  reopen_timer_ = event_timer_start(manager_, options_.retry, [this] { reopen(); });
}

void EventListener::reopen() {
  reopen_timer_ = 0;
  Status status = open();
  if (status == kStatusOk) status = watch(manager_);
  if (status == kStatusOk) return client_->on_events_lost();
  socket_.close();
  client_->on_listener_failure(Failure::kListening, status);
  reopen_later();
}

}  // namespace kernel
