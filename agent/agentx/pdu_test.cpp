// The AgentX codec: what is written is read back, in either byte order; malformed input is refused.
#include "agent/agentx/pdu.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

using namespace agentx;
using oid::Oid;
using Octets = std::vector<std::uint8_t>;

const Oid kColumn{1, 3, 6, 1, 2, 1, 10, 166, 11, 1, 2, 1, 1, 5};

Octets payload_of(const Octets& pdu) {
  return Octets(pdu.begin() + kHeaderSize, pdu.end());
}

void append(Octets* to, std::initializer_list<int> octets) {
  for (const int octet : octets) to->push_back(static_cast<std::uint8_t>(octet));
}

TEST(PduHeader, IsReadInBothByteOrders) {
  const Octets big = {1, 6, 0x10, 0, 0, 0, 0, 1, 0, 0, 0, 2, 0, 0, 0, 3, 0, 0, 0, 8};
  const Octets little = {1, 6, 0x00, 0, 1, 0, 0, 0, 2, 0, 0, 0, 3, 0, 0, 0, 8, 0, 0, 0};
  for (const Octets& octets : {big, little}) {
    Header header;
    ASSERT_EQ(read_header(octets, &header), HeaderState::kGood);
    EXPECT_EQ(header.type, PduType::kGetNext);
    EXPECT_EQ(header.session, 1U);
    EXPECT_EQ(header.transaction, 2U);
    EXPECT_EQ(header.packet, 3U);
    EXPECT_EQ(header.payload, 8U);
  }
}

TEST(PduHeader, IsIncompleteUpToItsLastOctet) {
  Octets output;
  Writer writer(&output);
  write_ping(&writer, 7, 9);
  Header header;
  for (std::size_t length = 0; length < kHeaderSize; ++length) {
    EXPECT_EQ(read_header(Bytes(output).first(length), &header), HeaderState::kIncomplete) << length;
  }
  EXPECT_EQ(read_header(output, &header), HeaderState::kGood);
}

TEST(PduHeader, WrongVersionOddLengthAndExcessiveLengthAreBroken) {
  const Octets good = {1, 13, 0x10, 0, 0, 0, 0, 1, 0, 0, 0, 2, 0, 0, 0, 3, 0, 0, 0, 0};
  Header header;
  Octets version = good;
  version[0] = 2;
  EXPECT_EQ(read_header(version, &header), HeaderState::kBroken);
  Octets odd = good;
  odd[19] = 3;
  EXPECT_EQ(read_header(odd, &header), HeaderState::kBroken);
  Octets largest = good;
  largest[17] = 0x10;
  EXPECT_EQ(read_header(largest, &header), HeaderState::kGood);
  Octets excessive = largest;
  excessive[19] = 4;
  EXPECT_EQ(read_header(excessive, &header), HeaderState::kBroken);
}

TEST(PduName, InternetPrefixIsCompressedAndRestored) {
  Octets output;
  Writer writer(&output);
  writer.name(kColumn.view(), Oid{3, 82, 69, 68, 7}.view(), true);
  EXPECT_EQ(output.size(), 4 + 4 * (kColumn.size() - 5 + 5));
  EXPECT_EQ(output[0], kColumn.size() - 5 + 5);
  EXPECT_EQ(output[1], 2);
  Reader reader(output, true);
  Oid value;
  bool include = false;
  ASSERT_TRUE(reader.name(&value, &include));
  EXPECT_EQ(oid::to_text(value.view()), "1.3.6.1.2.1.10.166.11.1.2.1.1.5.3.82.69.68.7");
  EXPECT_TRUE(include);
  EXPECT_TRUE(reader.at_end());
}

TEST(PduName, NameThatThePrefixCannotReplaceIsWrittenInFull) {
  for (const Oid& name : {Oid{}, Oid{1}, Oid{1, 3, 6, 1}, Oid{1, 3, 6, 1, 0, 9}, Oid{1, 3, 6, 1, 256},
                          Oid{1, 3, 6, 1, 257}, Oid{2, 3, 6, 1, 2}}) {
    Octets output;
    Writer writer(&output);
    writer.name(name.view());
    EXPECT_EQ(output[1], 0);
    Reader reader(output, true);
    Oid value;
    ASSERT_TRUE(reader.name(&value, nullptr));
    EXPECT_TRUE(oid::compare(value.view(), name.view()) == 0);
  }
}

