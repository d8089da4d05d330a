// A sub-agent between a master agent that the test plays, and a data store in a process of its own.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "agent/agentx/master_test_support.h"
#include "agent/daemon_test_support.h"
#include "agent/sub_agent.h"
#include "agent/tables/tables_test_support.h"
#include "platform/core/base/clock.h"

namespace agent_test {

struct Reply {
  agentx::Response head;
  std::vector<Bound> variables;
};

// A request of the session for these names, without an end of the range.
inline void write_request(agentx::PduType type, const std::vector<oid::Oid>& names, agentx::Writer* writer) {
  agentx::Header header;
  header.type = type;
  header.session = 9;
  writer->begin(header);
  for (const oid::Oid& name : names) {
    writer->name(name.view());
    writer->name({});
  }
  writer->end();
}

class SubAgentTest : public testing::Test {
 protected:
  agent::SubAgentOptions Options() {
    agent::SubAgentOptions options;
    options.agentx_socket = "test";
    options.daemon_socket = daemon_.socket();
    options.daemon_limits.call_timeout = std::chrono::milliseconds(200);
    options.connect_master = [this] { return master_.Accept(); };
    return options;
  }

  void HangUp() { master_.HangUp(); }

  // Runs the sub-agent until it has nothing more to do; replies to Open, Register and Ping as a master does.
  void Run() {
    for (int idle = 0; idle < 3; ++idle) {
      const bool awaited = sub_agent_.awaits_daemon();
      sub_agent_.run_once(-1, awaited ? 100 : 0);
      const bool progressed = awaited && !sub_agent_.awaits_daemon();
      if (TakePdus() || progressed) idle = 0;
    }
  }

  bool TakePdus() {
    bool any = false;
    for (Pdu pdu = master_.Next(); pdu.header.type != agentx::PduType{0}; pdu = master_.Next()) {
      Take(pdu.header, pdu.payload);
      any = true;
    }
    return any;
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
    agentx::Reader reader(payload, true);
    EXPECT_TRUE(reader.response(&reply.head));
    reply.variables = read_variables(&reader);
    replies_.push_back(reply);
  }

  void TakeNotify(const agentx::Header& header, agentx::Bytes payload) {
    agentx::Reader reader(payload, true);
    std::string text;
    for (const Bound& variable : read_variables(&reader)) {
      text += (text.empty() ? "" : " ") + variable.name + "=" + variable.text;
    }
    notifies_.push_back(text);
    if (answers_notifies_) {
      Answer(header, notify_error_);
    } else {
      unanswered_.push_back(header);
    }
  }

  void Answer(const agentx::Header& header, agentx::Error error) { master_.Reply(header, error, 9); }

  // The sub-agent's answer to a request for these names; error 65535 without one.
  Reply Ask(agentx::PduType type, const std::vector<oid::Oid>& names) {
    std::vector<std::uint8_t> output;
    agentx::Writer writer(&output);
    write_request(type, names, &writer);
    master_.Send(output);
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
  Master master_;
  std::vector<Reply> replies_;
  std::vector<std::string> notifies_;  // "name=value name=value"
  std::vector<agentx::Header> unanswered_;
  bool answers_notifies_ = true;
  agentx::Error notify_error_ = agentx::Error::kNone;
  agent::SubAgent sub_agent_{Options()};
};

}  // namespace agent_test
