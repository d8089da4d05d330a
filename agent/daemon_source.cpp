// A batch fails in one of two ways. The connection is lost or its answers cannot be trusted any more: it is
// closed and opened again later, or, after a time-out, at once. Or the daemon refused (a row that does not
// exist, a path that it does not serve yet): the connection remains.
#include "agent/daemon_source.h"

#include <poll.h>

#include <algorithm>
#include <new>
#include <utility>

#include "platform/core/base/fault.h"
#include "platform/core/base/log.h"

namespace agent {
namespace {

constexpr std::uint64_t kNanosecondsPerRound = 1'000'000;
constexpr const char* kShortAnswer = "/oper/mpls_vpn/gl/scalars";

}  // namespace

DaemonSource::DaemonSource(std::string socket_path, DaemonLimits limits, const AccessAdvice& access)
    : socket_path_(std::move(socket_path)), limits_(limits), access_(access), client_(socket_path_) {}

void DaemonSource::read(const tables::BatchRequest& request, Done done) {
  step();
  if (is_silent_) return done({kStatusTimedOut, false, 0, {}});
  if (!client_.connected()) return done({});
  const auto timeout = static_cast<std::uint64_t>(limits_.call_timeout.count()) * kNanosecondsPerMillisecond;
  const std::uint64_t now = clock_monotonic();
  start_budget(now);
  calls_.push_back({now + timeout, std::move(done)});
  if (fault_check("daemon_source_ask") != kStatusOk) throw std::bad_alloc();
  const Status status = client_.ask_columns(request.path, request.max_rows, request.columns);
  if (status != kStatusOk) lose(status);
}

void DaemonSource::start_budget(std::uint64_t now) {
  if (budget_ends_ == UINT64_MAX) budget_ends_ = now + limits_.request_budget_ns;
}

bool DaemonSource::wait() {
  if (calls_.empty()) return false;
  const std::uint64_t now = clock_monotonic();
  start_budget(now);
  if (now >= budget_ends_) return false;
  const std::uint64_t overdue_at = calls_.front().overdue_at;
  const std::uint64_t due = std::min(overdue_at, budget_ends_);
  const std::uint64_t ns = due > now ? due - now : 0;
  pollfd readable{client_.fd(), POLLIN, 0};
  const auto ms = static_cast<int>((ns + kNanosecondsPerRound - 1) / kNanosecondsPerRound);
  const int ready = poll(&readable, 1, ms);
  if (ready > 0) handle_readable();
  if (ready == 0 && due < overdue_at) return false;
  if (ready == 0) lose(kStatusTimedOut);
  return true;
}

void DaemonSource::handle_readable() {
  while (client_.connected()) {
    kvtree::AsyncClient::Arrival arrival;
    Status status = client_.receive(&arrival);
    if (status == kStatusOk && arrival.what == kvtree::AsyncClient::Arrived::kNothing) return;
    const bool is_expected = !calls_.empty() && arrival.what == kvtree::AsyncClient::Arrived::kBatch;
    if (status == kStatusOk && !is_expected) status = kStatusBadMessage;
    if (status != kStatusOk) return lose(status);
    take(arrival.columns);
  }
}

void DaemonSource::take(const kvtree::ColumnsResult& result) {
  const Call call = std::move(calls_.front());
  calls_.pop_front();
  is_silent_ = false;
  note(result.status);
  call.done(result);
}

void DaemonSource::note(Status status) {
  if (status != kStatusOk) return;
  had_data_ = true;
  if (announced_away_) log_notice("", "daemon at %s: answers again", socket_path_.c_str());
  announced_away_ = false;
  denied_since_ = 0;
  announced_denial_ = false;
}

void DaemonSource::probe(const std::string& path) {
  if (!needs_probe() || probing_ || clock_monotonic() < retry_at_) return;
  probing_ = true;
  read({path, 1, {}}, [this](const kvtree::ColumnsResult& result) {
    probing_ = false;
    // The daemon answers but does not serve the path yet.
    if (result.status != kStatusOk) retry_at_ = std::max(retry_at_, clock_monotonic() + limits_.retry_ns);
  });
}

void DaemonSource::step() {
  const std::uint64_t now = clock_monotonic();
  if (!calls_.empty() && now >= calls_.front().overdue_at) lose(kStatusTimedOut);
  if (client_.connected() || now < retry_at_) return;
  ++connections_;
  Status status = client_.connect();
  if (status == kStatusOk && is_silent_) status = await_answer();
  if (status == kStatusOk) return;
  const bool was_silent = is_silent_;
  lose(status);
  if (is_silent_ || was_silent) retry_at_ = now + limits_.silence_ns;
}

// Asks for something short and waits for the answer as long as the connection exists.
Status DaemonSource::await_answer() {
  calls_.push_back({UINT64_MAX, [](const kvtree::ColumnsResult&) {}});
  return client_.ask_columns(kShortAnswer, 1, {});
}

std::uint64_t DaemonSource::deadline() const {
  if (!calls_.empty()) return calls_.front().overdue_at;
  return client_.connected() && !needs_probe() ? UINT64_MAX : retry_at_;
}

void DaemonSource::drop(Status status) {
  client_.close();
  is_silent_ = status == kStatusTimedOut;
  retry_at_ = clock_monotonic() + (is_silent_ ? 0 : limits_.retry_ns);
  while (!calls_.empty()) {
    const Call call = std::move(calls_.front());
    calls_.pop_front();
    call.done({status, false, 0, {}});
  }
}

void DaemonSource::lose(Status status) {
  drop(status);
  report(status);
}

void DaemonSource::reconnect() {
  drop(kStatusNotConnected);
  retry_at_ = 0;
}

void DaemonSource::report(Status status) {
  if (status == kStatusAccess) {
    const std::uint64_t now = clock_monotonic();
    if (denied_since_ == 0) denied_since_ = now;
    if (announced_denial_ || now - denied_since_ < limits_.denial_ns) return;
    announced_denial_ = true;
    announced_away_ = true;
    log_error("", "this process may not connect to the daemon at %s; %s", socket_path_.c_str(),
              access_.connect);
    return;
  }
  denied_since_ = 0;
  announced_denial_ = false;
  if (announced_away_) return;
  announced_away_ = true;
  log_warning("", "daemon at %s: away (%s); answering with errors until it is back", socket_path_.c_str(),
              err_text(status));
}

void DaemonSource::start_over() {
  probing_ = false;  // of a probe that failed before it was under way
  lose(kStatusNoMemory);
}

}  // namespace agent