TEST(PduName, MoreThanOneHundredAndTwentyEightSubIdentifiersAreRefused) {
  for (const int prefix : {0, 2}) {
    const int most = prefix == 0 ? 128 : 123;
    for (const int count : {most, most + 1, 255}) {
      Octets input;
      append(&input, {count, prefix, 0, 0});
      input.resize(4 + 255 * 4);
      Reader reader(input, true);
      Oid value;
      EXPECT_EQ(reader.name(&value, nullptr), count == most) << prefix << " " << count;
    }
  }
}

TEST(PduName, LittleEndianSubIdentifiersAreRead) {
  Octets input;
  append(&input, {2, 0, 0, 0, 1, 2, 0, 0, 4, 3, 2, 1});
  Reader reader(input, false);
  Oid value;
  ASSERT_TRUE(reader.name(&value, nullptr));
  EXPECT_EQ(value[0], 0x0201U);
  EXPECT_EQ(value[1], 0x01020304U);
}

TEST(PduOctets, ArePaddedToFourAndTruncatedWhenRead) {
  for (std::size_t length = 0; length < 9; ++length) {
    Octets output;
    Writer writer(&output);
    const std::string text(length, 'x');
    writer.octets(text);
    EXPECT_EQ(output.size(), 4 + (length + 3) / 4 * 4);
    Reader reader(output, true);
    Bytes value;
    ASSERT_TRUE(reader.octets(&value));
    EXPECT_EQ(std::string(value.begin(), value.end()), text);
    EXPECT_TRUE(reader.at_end());
  }
}

TEST(PduOctets, LengthBeyondTheInputIsRefused) {
  for (const int first : {0xff, 0x00}) {
    Octets input;
    append(&input, {first, first, first, first == 0 ? 5 : 0xff, 'a', 'b', 'c', 'd'});
    Reader reader(input, true);
    Bytes value;
    EXPECT_FALSE(reader.octets(&value));
    EXPECT_TRUE(reader.at_end()) << "a failed reader has nothing left";
  }
}

TEST(PduVarBind, EveryTypeIsReadBack) {
  Octets output;
  Writer writer(&output);
  const Oid instance{1, 0};
  for (const ValueType type :
       {ValueType::kInteger, ValueType::kCounter32, ValueType::kGauge32, ValueType::kTimeTicks}) {
    writer.var_bind(type, kColumn.view(), instance.view());
    writer.number32(0xfffffffe);
  }
  writer.var_bind(ValueType::kOctetString, kColumn.view(), instance.view());
  writer.octets("abcde");
  writer.var_bind(ValueType::kObjectIdentifier, kColumn.view(), instance.view());
  writer.name(kColumn.view());
  for (const ValueType type :
       {ValueType::kNull, ValueType::kNoSuchObject, ValueType::kNoSuchInstance, ValueType::kEndOfMibView}) {
    writer.var_bind(type, kColumn.view(), instance.view());
  }
  Reader reader(output, true);
  for (int i = 0; i < 10; ++i) {
    Oid name;
    Value value;
    ASSERT_TRUE(reader.var_bind(&name, &value)) << i;
    EXPECT_EQ(name.size(), kColumn.size() + 2);
    EXPECT_EQ(value.number, i < 4 ? 0xfffffffeU : 0U) << i;
    EXPECT_EQ(value.octets.size(), i == 4 ? 5U : 0U) << i;
    EXPECT_EQ(value.name.size(), i == 5 ? kColumn.size() : 0U) << i;
  }
  EXPECT_TRUE(reader.at_end());
}

TEST(PduVarBind, UnknownTypeIsRefused) {
  Octets input;
  append(&input, {0, 3, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1});
  Reader reader(input, true);
  Oid name;
  Value value;
  EXPECT_FALSE(reader.var_bind(&name, &value));
}

