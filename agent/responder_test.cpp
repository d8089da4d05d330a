// Requests of a master agent and the responses to them, octet by octet through the codec.
#include "agent/responder.h"

#include <gtest/gtest.h>

#include <vector>

#include "agent/agentx/master_test_support.h"
#include "agent/tables/l3vpn_tables.h"
#include "agent/tables/tables_test_support.h"
#include "platform/core/base/clock.h"

namespace {

using agent_test::FakeDaemon;
using agent_test::if_conf;
using agent_test::parse_oid;
using agent_test::scalar;
using agentx::Error;
using agentx::Header;
using agentx::PduType;
using agentx::ValueType;
using oid::Oid;

struct Range {
  Oid start;
  Oid end;
  bool include = false;
};

struct Reply {
  agentx::Response head;
  std::vector<agent_test::Bound> variables;
  std::size_t octets = 0;
  Header header;
};

class ResponderTest : public testing::Test {
 protected:
  static void WriteRanges(agentx::Writer* writer, const std::vector<Range>& ranges) {
    for (const Range& range : ranges) {
      writer->name(range.start.view(), {}, range.include);
      writer->name(range.end.view());
    }
  }

  Reply Send(const Header& request, const std::vector<std::uint8_t>& payload) {
    std::vector<std::uint8_t> output;
    agentx::Writer writer(&output);
    mib_.begin_requests(clock_monotonic());
    responder_.answer(request, payload, &writer);
    Reply reply;
    reply.octets = output.size();
    if (output.empty()) return reply;
    EXPECT_EQ(agentx::read_header(output, &reply.header), agentx::HeaderState::kGood);
    EXPECT_EQ(reply.header.payload + agentx::kHeaderSize, output.size());
    agentx::Reader reader(agentx::Bytes(output).subspan(agentx::kHeaderSize), true);
    EXPECT_TRUE(reader.response(&reply.head));
    reply.variables = agent_test::read_variables(&reader);
    return reply;
  }

  Reply Ask(PduType type, const std::vector<Range>& ranges) {
    std::vector<std::uint8_t> payload;
    agentx::Writer writer(&payload);
    WriteRanges(&writer, ranges);
    return Send(Request(type), payload);
  }

  Reply Bulk(unsigned non_repeaters, unsigned repetitions, const std::vector<Range>& ranges) {
    std::vector<std::uint8_t> payload;
    agentx::Writer writer(&payload);
    writer.number16(static_cast<std::uint16_t>(non_repeaters));
    writer.number16(static_cast<std::uint16_t>(repetitions));
    WriteRanges(&writer, ranges);
    return Send(Request(PduType::kGetBulk), payload);
  }

  static Header Request(PduType type) {
    Header header;
    header.type = type;
    header.session = 1;
    header.transaction = 2;
    header.packet = 3;
    return header;
  }

  static std::string Text(const Oid& name) { return oid::to_text(name.view()); }

