// A sub-agent between a master agent that the test plays, and a data store in a process of its own.
#pragma once

#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <string>
#include <vector>

#include "agent/daemon_test_support.h"
#include "agent/sub_agent.h"
#include "agent/tables/tables_test_support.h"
#include "platform/core/base/clock.h"

namespace agent_test {

struct Reply {
  agentx::Header header;
  agentx::Response head;
  std::vector<std::string> names;
};

class SubAgentTest : public testing::Test {
 protected:
  ~SubAgentTest() override { HangUp(); }

  agent::SubAgentOptions Options() {
    agent::SubAgentOptions options;
    options.agentx_socket = "test";
    options.daemon_socket = daemon_.socket();
    options.daemon_limits.call_timeout = std::chrono::milliseconds(200);
    options.connect_master = [this] { return Accept(); };
    return options;
  }

  int Accept() {
    int ends[2];
    EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0, ends), 0);
    HangUp();
    fd_ = ends[1];
    return ends[0];
  }

  void HangUp() {
    if (fd_ >= 0) close(fd_);
    fd_ = -1;
    input_.clear();
  }

  // Runs the sub-agent until it has nothing more to do; replies to Open, Register and Ping as a master does.
  void Run() {
    for (int idle = 0; idle < 3; ++idle) {
      sub_agent_.run_once(-1, 0);
      if (TakePdus()) idle = 0;
    }
  }

  bool TakePdus() {
    if (fd_ < 0) return false;
    std::uint8_t chunk[65536];
    const ssize_t count = recv(fd_, chunk, sizeof(chunk), 0);
    if (count <= 0) return false;
    input_.insert(input_.end(), chunk, chunk + count);
    agentx::Header header;
    while (agentx::read_header(input_, &header) == agentx::HeaderState::kGood &&
           input_.size() - agentx::kHeaderSize >= header.payload) {
      const std::size_t size = agentx::kHeaderSize + header.payload;
      Take(header, agentx::Bytes(input_).subspan(agentx::kHeaderSize, header.payload));
      input_.erase(input_.begin(), input_.begin() + static_cast<std::ptrdiff_t>(size));
    }
    return true;
  }

  void Take(const agentx::Header& header, agentx::Bytes payload) {
    if (header.type == agentx::PduType::kNotify) {
      TakeNotify(header, payload);
      return;
    }
    if (header.type != agentx::PduType::kResponse) {
      Answer(header, agentx::Error::kNone);
      return;
    }
    Reply reply;
    reply.header = header;
    agentx::Reader reader(payload, true);
    EXPECT_TRUE(reader.response(&reply.head));
    while (!reader.at_end()) {
      oid::Oid name;
      agentx::Value value;
      ASSERT_TRUE(reader.var_bind(&name, &value));
      reply.names.push_back(oid::to_text(name.view()));
    }
    replies_.push_back(reply);
  }

  void TakeNotify(const agentx::Header& header, agentx::Bytes payload) {
    agentx::Reader reader(payload, true);
    std::string text;
    while (!reader.at_end()) {
      oid::Oid name;
      agentx::Value value;
      ASSERT_TRUE(reader.var_bind(&name, &value));
      if (!text.empty()) text += ' ';
      text += oid::to_text(name.view()) + "=" +
              (value.type == agentx::ValueType::kObjectIdentifier ? oid::to_text(value.name.view())
                                                                  : std::to_string(value.number));
    }
    notifies_.push_back(text);
    if (answers_notifies_) {
      Answer(header, notify_error_);
    } else {
      unanswered_.push_back(header);
    }
  }

  void Answer(const agentx::Header& header, agentx::Error error) {
    std::vector<std::uint8_t> output;
    agentx::Writer writer(&output);
    agentx::Header request = header;
    request.session = 9;
    agentx::begin_response(&writer, request, error, 0);
    writer.end();
    SendOctets(output);
  }

  void SendOctets(const std::vector<std::uint8_t>& octets) {
    ASSERT_EQ(send(fd_, octets.data(), octets.size(), MSG_NOSIGNAL), static_cast<ssize_t>(octets.size()));
  }

  // The sub-agent's answer to a request for these names; error 65535 without one.
  Reply Ask(agentx::PduType type, const std::vector<oid::Oid>& names) {
    std::vector<std::uint8_t> output;
    agentx::Writer writer(&output);
    agentx::Header header;
    header.type = type;
    header.session = 9;
    writer.begin(header);
    for (const oid::Oid& name : names) {
      writer.name(name.view());
      writer.name({});
    }
    writer.end();
    SendOctets(output);
    replies_.clear();
    Run();
    if (replies_.size() == 1) return replies_[0];
    Reply none;
    none.head.error = 65535;
    return none;
  }

  void Pass(std::uint64_t milliseconds) { clock_.advance(milliseconds * kNanosecondsPerMillisecond); }

  ManualClock clock_{1000 * kNanosecondsPerSecond};
  DaemonProcess daemon_;
  int fd_ = -1;
  std::vector<std::uint8_t> input_;
  std::vector<Reply> replies_;
  std::vector<std::string> notifies_;  // "name=value name=value"
  std::vector<agentx::Header> unanswered_;
  bool answers_notifies_ = true;
  agentx::Error notify_error_ = agentx::Error::kNone;
  agent::SubAgent sub_agent_{Options()};
};

}  // namespace agent_test
