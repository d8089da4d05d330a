// A call fails in one of two ways. The connection is lost or its answers cannot be trusted any more: it is
// closed and opened again later. Or the daemon refused (a row that does not exist, a path that it does not
// serve yet): the connection remains.
#include "agent/daemon_source.h"

#include <utility>

#include "platform/core/base/log.h"

namespace agent {

DaemonSource::DaemonSource(std::string socket_path, DaemonLimits limits)
    : socket_path_(std::move(socket_path)), limits_(limits), client_(socket_path_, limits.call_timeout) {
  begin_request();
}

void DaemonSource::begin_request() {
  budget_ends_ = clock_monotonic() + limits_.request_budget_ns;
}

kvtree::GetResult DaemonSource::get(std::string_view path) {
  kvtree::GetResult result;
  if (!ready()) return result;
  result = client_.get(path);
  note(result.status);
  return result;
}

kvtree::WalkResult DaemonSource::walk(std::string_view path, std::uint32_t max_rows) {
  kvtree::WalkResult result;
  if (!ready()) return result;
  result = client_.walk(path, max_rows);
  note(result.status);
  return result;
}

bool DaemonSource::ready() {
  if (clock_monotonic() >= budget_ends_) return false;
  step();
  return client_.connected();
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
  client_.close();
  lose(kStatusNotConnected);
}

void DaemonSource::step() {
  if (client_.connected() || clock_monotonic() < retry_at_) return;
  const Status status = client_.connect();
  if (status != kStatusOk) {
    client_.close();
    lose(status);
  }
}

std::uint64_t DaemonSource::deadline() const {
  return client_.connected() && had_data_ ? UINT64_MAX : retry_at_;
}

void DaemonSource::lose(Status status) {
  const std::uint64_t pause = status == kStatusTimedOut ? limits_.silence_ns : limits_.retry_ns;
  retry_at_ = clock_monotonic() + pause;
  if (announced_away_) return;
  announced_away_ = true;
  log_warning("", "daemon at %s: away (%s); answering with errors until it is back", socket_path_.c_str(),
              err_text(status));
}

}  // namespace agent
