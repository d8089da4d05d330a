// A master agent that a test plays at the other end of a socket pair.
#pragma once

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <string>
#include <vector>

#include "agent/agentx/pdu.h"

namespace agent_test {

struct Bound {
  std::string name;
  agentx::ValueType type;
  std::uint32_t number;
  std::string text;  // the number or the object identifier
};

// The variables up to the end.
inline std::vector<Bound> read_variables(agentx::Reader* reader) {
  std::vector<Bound> variables;
  while (!reader->at_end()) {
    oid::Oid name;
    agentx::Value value;
    if (!reader->var_bind(&name, &value)) ADD_FAILURE() << "unreadable variable";
    const bool is_name = value.type == agentx::ValueType::kObjectIdentifier;
    variables.push_back({oid::to_text(name.view()), value.type, value.number,
                         is_name ? oid::to_text(value.name.view()) : std::to_string(value.number)});
  }
  return variables;
}

struct Pdu {
  agentx::Header header;
  std::vector<std::uint8_t> payload;
};

class Master {
 public:
  ~Master() { HangUp(); }

  // What Session calls to connect.
  int Accept() {
    ++attempts;
    if (!listening) {
      errno = refusal;
      return -1;
    }
    int ends[2];
    EXPECT_EQ(socketpair(AF_UNIX, socket_type | SOCK_NONBLOCK | SOCK_CLOEXEC, 0, ends), 0);
    HangUp();
    fd_ = ends[1];
    return ends[0];
  }

  void HangUp() {
    if (fd_ >= 0) close(fd_);
    fd_ = -1;
    input_.clear();
  }

  void Send(const std::vector<std::uint8_t>& octets) {
    EXPECT_EQ(send(fd_, octets.data(), octets.size(), MSG_NOSIGNAL), static_cast<ssize_t>(octets.size()));
  }

  // How many octets the next write of the session had, with a socket that keeps writes apart.
  std::size_t NextWrite() const {
    std::uint8_t chunk[65536];
    const ssize_t count = recv(fd_, chunk, sizeof(chunk), 0);
    return count < 0 ? 0 : static_cast<std::size_t>(count);
  }

  // The next PDU that the session sent; type 0 when there is none.
  Pdu Next() {
    std::uint8_t chunk[65536];
    for (ssize_t count = 0; (count = recv(fd_, chunk, sizeof(chunk), 0)) > 0;) {
      input_.insert(input_.end(), chunk, chunk + count);
    }
    Pdu pdu;
    const bool whole = agentx::read_header(input_, &pdu.header) == agentx::HeaderState::kGood &&
                       input_.size() - agentx::kHeaderSize >= pdu.header.payload;
    if (!whole) return {agentx::Header{.type = agentx::PduType{0}}, {}};
    const auto end = input_.begin() + static_cast<std::ptrdiff_t>(agentx::kHeaderSize + pdu.header.payload);
    pdu.payload.assign(input_.begin() + agentx::kHeaderSize, end);
    input_.erase(input_.begin(), end);
    return pdu;
  }

  void Reply(const agentx::Header& to, agentx::Error error, std::uint32_t session, std::uint16_t uptime = 0) {
    std::vector<std::uint8_t> output;
    agentx::Writer writer(&output);
    agentx::Header request = to;
    request.session = session;
    agentx::begin_response(&writer, request, error, 0);
    writer.patch16(agentx::kHeaderSize + 2, uptime);  // the lower half, in hundredths of a second
    writer.end();
    Send(output);
  }

  void Ask(agentx::PduType type, std::uint32_t packet, std::uint32_t session = 77) {
    agentx::Header header;
    header.type = type;
    header.session = session;
    header.packet = packet;
    std::vector<std::uint8_t> output;
    agentx::Writer writer(&output);
    writer.begin(header);
    writer.end();
    Send(output);
  }

  bool listening = true;
  int refusal = ECONNREFUSED;  // errno of an attempt while it is not listening
  int attempts = 0;
  int socket_type = SOCK_STREAM;

 private:
  int fd_ = -1;
  std::vector<std::uint8_t> input_;
};

}  // namespace agent_test
