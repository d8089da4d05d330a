// Clients of a named socket, on an event manager, and the order in which their messages are handled.
//
// A dispatch of the event manager reads each ready client once. After its descriptors and timers, one slice
// handles messages until the slice's time is used or no message is left; users.h has the order. A client's
// answers leave with one write, as soon as no message of it is left, at the latest at the end of the slice,
// for which there is as much time again. A request that arrives alone therefore costs a wait, a read and a
// write. If messages are left, the next dispatch has the next slice, and no wait blocks before it.
#include <sys/epoll.h>
#include <unistd.h>

#include <algorithm>
#include <string>
#include <utility>

#include "platform/core/base/clock.h"
#include "platform/core/base/log.h"
#include "platform/core/wire/users.h"
#include "platform/core/wire/wire.h"

namespace wire {

namespace {

constexpr std::uint64_t kInputCheckInterval = 100 * kNanosecondsPerMillisecond;
constexpr std::uint64_t kGateTime = 2 * kNanosecondsPerMillisecond;  // of writes when the gate opens

}  // namespace

Server::Server(EventManager* manager, std::string name, Limits limits, MessageHandler on_message,
               CloseHandler on_close)
    : manager_(manager),
      name_(std::move(name)),
      limits_(limits),
      on_message_(std::move(on_message)),
      on_close_(std::move(on_close)),
      users_(std::make_unique<Users>(limits_)) {}

Server::~Server() {
  event_defer_cancel(manager_, this);
  stop();
}

void Server::start() {
  static_cast<void>(peer_role({}));  // asks the name service before the first client waits for it
  accepting_ = true;
  event_set_acceptor(manager_, [this](int fd) { adopt(fd); });
}

void Server::stop() {
  if (accepting_) event_set_acceptor(manager_, nullptr);
  accepting_ = false;
  for (EventTimerId* timer : {&deadline_timer_, &rate_timer_, &input_timer_})
    event_timer_cancel(manager_, std::exchange(*timer, 0));
  while (!clients_.empty()) {
    const std::shared_ptr<Connection> first = clients_.begin()->second;
    first->end(nullptr);
  }
}

void Server::adopt(int fd) {
  adopt(fd, read_peer(fd));
}

void Server::adopt(int fd, Peer peer) {
  const std::uint64_t id = next_id_++;
  const auto connection = std::make_shared<Connection>(this, fd, id, std::move(peer));
  if (!admit(*connection)) return;  // the connection closes its descriptor
  connection->watched_ = Connection::kReadEvents;
  Connection* raw = connection.get();
  const Status status = event_fd_add(manager_, fd, connection->watched_,
                                     [raw](int, std::uint32_t events) { raw->on_event(events); });
  if (status != kStatusOk) {
    log_error(name_.c_str(), "a client cannot be watched: %s", err_text(status));
    return;
  }
  clients_.emplace(id, connection);
  ++connection->user_->connections;
  users_->spend(*connection->user_, limits_.requests_per_connection, clock_monotonic());
}

Connection* Server::find(std::uint64_t id) const {
  const auto found = clients_.find(id);
  return found == clients_.end() ? nullptr : found->second.get();
}

void Server::for_each(const std::function<void(Connection&)>& visit) {
  std::vector<std::shared_ptr<Connection>> all;
  all.reserve(clients_.size());
  for (const auto& [id, connection] : clients_) all.push_back(connection);
  for (const std::shared_ptr<Connection>& connection : all) {
    if (connection->open()) visit(*connection);
  }
}

void Server::enqueue(Connection& connection) {
  users_->wait(connection);
  schedule();
}

void Server::schedule() {
  if (scheduled_) return;
  scheduled_ = true;
  event_defer(
      manager_, [this] { run_slice(); }, this);
}

void Server::run_slice() {
  scheduled_ = false;
  // A client that was read just before, and nothing since, is charged for that, too. Slices are
  // scheduled within a dispatch only (wire.h), so that the step before is of the same iteration.
  const bool is_alone = read_step_.number + 1 == event_step(manager_).number;
  std::uint64_t now = is_alone ? read_step_.began : clock_monotonic();
  const std::uint64_t end = now + limits_.slice;
  for (Connection* client = nullptr; now < end && (client = users_->next(now)) != nullptr;) {
    now = serve(*client, now);
  }
  if (users_->is_idle()) {
    stop_rate_timer();
    return event_ends_at(manager_, now);
  }
  suspend_waiting(now);
  schedule_next(now);
}

// Those that have not had their answers at the end have them as soon as they can be written, in the order in
// which the event manager finds them writable.
void Server::suspend_waiting(std::uint64_t now) {
  bool writes = true;
  const std::uint64_t end = now + limits_.slice;
  for (const std::shared_ptr<Connection>& client : users_->waiting()) {
    client->suspend(writes);
    writes = clock_monotonic() < end;
  }
}

void Server::stop_rate_timer() {
  if (rate_timer_ != 0) event_timer_cancel(manager_, std::exchange(rate_timer_, 0));
}

void Server::schedule_next(std::uint64_t now) {
  if (users_->next(now) != nullptr) return schedule();
  stop_rate_timer();
  const std::uint64_t pause_ends = users_->next_pause_end();
  if (pause_ends <= now) return;
  rate_timer_ = event_timer_start(manager_, pause_ends - now, [this] {
    rate_timer_ = 0;
    schedule();
  });
}

// Returns the time after it.
std::uint64_t Server::serve(Connection& connection, std::uint64_t now) {
  const Connection::Visit visit(&connection);
  now_ = now;
  connection.serve();
  const std::uint64_t after = clock_monotonic();
  users_->charge(connection, after - now);
  connection.active_ = after;
  connection.counter_.add_time(after - now);
  if (connection.repeats_) return after;
  users_->spend(*connection.user_, 1, after);
  connection.counter_.count(after);
  note_answer(connection, after);
  return after;
}

// A client that is held has its answer later.
void Server::note_answer(Connection& connection, std::uint64_t now) const {
  if (connection.held_ || !connection.open() || !std::exchange(connection.is_unanswered_, false)) return;
  if (on_answer_) on_answer_(connection.type_, now - connection.began_);
}

// A client has begun to wait for the rest of a message.
void Server::watch_deadlines() {
  if (deadline_timer_ == 0) start_deadline_timer(clock_monotonic() + limits_.message_deadline);
}

void Server::start_deadline_timer(std::uint64_t when) {
  const std::uint64_t now = clock_monotonic();
  deadline_timer_ = event_timer_start(manager_, when - std::min(when, now), [this] { check_deadlines(); });
}

void Server::check_deadlines() {
  deadline_timer_ = 0;
  const std::uint64_t now = clock_monotonic();
  std::uint64_t next = UINT64_MAX;
  for_each([&](Connection& client) {
    if (client.incomplete_since_ == 0) return;
    const std::uint64_t deadline = client.incomplete_since_ + limits_.message_deadline;
    if (deadline > now) {
      next = std::min(next, deadline);
    } else {
      const std::uint64_t seconds = limits_.message_deadline / kNanosecondsPerSecond;
      client.close(("it did not complete a message within " + std::to_string(seconds) + " seconds").c_str());
    }
  });
  if (next != UINT64_MAX) start_deadline_timer(next);
}

void Server::check_inputs_later() {
  if (input_timer_ != 0) return;
  input_timer_ = event_timer_start(manager_, kInputCheckInterval, [this] {
    input_timer_ = 0;
    for_each([](Connection& client) { client.check_input(); });
  });
}

void Server::forget(Connection& connection, const char* reason) {
  users_->leave(connection);
  if (reason != nullptr) {
    log_info(name_.c_str(), "client %llu closed: %s", static_cast<unsigned long long>(connection.id()),
             reason);
  }
  const auto client = clients_.extract(connection.id());
  if (connection.visits_ > 0 && !client.empty()) ended_.push_back(client.mapped());
  --connection.user_->connections;
  if (on_close_) on_close_(connection);
}

// Those that find no time now write when the event manager finds them writable.
void open_output_gate(std::uint64_t number) {
  OutputGate& gate = output_gate();
  gate.opened = std::max(gate.opened, number);
  const std::uint64_t end = clock_monotonic() + kGateTime;
  bool writes = true;
  for (const std::weak_ptr<Connection>& each : std::exchange(gate.waiting, {})) {
    const std::shared_ptr<Connection> client = each.lock();
    if (client == nullptr) continue;
    client->leave_gate(writes);
    writes = clock_monotonic() < end;
  }
}

void set_output_gate(std::function<std::uint64_t()> next_number) {
  output_gate().next_number = std::move(next_number);
  output_gate().opened = 0;
  if (output_gate().next_number == nullptr) open_output_gate(UINT64_MAX);
}

}  // namespace wire
