// A trivial AgentX sub-agent (RFC 2741) that answers the interface table's four columns from a sorted array:
// the floor for the real sub-agent. It has no daemon, no windows and almost no error handling; it knows only
// what a master agent on the same machine sends (Get, GetNext, Response).
//
//   agentx_array_agent SOCKET VRFS INTERFACES_PER_VRF
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

namespace {

using Oid = std::vector<std::uint32_t>;
using Octets = std::vector<std::uint8_t>;

constexpr std::uint32_t kTable[] = {1, 3, 6, 1, 2, 1, 10, 166, 11, 1, 2, 1, 1};

struct Row {
  Oid oid;
  bool octet_string;
  std::uint32_t value;
};

std::vector<Row> make_rows(unsigned vrfs, unsigned interfaces) {
  std::vector<Row> rows;
  for (std::uint32_t column : {2U, 3U, 4U, 5U}) {
    std::uint32_t index = 0;
    for (unsigned vrf = 0; vrf < vrfs; ++vrf) {
      char name[32];
      const int length = std::snprintf(name, sizeof name, "vrf%05u", vrf);
      for (unsigned interface = 0; interface < interfaces; ++interface) {
        Oid oid(std::begin(kTable), std::end(kTable));
        oid.push_back(column);
        oid.push_back(static_cast<std::uint32_t>(length));
        for (int i = 0; i < length; ++i) oid.push_back(static_cast<std::uint8_t>(name[i]));
        oid.push_back(++index);
        rows.push_back({oid, column == 3, column == 2 ? 2U : column == 4 ? 5U : 1U});
      }
    }
  }
  return rows;
}

void put32(Octets* out, std::uint32_t value) {
  for (int shift = 24; shift >= 0; shift -= 8) out->push_back(static_cast<std::uint8_t>(value >> shift));
}

void put16(Octets* out, std::uint32_t value) {
  out->push_back(static_cast<std::uint8_t>(value >> 8));
  out->push_back(static_cast<std::uint8_t>(value));
}

void put_oid(Octets* out, const Oid& oid) {
  out->insert(out->end(), {static_cast<std::uint8_t>(oid.size()), 0, 0, 0});
  for (const std::uint32_t part : oid) put32(out, part);
}

// Reads integers in the byte order of the PDU that they are in.
struct Cursor {
  const std::uint8_t* at;
  bool network_order;
  std::uint32_t u32() {
    const std::uint8_t* p = at;
    at += 4;
    auto word = [p](int a, int b, int c, int d) {
      return static_cast<std::uint32_t>(p[a]) << 24 | static_cast<std::uint32_t>(p[b]) << 16 |
             static_cast<std::uint32_t>(p[c]) << 8 | static_cast<std::uint32_t>(p[d]);
    };
    return network_order ? word(0, 1, 2, 3) : word(3, 2, 1, 0);
  }
  Oid oid(bool* include = nullptr) {
    const std::uint8_t count = at[0];
    const std::uint8_t prefix = at[1];
    if (include != nullptr) *include = at[2] != 0;
    at += 4;
    Oid oid;
    if (prefix != 0) oid = {1, 3, 6, 1, prefix};
    for (unsigned i = 0; i < count; ++i) oid.push_back(u32());
    return oid;
  }
};

struct Header {
  std::uint8_t type;
  bool network_order;
  std::uint32_t session, transaction, packet, length;
};

Octets pdu(std::uint8_t type, const Header& header, const Octets& payload) {
  Octets out{1, type, 0x10, 0};
  put32(&out, header.session);
  put32(&out, header.transaction);
  put32(&out, header.packet);
  put32(&out, static_cast<std::uint32_t>(payload.size()));
  out.insert(out.end(), payload.begin(), payload.end());
  return out;
}

void write_all(int fd, const Octets& octets) {
  std::size_t done = 0;
  while (done < octets.size()) {
    const ssize_t n = write(fd, octets.data() + done, octets.size() - done);
    if (n <= 0) std::exit(0);
    done += static_cast<std::size_t>(n);
  }
}

void read_all(int fd, std::uint8_t* to, std::size_t size) {
  while (size > 0) {
    const ssize_t n = read(fd, to, size);
    if (n <= 0) std::exit(0);
    to += n;
    size -= static_cast<std::size_t>(n);
  }
}

Header read_pdu(int fd, Octets* payload) {
  std::uint8_t raw[20];
  read_all(fd, raw, sizeof raw);
  const bool network = (raw[2] & 0x10) != 0;
  Cursor cursor{raw + 4, network};
  Header header{raw[1], network, cursor.u32(), cursor.u32(), cursor.u32(), 0};
  header.length = cursor.u32();
  payload->resize(header.length);
  read_all(fd, payload->data(), header.length);
  return header;
}

void put_value(Octets* out, const Row& row) {
  put16(out, row.octet_string ? 4 : 2);
  put16(out, 0);
  put_oid(out, row.oid);
  if (row.octet_string) {
    put32(out, 1);
    out->insert(out->end(), {0, 0, 0, 0});
  } else {
    put32(out, row.value);
  }
}

void put_exception(Octets* out, std::uint32_t type, const Oid& oid) {
  put16(out, type);
  put16(out, 0);
  put_oid(out, oid);
}

void answer(int fd, const Header& header, const Octets& payload, const std::vector<Row>& rows) {
  Octets out;
  put32(&out, 0);
  put32(&out, 0);
  Cursor cursor{payload.data(), header.network_order};
  const std::uint8_t* end = payload.data() + payload.size();
  while (cursor.at < end) {
    bool include = false;
    const Oid start = cursor.oid(&include);
    const Oid stop = cursor.oid();
    const auto less = [](const Row& row, const Oid& oid) { return row.oid < oid; };
    auto row = std::lower_bound(rows.begin(), rows.end(), start, less);
    const bool exact = header.type == 5;
    if (!exact && !include && row != rows.end() && row->oid == start) ++row;
    if (exact && (row == rows.end() || row->oid != start)) {
      put_exception(&out, 129, start);
    } else if (row == rows.end() || (!exact && !stop.empty() && row->oid >= stop)) {
      put_exception(&out, 130, start);
    } else {
      put_value(&out, *row);
    }
  }
  write_all(fd, pdu(18, header, out));
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 4) return 2;
  const auto rows =
      make_rows(static_cast<unsigned>(std::atoi(argv[2])), static_cast<unsigned>(std::atoi(argv[3])));
  const int fd = socket(AF_UNIX, SOCK_STREAM, 0);
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::snprintf(address.sun_path, sizeof address.sun_path, "%s", argv[1]);
  sockaddr generic{};
  static_assert(sizeof generic <= sizeof address);
  if (connect(fd, static_cast<sockaddr*>(static_cast<void*>(&address)), sizeof address) != 0) {
    std::perror("connect");
    return 1;
  }
  Header header{0, true, 0, 0, 1, 0};
  Octets open{30, 0, 0, 0, 0, 0, 0, 0};
  put32(&open, 0);
  write_all(fd, pdu(1, header, open));
  Octets payload;
  header.session = read_pdu(fd, &payload).session;
  Octets registration{0, 127, 0, 0};
  put_oid(&registration, {1, 3, 6, 1, 2, 1, 10, 166, 11, 1});
  header.packet = 2;
  write_all(fd, pdu(3, header, registration));
  read_pdu(fd, &payload);
  for (;;) {
    const Header request = read_pdu(fd, &payload);
    if (request.type == 5 || request.type == 6) answer(fd, request, payload, rows);
  }
}
