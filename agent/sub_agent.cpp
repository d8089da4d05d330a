// Registration waits for the first record from the daemon: a manager that finds an empty table concludes that
// there are no VRFs. From then on the subtree stays registered. After a restart of the master agent it is
// registered again at once, with or without the daemon: a manager that gets an error asks again, one that
// finds no subtree concludes that the objects do not exist.
#include "agent/sub_agent.h"

#include <poll.h>

#include <algorithm>
#include <utility>

#include "agent/notify.h"
#include "agent/tables/l3vpn_tables.h"
#include "platform/core/base/log.h"

namespace agent {
namespace {

static_assert(EPOLLIN == POLLIN && EPOLLOUT == POLLOUT && EPOLLHUP == POLLHUP && EPOLLERR == POLLERR);

enum Key : std::size_t { kSession, kRows, kWake, kTraps };

constexpr std::uint64_t kLastWait = kNanosecondsPerSecond;  // for the master agent's last answers
constexpr int kLastWaitPartMs = 10;

constexpr const char* kFirstRecord = "/oper/mpls_vpn/gl/scalars";

agentx::SessionOptions session_options(const SubAgentOptions& options) {
  agentx::SessionOptions session;
  session.master = options.agentx_socket;
  session.connect = options.connect_master;
  if (!session.connect)
    session.connect = [path = options.agentx_socket] { return agentx::connect_unix(path); };
  session.description = "MPLS-L3VPN-STD-MIB";
  session.subtree = oid::Oid(tables::kL3vpnObjects);
  return session;
}

}  // namespace

SubAgent::SubAgent(const SubAgentOptions& options)
    : verbose_(options.verbose),
      daemon_(options.daemon_socket, options.daemon_limits),
      mib_(tables::l3vpn_tables(), daemon_, options.row_age_ns),
      responder_(mib_, [this] { return daemon_.wait(); }),
      session_(
          session_options(options),
          [this](const agentx::Header& request, agentx::Bytes payload, agentx::Writer* writer) {
            answer(request, payload, writer);
          },
          [this](std::uint32_t packet, std::uint16_t error) {
            traps_.take_answer(packet, error == 0 ? nullptr : agentx::error_text(error).c_str());
          }),
      sink_(session_),
      traps_(options.daemon_socket, options.daemon_limits, sink_) {}

TrapSink::Sent MasterSink::send(const TrapNotification& notification, std::uint32_t* packet) {
  *packet = session_->notify([&](agentx::Writer* writer) { write_notification(notification, writer); });
  return *packet == 0 ? Sent::kNotNow : Sent::kAwaitsAnswer;
}

void SubAgent::answer(const agentx::Header& request, agentx::Bytes payload, agentx::Writer* writer) {
  queries_.note_query();
  daemon_.begin_request();
  mib_.begin_requests(session_.handled_at());
  mib_.set_up_time_zero(session_.up_time_zero());
  const std::size_t begin = writer->position();
  responder_.answer(request, payload, writer);
  if (!verbose_) return;
  log_info("", "request %u type %u: %zu octets, answer %zu octets", request.packet,
           static_cast<unsigned>(request.type), payload.size(), writer->position() - begin);
}

void SubAgent::step() {
  daemon_.step();
  daemon_.probe(kFirstRecord);
  if (daemon_.had_data()) session_.allow_registration();
  session_.step();
  traps_.step();
  queries_.step(session_.registered());
  flood_end_ = log_report_floods();
}

std::uint64_t SubAgent::deadline() const {
  return std::min(
      {daemon_.deadline(), session_.deadline(), traps_.deadline(), queries_.deadline(), flood_end_});
}

bool SubAgent::run_once(int wake_fd, int max_wait_ms) {
  if (!std::exchange(started_, true)) step();  // later ones follow the events
  const auto session_events = static_cast<std::uint32_t>(session_.events()) | EPOLLET;
  watched_.watch(kSession, session_.fd(), session_events, session_.losses());
  if (session_.has_more()) watched_.ask_again();
  watched_.watch(kRows, daemon_.fd(), EPOLLIN, daemon_.connections());
  watched_.watch(kWake, wake_fd, EPOLLIN, 0);
  watched_.watch(kTraps, traps_.fd(), EPOLLIN, traps_.connections());
  const auto events = watched_.wait(deadline(), max_wait_ms);
  // The daemon first: a request that arrives at the same time must not be sent into a closed connection.
  if (events[kRows] != 0) daemon_.handle_readable();
  if (events[kTraps] != 0) traps_.handle_readable();
  // The events of epoll have the numbers of poll().
  if (events[kSession] != 0) session_.handle(static_cast<short>(events[kSession]));
  // A request changes nothing that a step would have to continue; what becomes due ends the next wait.
  const bool only_requests = events[kSession] != 0 && events[kRows] == 0 && events[kTraps] == 0 &&
                             events[WatchedDescriptors::kTimer] == 0;
  if (!only_requests || !session_.registered() || traps_.has_traps()) step();
  return events[kWake] != 0;
}

SubAgent::Condition SubAgent::condition() const {
  if (!daemon_.had_data()) return Condition::kWaitsForDaemon;
  if (!session_.registered()) return Condition::kWaitsForMaster;
  return daemon_.is_away() ? Condition::kLacksDaemon : Condition::kServes;
}

void SubAgent::await_confirmations() {
  sink_.end();
  const std::uint64_t end = clock_monotonic() + kLastWait;
  while (session_.has_unanswered_notifies() && clock_monotonic() < end) run_once(-1, kLastWaitPartMs);
  traps_.finish();
}

void SubAgent::reconnect() {
  await_confirmations();
  session_.reconnect();
  daemon_.reconnect();
  traps_.start_over();
  sink_.resume();
}

void SubAgent::shut_down() {
  await_confirmations();
  session_.shut_down();
}

}  // namespace agent
