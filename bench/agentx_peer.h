// A blocking AgentX connection for the trivial peers of the benchmarks. Any failure ends the program.
#pragma once

#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <vector>

#include "agent/agentx/session.h"

class AgentxPeer {
 public:
  struct Pdu {
    agentx::Header header;
    std::vector<std::uint8_t> payload;
  };

  // Connects and opens a session.
  AgentxPeer(const char* socket, const char* description) : fd_(agentx::connect_unix(socket)) {
    if (fd_ < 0) end("connect");
    agentx::write_open(&writer_, 1, description);
    send();
    session_ = receive().at(0).header.session;
  }
  ~AgentxPeer() { close(fd_); }
  AgentxPeer(const AgentxPeer&) = delete;
  AgentxPeer& operator=(const AgentxPeer&) = delete;

  std::uint32_t session() const { return session_; }
  agentx::Writer* writer() { return &writer_; }

  // Sends what was written.
  void send() {
    std::size_t sent = 0;
    while (sent < output_.size()) {
      const ssize_t count = ::send(fd_, output_.data() + sent, output_.size() - sent, MSG_NOSIGNAL);
      if (count < 0) end("send");
      sent += static_cast<std::size_t>(count);
    }
    output_.clear();
  }

  // Waits for input. The PDUs that are complete with it.
  std::vector<Pdu> receive() {
    pollfd watched{fd_, POLLIN, 0};
    poll(&watched, 1, -1);
    std::uint8_t chunk[65536];
    const ssize_t count = recv(fd_, chunk, sizeof chunk, 0);
    if (count <= 0) end("recv");
    input_.insert(input_.end(), chunk, chunk + count);
    std::vector<Pdu> all;
    auto at = input_.begin();
    agentx::Header header;
    while (agentx::read_header({at, input_.end()}, &header) == agentx::HeaderState::kGood &&
           static_cast<std::size_t>(input_.end() - at) - agentx::kHeaderSize >= header.payload) {
      at += agentx::kHeaderSize;
      all.push_back({header, {at, at + header.payload}});
      at += header.payload;
    }
    input_.erase(input_.begin(), at);
    return all;
  }

 private:
  [[noreturn]] static void end(const char* what) {
    std::perror(what);
    std::exit(EXIT_FAILURE);
  }

  int fd_;
  std::uint32_t session_ = 0;
  std::vector<std::uint8_t> input_;
  std::vector<std::uint8_t> output_;
  agentx::Writer writer_{&output_};
};
