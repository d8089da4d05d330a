// A trivial AgentX sub-agent that answers the interface table's four columns from a sorted array: the floor
// for the real sub-agent, with the rows of a generated router. It has no daemon, no windows and almost no
// error handling; it answers only what a master agent on the same machine sends (Get, GetNext).
//
//   agentx_array_agent SOCKET VRFS INTERFACES_PER_VRF
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string_view>
#include <vector>

#include "bench/agentx_peer.h"

namespace {

using agentx::ValueType;

const oid::Oid kModule{1, 3, 6, 1, 2, 1, 10, 166, 11, 1};
constexpr std::uint32_t kLastIndexBefore = 100'000;  // the generator's first interface has the next one
constexpr std::uint32_t kTable[] = {1, 3, 6, 1, 2, 1, 10, 166, 11, 1, 2, 1, 1};

struct Row {
  std::vector<std::uint32_t> name;
  bool octet_string;
  std::uint32_t value;
};

std::vector<Row> make_rows(unsigned vrfs, unsigned interfaces) {
  std::vector<Row> rows;
  for (std::uint32_t column : {2U, 3U, 4U, 5U}) {
    std::uint32_t index = kLastIndexBefore;
    for (unsigned vrf = 1; vrf <= vrfs; ++vrf) {
      char name[32];
      const int length = std::snprintf(name, sizeof name, "customer-%05u", vrf);
      for (unsigned interface = 0; interface < interfaces; ++interface) {
        Row row{{std::begin(kTable), std::end(kTable)},
                column == 3,
                column == 2   ? 2U
                : column == 4 ? 5U
                              : 1U};
        row.name.push_back(column);
        row.name.push_back(static_cast<std::uint32_t>(length));
        row.name.insert(row.name.end(), name, name + length);
        row.name.push_back(++index);
        rows.push_back(std::move(row));
      }
    }
  }
  return rows;
}

void write_row(const Row& row, agentx::Writer* writer) {
  writer->var_bind(row.octet_string ? ValueType::kOctetString : ValueType::kInteger, row.name);
  if (row.octet_string) {
    writer->octets(std::string_view("\0", 1));
  } else {
    writer->number32(row.value);
  }
}

void answer_range(const std::vector<Row>& rows, bool exact, const agentx::SearchRange& range,
                  agentx::Writer* writer) {
  const oid::View start = range.start.view();
  auto row = std::lower_bound(rows.begin(), rows.end(), start, [](const Row& each, oid::View name) {
    return oid::compare(each.name, name) < 0;
  });
  const bool is_there = row != rows.end() && oid::compare(row->name, start) == 0;
  if (exact && !is_there) return writer->var_bind(ValueType::kNoSuchInstance, start);
  if (!exact && !range.include && is_there) ++row;
  const bool is_beyond =
      row == rows.end() || (!exact && !range.end.empty() && oid::compare(row->name, range.end.view()) >= 0);
  if (is_beyond) return writer->var_bind(ValueType::kEndOfMibView, start);
  write_row(*row, writer);
}

void answer(const std::vector<Row>& rows, const AgentxPeer::Pdu& request, agentx::Writer* writer) {
  const bool exact = request.header.type == agentx::PduType::kGet;
  if (!exact && request.header.type != agentx::PduType::kGetNext) return;
  agentx::begin_response(writer, request.header, agentx::Error::kNone, 0);
  agentx::Reader reader(request.payload, (request.header.flags & agentx::kFlagNetworkByteOrder) != 0);
  agentx::SearchRange range;
  while (!reader.at_end() && reader.search_range(&range)) answer_range(rows, exact, range, writer);
  writer->end();
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 4) return 2;
  const auto rows =
      make_rows(static_cast<unsigned>(std::atoi(argv[2])), static_cast<unsigned>(std::atoi(argv[3])));
  AgentxPeer peer(argv[1], "array");
  agentx::write_register(peer.writer(), peer.session(), 2, kModule.view());
  for (;;) {
    peer.send();
    for (const AgentxPeer::Pdu& request : peer.receive()) answer(rows, request, peer.writer());
  }
}
