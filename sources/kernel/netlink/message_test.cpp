// What the messages that control a dump mean.
#include "sources/kernel/netlink/message.h"

#include <gtest/gtest.h>
#include <linux/netlink.h>
#include <linux/rtnetlink.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "sources/kernel/test_support.h"

namespace kernel {
namespace {

using Kind = DumpControl::Kind;

DumpControl Read(std::uint16_t type, int error, std::size_t payload) {
  MessageBuffer buffer;
  nlmsghdr* message = buffer.Begin(type, 0);
  if (payload != 0) {
    std::memcpy(mnl_nlmsg_put_extra_header(message, payload), &error, std::min(payload, sizeof error));
  }
  return read_dump_control(message);
}

TEST(DumpControlMessage, DumpEnds) {
  EXPECT_EQ(Read(NLMSG_DONE, 0, sizeof(int)).kind, Kind::kDone);
  EXPECT_EQ(Read(NLMSG_DONE, 0, 0).kind, Kind::kDone);
}

TEST(DumpControlMessage, DumpEndWithAnErrorIsAFailure) {
  const DumpControl control = Read(NLMSG_DONE, -ENOMEM, sizeof(int));
  EXPECT_EQ(control.kind, Kind::kFailed);
  EXPECT_EQ(control.error, ENOMEM);
}

TEST(DumpControlMessage, RefusalHasItsErrno) {
  const DumpControl control = Read(NLMSG_ERROR, -EPERM, sizeof(nlmsgerr));
  EXPECT_EQ(control.kind, Kind::kFailed);
  EXPECT_EQ(control.error, EPERM);
}

TEST(DumpControlMessage, AcknowledgementEndsNoDump) {
  EXPECT_EQ(Read(NLMSG_ERROR, 0, sizeof(nlmsgerr)).kind, Kind::kNone);
}

TEST(DumpControlMessage, ShortErrorIsMalformed) {
  EXPECT_EQ(Read(NLMSG_ERROR, -EPERM, sizeof(int)).kind, Kind::kMalformed);
}

TEST(DumpControlMessage, NumbersThatAreNoErrnoAreNoError) {
  EXPECT_EQ(Read(NLMSG_DONE, -4096, sizeof(int)).kind, Kind::kDone);
  EXPECT_EQ(Read(NLMSG_DONE, 17, sizeof(int)).kind, Kind::kDone);
}

TEST(DumpControlMessage, OverrunIsALoss) {
  const DumpControl control = Read(NLMSG_OVERRUN, 0, sizeof(int));
  EXPECT_EQ(control.kind, Kind::kFailed);
  EXPECT_EQ(control.error, ENOBUFS);
}

TEST(DumpControlMessage, ContentIsNone) {
  EXPECT_EQ(Read(RTM_NEWROUTE, -EPERM, sizeof(nlmsgerr)).kind, Kind::kNone);
}

}  // namespace
}  // namespace kernel
