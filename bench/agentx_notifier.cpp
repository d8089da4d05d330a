// A trivial AgentX notifier: opens a session and sends the same VRF-down notification COUNT times, as fast as
// the master agent answers within a window. The floor for traps through the daemon and the sub-agent.
//
//   agentx_notifier SOCKET COUNT WINDOW
#include <cstdlib>

#include "bench/agentx_peer.h"

namespace {

const oid::Oid kTrapOid{1, 3, 6, 1, 6, 3, 1, 1, 4, 1, 0};
const oid::Oid kDown{1, 3, 6, 1, 2, 1, 10, 166, 11, 0, 2};
const oid::Oid kRowStatus{1, 3, 6, 1, 2, 1, 10, 166, 11, 1, 2, 1, 1, 5, 3, 114, 101, 100, 11};
const oid::Oid kOperStatus{1, 3, 6, 1, 2, 1, 10, 166, 11, 1, 2, 2, 1, 6, 3, 114, 101, 100};

void write_notify(agentx::Writer* writer, std::uint32_t session, std::uint32_t packet) {
  agentx::begin_notify(writer, session, packet);
  writer->var_bind(agentx::ValueType::kObjectIdentifier, kTrapOid.view());
  writer->name(kDown.view());
  writer->var_bind(agentx::ValueType::kInteger, kRowStatus.view());
  writer->number32(1);
  writer->var_bind(agentx::ValueType::kInteger, kOperStatus.view());
  writer->number32(2);
  writer->end();
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 4) return EXIT_FAILURE;
  const auto count = static_cast<std::uint32_t>(std::atoi(argv[2]));
  const auto window = static_cast<std::uint32_t>(std::atoi(argv[3]));
  AgentxPeer peer(argv[1], "notifier");
  std::uint32_t sent = 0;
  std::uint32_t answered = 0;
  while (answered < count) {
    while (sent < count && sent - answered < window) write_notify(peer.writer(), peer.session(), 2 + sent++);
    peer.send();
    answered += static_cast<std::uint32_t>(peer.receive().size());
  }
  return EXIT_SUCCESS;
}
