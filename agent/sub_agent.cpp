// Registration waits for the first record from the daemon: a manager that finds an empty table concludes that
// there are no VRFs. From then on the subtree stays registered. After a restart of the master agent it is
// registered again at once, with or without the daemon: a manager that gets an error asks again, one that
// finds no subtree concludes that the objects do not exist.
#include "agent/sub_agent.h"

#include <poll.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>

#include "agent/tables/l3vpn_tables.h"
#include "platform/core/base/log.h"

namespace agent {
namespace {

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
      responder_(mib_),
      session_(
          session_options(options),
          [this](const agentx::Header& request, agentx::Bytes payload, agentx::Writer* writer) {
            answer(request, payload, writer);
          },
          [this](std::uint32_t packet, std::uint16_t error) { traps_.take_answer(packet, error); }),
      traps_(options.daemon_socket, options.daemon_limits, session_) {}

void SubAgent::answer(const agentx::Header& request, agentx::Bytes payload, agentx::Writer* writer) {
  daemon_.begin_request();
  mib_.set_up_time_zero(session_.up_time_zero());
  const std::size_t begin = writer->position();
  responder_.answer(request, payload, writer);
  if (!verbose_) return;
  log_info("", "request %u type %u: %zu octets, answer %zu octets", request.packet,
           static_cast<unsigned>(request.type), payload.size(), writer->position() - begin);
}

void SubAgent::step() {
  daemon_.probe(kFirstRecord);
  if (daemon_.had_data()) session_.allow_registration();
  daemon_.step();
  session_.step();
  traps_.step();
  flood_end_ = log_report_floods();
}

int SubAgent::wait_ms(int max_wait_ms) const {
  const std::uint64_t now = clock_monotonic();
  const std::uint64_t due =
      std::min({daemon_.deadline(), session_.deadline(), traps_.deadline(), flood_end_});
  const std::uint64_t ns = due > now ? due - now : 0;
  constexpr std::uint64_t kLongest = 60'000;
  const std::uint64_t ms =
      std::min((ns + kNanosecondsPerMillisecond - 1) / kNanosecondsPerMillisecond, kLongest);
  const int wait = static_cast<int>(ms);
  return max_wait_ms < 0 ? wait : std::min(wait, max_wait_ms);
}

bool SubAgent::run_once(int wake_fd, int max_wait_ms) {
  step();
  std::array<pollfd, 4> watched = {pollfd{session_.fd(), session_.events(), 0},
                                   pollfd{daemon_.fd(), POLLIN, 0}, pollfd{wake_fd, POLLIN, 0},
                                   pollfd{traps_.fd(), POLLIN, 0}};
  if (poll(watched.data(), watched.size(), wait_ms(max_wait_ms)) < 0) {
    if (errno != EINTR) log_error("mpls_vpn_snmp", "poll: %s", std::strerror(errno));
    return false;
  }
  // The daemon first: a request that arrives at the same time must not be sent into a closed connection.
  if (watched[1].revents != 0) daemon_.handle_readable();
  if (watched[3].revents != 0) traps_.handle_readable();
  if (watched[0].revents != 0) session_.handle(watched[0].revents);
  step();
  return watched[2].revents != 0;
}

}  // namespace agent