  ManualClock clock_{1000 * kNanosecondsPerSecond};
  FakeDaemon daemon_;
  tables::Mib mib_{tables::l3vpn_tables(), daemon_, kNanosecondsPerSecond};
  bool waits_ = false;  // for batches that the daemon answers later, 200 ms each
  agent::Responder responder_{mib_, [this] {
                                clock_.advance(kNanosecondsPerSecond / 5);
                                daemon_.Deliver();
                                return waits_;
                              }};
};

TEST_F(ResponderTest, GetAnswersValuesAndExceptionsInOrder) {
  daemon_.AddInterface("RED", 11);
  const Reply reply =
      Ask(PduType::kGet,
          {{scalar(1), {}}, {if_conf(5, "RED", 12), {}}, {scalar(9), {}}, {if_conf(3, "RED", 11), {}}});
  EXPECT_EQ(reply.head.error, 0);
  EXPECT_EQ(reply.header.transaction, 2U);
  EXPECT_EQ(reply.header.packet, 3U);
  ASSERT_EQ(reply.variables.size(), 4U);
  EXPECT_EQ(reply.variables[0].type, ValueType::kGauge32);
  EXPECT_EQ(reply.variables[0].number, 4U);
  EXPECT_EQ(reply.variables[1].type, ValueType::kNoSuchInstance);
  EXPECT_EQ(reply.variables[1].name, Text(if_conf(5, "RED", 12)));
  EXPECT_EQ(reply.variables[2].type, ValueType::kNoSuchObject);
  EXPECT_EQ(reply.variables[2].name, Text(scalar(9)));
  EXPECT_EQ(reply.variables[3].type, ValueType::kOctetString);
}

TEST_F(ResponderTest, RowsThatBecameTooOldDuringTheWaitForOthersAreReadAgain) {
  daemon_.AddInterface("RED", 11);
  Ask(PduType::kGet, {{if_conf(3, "RED", 11), {}}});
  daemon_.RemoveInterface("RED", 11);
  clock_.advance(kNanosecondsPerSecond * 9 / 10);
  waits_ = true;
  daemon_.Delay();
  const Reply reply = Ask(PduType::kGet, {{scalar(1), {}}, {if_conf(3, "RED", 11), {}}});
  ASSERT_EQ(reply.variables.size(), 2U);
  EXPECT_EQ(reply.variables[1].type, ValueType::kNoSuchInstance);
}

TEST_F(ResponderTest, TruthValueIsAnInteger) {
  const Reply reply = Ask(PduType::kGet, {{scalar(4), {}}});
  ASSERT_EQ(reply.variables.size(), 1U);
  EXPECT_EQ(reply.variables[0].type, ValueType::kInteger);
}

TEST_F(ResponderTest, GetNextAnswersEndOfMibViewUnderTheRequestedName) {
  const Reply reply =
      Ask(PduType::kGetNext,
          {{scalar(6), {}}, {scalar(7), {}}, {scalar(1), scalar(2)}, {scalar(1), scalar(2), true}});
  ASSERT_EQ(reply.variables.size(), 4U);
  EXPECT_EQ(reply.variables[0].name, Text(scalar(7)));
  EXPECT_EQ(reply.variables[1].type, ValueType::kEndOfMibView);
  EXPECT_EQ(reply.variables[1].name, Text(scalar(7)));
  EXPECT_EQ(reply.variables[2].type, ValueType::kEndOfMibView);
  EXPECT_EQ(reply.variables[3].name, Text(scalar(1)));
  EXPECT_EQ(reply.variables[3].number, 4U);
}

TEST_F(ResponderTest, ManySearchRangesAreAnsweredInOneResponse) {
  for (std::uint32_t i = 1; i <= 50; ++i) daemon_.AddInterface("RED", i);
  std::vector<Range> ranges;
  for (std::uint32_t i = 0; i < 50; ++i) {
    for (std::uint32_t column = 2; column <= 5; ++column) ranges.push_back({if_conf(column, "RED", i), {}});
  }
  const Reply reply = Ask(PduType::kGetNext, ranges);
  ASSERT_EQ(reply.variables.size(), 200U);
  for (std::size_t i = 0; i < 200; ++i) {
    EXPECT_EQ(reply.variables[i].name, Text(if_conf(static_cast<std::uint32_t>(2 + i % 4), "RED",
                                                    static_cast<std::uint32_t>(i / 4 + 1))));
  }
  EXPECT_EQ(daemon_.reads, 1);
}

TEST_F(ResponderTest, AwayDaemonAnswersGenErrWithTheVariablesNumberAndNoVariables) {
  daemon_.status = kStatusNotConnected;
  for (const PduType type : {PduType::kGet, PduType::kGetNext}) {
    const Reply reply = Ask(type, {{scalar(1), {}}, {scalar(2), {}}});
    EXPECT_EQ(reply.head.error, 5);
    EXPECT_EQ(reply.head.index, 1);
    EXPECT_TRUE(reply.variables.empty());
  }
  const Reply later = Ask(PduType::kGet, {{scalar(9), {}}, {scalar(8), {}}, {scalar(2), {}}});
  EXPECT_EQ(later.head.error, 5);
  EXPECT_EQ(later.head.index, 3) << "the first two can be answered without the daemon";
  EXPECT_TRUE(later.variables.empty());
  EXPECT_EQ(
      Bulk(1, 5, {{scalar(8, ""), parse_oid("1.3.6.1.2.1.10.166.11.1.1.9")}, {scalar(1), {}}}).head.index, 2);
}

TEST_F(ResponderTest, SetsAreRefusedAndNothingFollowsACleanup) {
  const Reply test = Send(Request(PduType::kTestSet), {});
  EXPECT_EQ(test.head.error, static_cast<std::uint16_t>(Error::kNotWritable));
  EXPECT_EQ(test.head.index, 1);
  EXPECT_EQ(Send(Request(PduType::kCommitSet), {}).head.error,
            static_cast<std::uint16_t>(Error::kCommitFailed));
  EXPECT_EQ(Send(Request(PduType::kUndoSet), {}).head.error, 0);
  EXPECT_EQ(Send(Request(PduType::kCleanupSet), {}).octets, 0U);
}

TEST_F(ResponderTest, WhatCannotBeReadIsAParseError) {
  std::vector<std::uint8_t> payload;
  agentx::Writer writer(&payload);
  WriteRanges(&writer, {{scalar(1), {}}, {scalar(2), {}}});
  for (std::size_t length = 1; length < payload.size(); ++length) {
    if (length == payload.size() / 2) continue;  // one whole range
    const Reply reply = Send(Request(PduType::kGetNext),
                             {payload.begin(), payload.begin() + static_cast<std::ptrdiff_t>(length)});
    EXPECT_EQ(reply.head.error, static_cast<std::uint16_t>(Error::kParseError)) << length;
    EXPECT_TRUE(reply.variables.empty());
  }
  EXPECT_EQ(Send(Request(PduType::kGetBulk), {0, 1}).head.error,
            static_cast<std::uint16_t>(Error::kParseError));
  EXPECT_EQ(Send(Request(PduType{99}), {}).head.error, static_cast<std::uint16_t>(Error::kParseError));
}

TEST_F(ResponderTest, OtherContextIsNotServed) {
  std::vector<std::uint8_t> payload;
  agentx::Writer writer(&payload);
  writer.octets("other");
  WriteRanges(&writer, {{scalar(1), {}}});
  Header request = Request(PduType::kGet);
  request.flags |= agentx::kFlagNonDefaultContext;
  EXPECT_EQ(Send(request, payload).head.error, static_cast<std::uint16_t>(Error::kUnsupportedContext));
  EXPECT_EQ(Send(request, {0, 0}).head.error, static_cast<std::uint16_t>(Error::kParseError));
}

TEST_F(ResponderTest, LittleEndianRequestIsUnderstood) {
  Header request = Request(PduType::kGet);
  request.flags = 0;
  const std::vector<std::uint8_t> payload = {8, 2, 0, 0, 1, 0, 0, 0, 10, 0, 0, 0, 166, 0, 0, 0, 11, 0, 0, 0,
                                             1, 0, 0, 0, 1, 0, 0, 0, 1,  0, 0, 0, 0,   0, 0, 0, 0,  0, 0, 0};
  const Reply reply = Send(request, payload);
  ASSERT_EQ(reply.variables.size(), 1U);
  EXPECT_EQ(reply.variables[0].name, Text(scalar(1)));
  EXPECT_EQ(reply.variables[0].number, 4U);
}

TEST_F(ResponderTest, BulkRepeatsItsRepeatersRowByRow) {
  for (std::uint32_t i = 1; i <= 3; ++i) daemon_.AddInterface("RED", i);
  const Reply reply = Bulk(1, 4, {{scalar(2), {}}, {if_conf(2), if_conf(3)}, {if_conf(5), {}}});
  ASSERT_EQ(reply.variables.size(), 1U + 4 * 2);
  EXPECT_EQ(reply.variables[0].name, Text(scalar(3)));
  for (std::uint32_t i = 0; i < 3; ++i) {
    EXPECT_EQ(reply.variables[1 + i * 2].name, Text(if_conf(2, "RED", i + 1)));
    EXPECT_EQ(reply.variables[2 + i * 2].name, Text(if_conf(5, "RED", i + 1)));
  }
  for (const std::size_t last : {7U, 8U}) EXPECT_EQ(reply.variables[last].type, ValueType::kEndOfMibView);
  EXPECT_EQ(reply.variables[7].name, Text(if_conf(2, "RED", 3)));
}

TEST_F(ResponderTest, BulkKeepsARangeThatEndedWhileOthersGoOn) {
  for (std::uint32_t i = 1; i <= 4; ++i) daemon_.AddInterface("RED", i);
  const Reply reply = Bulk(0, 3, {{if_conf(5, "RED", 3), {}}, {if_conf(2), {}}});
  ASSERT_EQ(reply.variables.size(), 6U);
  EXPECT_EQ(reply.variables[0].name, Text(if_conf(5, "RED", 4)));
  EXPECT_EQ(reply.variables[2].type, ValueType::kEndOfMibView);
  EXPECT_EQ(reply.variables[4].type, ValueType::kEndOfMibView);
  EXPECT_EQ(reply.variables[5].name, Text(if_conf(2, "RED", 3)));
}

TEST_F(ResponderTest, BulkWithARangeThatEndedReadsOncePerPlace) {
  tables::Mib mib(tables::l3vpn_tables(), daemon_, 0);  // every request asks the daemon
  responder_ = agent::Responder(mib);
  for (std::uint32_t i = 1; i <= 4; ++i) daemon_.AddInterface("RED", i);
  EXPECT_EQ(Bulk(0, 3, {{if_conf(5, "RED", 4), if_conf(6)}, {if_conf(2), {}}}).variables.size(), 6U);
  EXPECT_EQ(daemon_.reads, 2);
}

TEST_F(ResponderTest, BulkStopsWhenEverythingHasEndedOrTheAnswerIsLarge) {
  EXPECT_EQ(Bulk(0, 65535, {{scalar(6), {}}}).variables.size(), 2U) << "the last scalar, then the end";
  for (std::uint32_t i = 1; i <= 20000; ++i) daemon_.AddInterface("RED", i);
  clock_.advance(kNanosecondsPerSecond);
  const Reply reply = Bulk(0, 65535, {{if_conf(2), {}}});
  EXPECT_GT(reply.variables.size(), 1000U);
  EXPECT_LT(reply.octets, 200'000U);
}

TEST_F(ResponderTest, BulkWhoseRangeIncludesItsStartDoesNotRepeatIt) {
  for (std::uint32_t i = 1; i <= 3; ++i) daemon_.AddInterface("RED", i);
  const Reply reply = Bulk(0, 3, {{if_conf(2, "RED", 1), if_conf(3), true}});
  ASSERT_EQ(reply.variables.size(), 3U);
  for (std::uint32_t i = 0; i < 3; ++i) EXPECT_EQ(reply.variables[i].name, Text(if_conf(2, "RED", i + 1)));
}

TEST_F(ResponderTest, BulkWithoutRepetitionsAnswersOnlyTheNonRepeaters) {
  EXPECT_EQ(Bulk(1, 0, {{scalar(1), {}}, {scalar(2), {}}}).variables.size(), 1U);
  EXPECT_EQ(Bulk(5, 3, {{scalar(1), {}}, {scalar(2), {}}}).variables.size(), 2U);
}

TEST_F(ResponderTest, DaemonLostInTheMiddleOfABulkIsAnErrorAndNotAShortTable) {
  for (std::uint32_t i = 1; i <= 1000; ++i) daemon_.AddInterface("RED", i);
  daemon_.fail_after = 2;
  const Reply reply = Bulk(0, 500, {{if_conf(2), {}}});
  EXPECT_EQ(reply.head.error, 5);
  EXPECT_EQ(reply.head.index, 1);
  EXPECT_TRUE(reply.variables.empty());
}

}  // namespace
