// A call fails in one of two ways. The connection is lost or its answers cannot be trusted any more: it is
// closed and opened again later, or, after a time-out, at once. Or the daemon refused (a row that does not
// exist, a path that it does not serve yet): the connection remains.
#include "agent/daemon_source.h"

#include <utility>

#include "platform/core/base/log.h"

namespace agent {

namespace {

constexpr const char* kShortAnswer = "/oper/mpls_vpn/gl/scalars";

}  // namespace

DaemonSource::DaemonSource(std::string socket_path, DaemonLimits limits)
    : socket_path_(std::move(socket_path)), limits_(limits), client_(socket_path_, limits.call_timeout) {
  begin_request();
}

void DaemonSource::begin_request() {
  budget_ends_ = clock_monotonic() + limits_.request_budget_ns;
}

kvtree::GetResult DaemonSource::get(std::string_view path) {
  kvtree::GetResult result;
  if ((result.status = prepare()) != kStatusOk) return result;
  result = client_.get(path);
  note(result.status);
  return result;
}

kvtree::WalkResult DaemonSource::walk(std::string_view path, std::uint32_t max_rows) {
  kvtree::WalkResult result;
  if ((result.status = prepare()) != kStatusOk) return result;
  result = client_.walk(path, max_rows);
  note(result.status);
  return result;
}

Status DaemonSource::prepare() {
  const bool is_spent = clock_monotonic() >= budget_ends_;
  if (!is_spent) step();
  if (is_silent_) return kStatusTimedOut;
  if (!client_.connected()) return kStatusNotConnected;
  return is_spent ? kStatusTimedOut : kStatusOk;
}

void DaemonSource::note(Status status) {
  if (!client_.connected()) {
    lose(status);
    return;
  }
  if (status != kStatusOk) return;
  had_data_ = true;
  if (announced_away_) log_notice("", "daemon at %s: answers again", socket_path_.c_str());
  announced_away_ = false;
}

void DaemonSource::probe(std::string_view path) {
  if (had_data_ || clock_monotonic() < retry_at_) return;
  begin_request();
  const Status status = get(path).status;
  // The daemon answers but does not serve the path yet.
  if (status != kStatusOk && client_.connected()) retry_at_ = clock_monotonic() + limits_.retry_ns;
}

void DaemonSource::handle_readable() {
  const Status status = is_silent_ ? client_.end_get() : kStatusNotConnected;
  if (!is_silent_) client_.close();
  if (client_.connected()) is_silent_ = false;
  note(status);
}

void DaemonSource::step() {
  if (client_.connected() || clock_monotonic() < retry_at_) return;
  Status status = client_.connect();
  if (status == kStatusOk && is_silent_) status = client_.begin_get(kShortAnswer);
  if (status == kStatusOk) return;
  client_.close();
  lose(status);
  retry_at_ = clock_monotonic() + (is_silent_ ? limits_.silence_ns : limits_.retry_ns);
}

std::uint64_t DaemonSource::deadline() const {
  return client_.connected() && had_data_ ? UINT64_MAX : retry_at_;
}

void DaemonSource::lose(Status status) {
  is_silent_ = status == kStatusTimedOut;
  retry_at_ = clock_monotonic() + (is_silent_ ? 0 : limits_.retry_ns);
  if (announced_away_) return;
  announced_away_ = true;
  log_warning("", "daemon at %s: away (%s); answering with errors until it is back", socket_path_.c_str(),
              err_text(status));
}

}  // namespace agent
