// A trivial AgentX notifier: opens a session and sends the same VRF-down notification COUNT times, as fast as
// the master agent answers within a window. The floor for traps through the daemon and the sub-agent.
//
//   agentx_notifier SOCKET COUNT WINDOW
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <vector>

#include "agent/agentx/session.h"

namespace {

const oid::Oid kTrapOid{1, 3, 6, 1, 6, 3, 1, 1, 4, 1, 0};
const oid::Oid kDown{1, 3, 6, 1, 2, 1, 10, 166, 11, 0, 2};
const oid::Oid kRowStatus{1, 3, 6, 1, 2, 1, 10, 166, 11, 1, 2, 1, 1, 5, 3, 114, 101, 100, 11};
const oid::Oid kOperStatus{1, 3, 6, 1, 2, 1, 10, 166, 11, 1, 2, 2, 1, 6, 3, 114, 101, 100};

[[noreturn]] void end(const char* what) {
  std::perror(what);
  std::exit(EXIT_FAILURE);
}

void send_all(int fd, std::vector<std::uint8_t>* output) {
  std::size_t sent = 0;
  while (sent < output->size()) {
    const ssize_t count = send(fd, output->data() + sent, output->size() - sent, MSG_NOSIGNAL);
    if (count < 0) end("send");
    sent += static_cast<std::size_t>(count);
  }
  output->clear();
}

// The headers of the responses that one reading brought.
class Responses {
 public:
  explicit Responses(int fd) : fd_(fd) {}
  std::vector<agentx::Header> wait() {
    std::uint8_t chunk[65536];
    const ssize_t count = recv(fd_, chunk, sizeof chunk, 0);
    if (count <= 0) end("recv");
    input_.insert(input_.end(), chunk, chunk + count);
    std::vector<agentx::Header> all;
    std::size_t at = 0;
    agentx::Header header;
    while (agentx::read_header(agentx::Bytes(input_).subspan(at), &header) == agentx::HeaderState::kGood &&
           input_.size() - at - agentx::kHeaderSize >= header.payload) {
      all.push_back(header);
      at += agentx::kHeaderSize + header.payload;
    }
    input_.erase(input_.begin(), input_.begin() + static_cast<std::ptrdiff_t>(at));
    return all;
  }

 private:
  int fd_;
  std::vector<std::uint8_t> input_;
};

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
  const int fd = agentx::connect_unix(argv[1]);
  if (fd < 0) end("connect");
  Responses responses(fd);
  std::vector<std::uint8_t> output;
  agentx::Writer writer(&output);
  agentx::write_open(&writer, 1, {}, "notifier");
  send_all(fd, &output);
  pollfd watched{fd, POLLIN, 0};
  poll(&watched, 1, -1);
  const std::uint32_t session = responses.wait().at(0).session;
  std::uint32_t sent = 0;
  std::uint32_t answered = 0;
  while (answered < count) {
    while (sent < count && sent - answered < window) write_notify(&writer, session, 2 + sent++);
    send_all(fd, &output);
    poll(&watched, 1, -1);
    answered += static_cast<std::uint32_t>(responses.wait().size());
  }
  close(fd);
  return EXIT_SUCCESS;
}
