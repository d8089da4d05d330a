// Fuzz target: octets from a master agent's socket, through the codec, the session and the responder.
//
// The input is what a master writes after the session is open. Every response must be AgentX that the codec
// reads, must not name an object before the requested one, and must end where the next PDU starts; otherwise
// the target aborts. The tables read from a source with a few rows: interfaces and one route, no VRFs and no
// route targets.
#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "agent/agentx/pdu.h"
#include "agent/agentx/session.h"
#include "agent/responder.h"
#include "agent/tables/l3vpn_tables.h"
#include "agent/tables/mib.h"
#include "agent/tables/tables_test_support.h"
#include "fuzz/support.h"
#include "platform/core/base/clock.h"

namespace {

using fuzz::require;

constexpr std::uint32_t kRows = 200;

// The rows RED.1 to RED.200, and 10.0.0.0/8 in RED.
agent_test::FakeDaemon& rows() {
  static agent_test::FakeDaemon& daemon = *[] {
    auto* made = new agent_test::FakeDaemon;
    for (std::uint32_t index = 1; index <= kRows; ++index) made->AddInterface("RED", index);
    made->AddRoute("RED", "10.0.0.0/8", "192.0.2.1");
    return made;
  }();
  daemon.paths.clear();
  daemon.columns.clear();
  daemon.rows_asked.clear();
  return daemon;
}

void check_response(const agentx::Header& header, agentx::Bytes payload) {
  require(header.type == agentx::PduType::kResponse || header.type == agentx::PduType::kPing);
  if (header.type == agentx::PduType::kPing) return;
  agentx::Reader reader(payload, true);
  agentx::Response response;
  require(reader.response(&response));
  require(response.error == 0 || reader.at_end());
  while (!reader.at_end()) {
    oid::Oid name;
    agentx::Value value;
    require(reader.var_bind(&name, &value));
  }
}

// All that was written must be whole PDUs.
void check_output(agentx::Bytes output) {
  while (!output.empty()) {
    agentx::Header header;
    require(agentx::read_header(output, &header) == agentx::HeaderState::kGood);
    require(output.size() - agentx::kHeaderSize >= header.payload);
    check_response(header, output.subspan(agentx::kHeaderSize, header.payload));
    output = output.subspan(agentx::kHeaderSize + header.payload);
  }
}

// A name that GETNEXT answers is after the start (or at it, when it is included) and before the end.
void check_next(agentx::Bytes payload, tables::Mib* mib) {
  agentx::Reader reader(payload, true);
  agentx::SearchRange range;
  if (!reader.search_range(&range)) return;
  tables::Variable variable;
  const tables::Answer answer = mib->next(range.start.view(), range.include, range.end.view(), &variable);
  if (answer != tables::Answer::kValue) return;
  const auto order = oid::compare(variable.object, variable.instance, range.start.view());
  require(range.include ? order >= 0 : order > 0);
  require(range.end.empty() || oid::compare(variable.object, variable.instance, range.end.view()) < 0);
  oid::Oid name(variable.object);
  require(name.append(variable.instance));
  require(mib->get(name.view(), &variable) == tables::Answer::kValue);
}

// The responder alone: one request whose type is the first octet.
void answer_one(agentx::Bytes input, tables::Mib* mib) {
  agentx::Header header;
  header.type = static_cast<agentx::PduType>(input[0]);
  header.flags = input[1];
  std::vector<std::uint8_t> output;
  agentx::Writer writer(&output);
  agent::Responder responder(*mib);
  mib->begin_requests(clock_monotonic());
  responder.answer(header, input.subspan(2), &writer);
  check_output(output);
  check_next(input.subspan(2), mib);
}

// The whole session: the master's octets after Open and Register.
void run_session(agentx::Bytes input, tables::Mib* mib) {
  int ends[2];
  require(socketpair(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK, 0, ends) == 0);
  agent::Responder responder(*mib);
  agentx::SessionOptions options;
  options.master = "fuzz";
  options.connect = [&] { return ends[0]; };
  agentx::Session session(options,
                          [&](const agentx::Header& request, agentx::Bytes payload, agentx::Writer* writer) {
                            mib->begin_requests(clock_monotonic());
                            responder.answer(request, payload, writer);
                          });
  session.step();
  std::uint8_t drained[4096];
  require(recv(ends[1], drained, sizeof(drained), 0) > 0);  // the Open
  std::vector<std::uint8_t> reply;
  agentx::Writer writer(&reply);
  agentx::Header open;
  open.packet = 1;
  agentx::begin_response(&writer, open, agentx::Error::kNone, 0);
  writer.end();
  reply.insert(reply.end(), input.begin(), input.end());
  if (send(ends[1], reply.data(), reply.size(), MSG_NOSIGNAL) == static_cast<ssize_t>(reply.size())) {
    session.handle(POLLIN);
  }
  close(ends[1]);
  if (session.fd() >= 0) session.handle(POLLIN | POLLHUP);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size < 3 || size > 16384) return 0;
  tables::Mib mib(tables::l3vpn_tables(), rows(), kNanosecondsPerSecond);
  const agentx::Bytes input = agentx::Bytes(data, size).subspan(1);
  if (data[0] % 4 == 0) {
    run_session(input, &mib);
  } else {
    answer_one(input, &mib);
  }
  return 0;
}
