// Tests of payloads and frames.
#include "platform/core/wire/wire.h"

#include <gtest/gtest.h>

#include "platform/core/wire/test_server.h"

namespace wire {
namespace {

TEST(Payload, EveryKindOfValueIsReadBack) {
  Octets octets;
  Writer writer(&octets);
  writer.u8(0xfe);
  writer.u16(0xfedc);
  writer.u32(0xfedcba98);
  writer.u64(0xfedcba9876543210);
  writer.text("red");
  writer.text("");
  const Octets three{1, 2, 3};
  writer.octets(three);
  Reader reader(octets);
  EXPECT_EQ(reader.u8(), 0xfe);
  EXPECT_EQ(reader.u16(), 0xfedc);
  EXPECT_EQ(reader.u32(), 0xfedcba98);
  EXPECT_EQ(reader.u64(), 0xfedcba9876543210);
  EXPECT_EQ(reader.text(), "red");
  EXPECT_EQ(reader.text(), "");
  const OctetSpan read = reader.octets();
  EXPECT_EQ(Octets(read.begin(), read.end()), three);
  EXPECT_TRUE(reader.finished());
}

TEST(Payload, IntegersAreLittleEndian) {
  Octets octets;
  Writer(&octets).u32(0x01020304);
  EXPECT_EQ(octets, (Octets{4, 3, 2, 1}));
}

TEST(Payload, ReadingBeyondTheEndFailsForGood) {
  const Octets octets{1, 2, 3};
  Reader reader(octets);
  EXPECT_EQ(reader.u32(), 0U);
  EXPECT_FALSE(reader.ok());
  EXPECT_EQ(reader.u8(), 0);  // though there was an octet
  EXPECT_EQ(reader.left(), 0U);
  EXPECT_FALSE(reader.finished());
}

TEST(Payload, LengthBeyondTheEndFails) {
  Octets octets;
  Writer(&octets).u32(0xffffffff);
  octets.push_back('x');
  Reader reader(octets);
  EXPECT_EQ(reader.text(), "");
  EXPECT_FALSE(reader.ok());
}

TEST(Payload, OctetsLeftOverAreNoticed) {
  const Octets octets{1, 2};
  Reader reader(octets);
  reader.u8();
  EXPECT_TRUE(reader.ok());
  EXPECT_FALSE(reader.finished());
  EXPECT_EQ(reader.left(), 1U);
}

TEST(Payload, WriterPatchesAndTruncates) {
  Octets octets;
  Writer writer(&octets);
  writer.u32(0);
  writer.u8(9);
  writer.patch_u32(0, 5);
  writer.truncate(4);
  EXPECT_EQ(octets, (Octets{5, 0, 0, 0}));
}

TEST(FrameTest, WholeMessageIsFoundAndMeasured) {
  Octets data = Frame(kEcho, 42, {1, 2, 3});
  data.push_back(0xff);  // of the next one
  Message message;
  std::size_t used = 0;
  ASSERT_EQ(parse_frame(data, 100, &message, &used), kStatusOk);
  EXPECT_EQ(used, kHeaderSize + 3);
  EXPECT_EQ(message.type, kEcho);
  EXPECT_EQ(message.request, 42U);
  EXPECT_EQ(message.payload.size(), 3U);
}

TEST(FrameTest, EveryTruncationAsksForMore) {
  const Octets frame = Frame(kEcho, 1, {1, 2, 3});
  for (std::size_t size = 0; size < frame.size(); ++size) {
    Message message;
    std::size_t used = 0;
    EXPECT_EQ(parse_frame(OctetSpan(frame).first(size), 100, &message, &used), kStatusIncomplete) << size;
    EXPECT_EQ(used, size < kHeaderSize ? kHeaderSize : frame.size()) << size;
  }
}

TEST(FrameTest, BadMagicVersionAndSizeAreDetected) {
  Message message;
  std::size_t used = 0;
  Octets bad_magic = Frame(kEcho, 1, {});
  bad_magic[0] ^= 1;
  EXPECT_EQ(parse_frame(bad_magic, 100, &message, &used), kStatusBadMessage);
  Octets other_version = Frame(kEcho, 1, {});
  other_version[4] = kVersion + 1;
  EXPECT_EQ(parse_frame(other_version, 100, &message, &used), kStatusVersionMismatch);
  EXPECT_EQ(parse_frame(Frame(kEcho, 1, Octets(101)), 100, &message, &used), kStatusMessageTooLarge);
  EXPECT_EQ(parse_frame(Frame(kEcho, 1, Octets(100)), 100, &message, &used), kStatusOk);
}

}  // namespace
}  // namespace wire