TEST(PduReader, EveryTruncationOfASearchRangeIsRefused) {
  Octets output;
  Writer writer(&output);
  writer.name(kColumn.view(), Oid{3, 82, 69, 68}.view(), true);
  writer.name(kColumn.view());
  for (std::size_t length = 0; length < output.size(); ++length) {
    Reader reader(Bytes(output).first(length), true);
    SearchRange range;
    EXPECT_FALSE(reader.search_range(&range)) << length;
  }
  Reader reader(output, true);
  SearchRange range;
  ASSERT_TRUE(reader.search_range(&range));
  EXPECT_TRUE(range.include);
  EXPECT_EQ(range.start.size(), kColumn.size() + 4);
  EXPECT_EQ(range.end.size(), kColumn.size());
}

TEST(PduOpen, HasTimeoutIdentifierAndDescription) {
  Octets output;
  Writer writer(&output);
  write_open(&writer, 5, "name");
  Header header;
  ASSERT_EQ(read_header(output, &header), HeaderState::kGood);
  EXPECT_EQ(header.type, PduType::kOpen);
  EXPECT_EQ(header.packet, 5U);
  EXPECT_EQ(header.payload, output.size() - kHeaderSize);
  EXPECT_EQ(payload_of(output), (Octets{0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 4, 'n', 'a', 'm', 'e'}));
}

TEST(PduRegister, HasPriorityAndSubtreeWithoutRange) {
  for (const bool unregister : {false, true}) {
    Octets output;
    Writer writer(&output);
    (unregister ? write_unregister : write_register)(&writer, 3, 6, Oid{1, 3, 6, 1, 2, 1}.view());
    Header header;
    ASSERT_EQ(read_header(output, &header), HeaderState::kGood);
    EXPECT_EQ(header.type, unregister ? PduType::kUnregister : PduType::kRegister);
    EXPECT_EQ(header.session, 3U);
    EXPECT_EQ(payload_of(output), (Octets{0, 127, 0, 0, 1, 2, 0, 0, 0, 0, 0, 1}));
  }
}

TEST(PduClose, CarriesTheReason) {
  Octets output;
  Writer writer(&output);
  write_close(&writer, 3, 6);
  EXPECT_EQ(payload_of(output), (Octets{5, 0, 0, 0}));
}

TEST(PduNotify, VariablesFollowTheHeader) {
  Octets output;
  Writer writer(&output);
  Header header;
  header.type = PduType::kNotify;
  header.session = 4;
  writer.begin(header);
  writer.var_bind(ValueType::kObjectIdentifier, Oid{1, 3, 6, 1, 6, 3, 1, 1, 4, 1, 0}.view());
  writer.name(Oid{1, 3, 6, 1, 2, 1, 10, 166, 11, 0, 1}.view());
  writer.end();
  Header read;
  ASSERT_EQ(read_header(output, &read), HeaderState::kGood);
  EXPECT_EQ(read.type, PduType::kNotify);
  Reader reader(Bytes(output).subspan(kHeaderSize), true);
  Oid name;
  Value value;
  ASSERT_TRUE(reader.var_bind(&name, &value));
  EXPECT_EQ(oid::to_text(value.name.view()), "1.3.6.1.2.1.10.166.11.0.1");
}

TEST(PduResponse, AnswersUnderTheRequestsNumbers) {
  Header request;
  request.type = PduType::kGet;
  request.flags = 0;
  request.session = 11;
  request.transaction = 22;
  request.packet = 33;
  Octets output;
  Writer writer(&output);
  begin_response(&writer, request, Error::kGenErr, 7);
  writer.end();
  Header header;
  ASSERT_EQ(read_header(output, &header), HeaderState::kGood);
  EXPECT_EQ(header.type, PduType::kResponse);
  EXPECT_EQ(header.session, 11U);
  EXPECT_EQ(header.transaction, 22U);
  EXPECT_EQ(header.packet, 33U);
  Reader reader(Bytes(output).subspan(kHeaderSize), true);
  Response response;
  ASSERT_TRUE(reader.response(&response));
  EXPECT_EQ(response.error, 5);
  EXPECT_EQ(response.index, 7);
}

TEST(PduError, KnownErrorsHaveNames) {
  EXPECT_EQ(error_text(263), "duplicateRegistration");
  EXPECT_EQ(error_text(999), "error 999");
}

}  // namespace
