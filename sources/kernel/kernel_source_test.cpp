// The kernel source follows a real kernel: what exists, and every change of it.
#include "sources/kernel/kernel_source.h"

#include "sources/kernel/live_kernel_test_support.h"

namespace kernel {
namespace {

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

TEST_F(LiveKernel, LoadFindsWhatExists) {
  AddVeth("v0", "v1");
  Ip("addr add 10.0.0.1/24 dev v0");
  Ip("link set v0 alias 'to the customer'");
  Start();
  EXPECT_TRUE(IsUp("lo"));
  EXPECT_THAT(AddressesOf("lo"), testing::StartsWith("127.0.0.1/8"));
  ASSERT_NE(Find("v0"), nullptr);
  EXPECT_FALSE(IsUp("v0"));
  EXPECT_EQ(VrfOf("v0"), "default");
  EXPECT_EQ(DescriptionOf("v0"), "to the customer");
  EXPECT_EQ(Find("v0")->index, if_nametoindex("v0"));
  EXPECT_EQ(AddressesOf("v0"), "10.0.0.1/24");
}

TEST_F(LiveKernel, NoEventIsMissedBetweenLoadAndStart) {
  ASSERT_EQ(Load(), kStatusOk) << error_;
  AddVeth("v0", "v1");
  ASSERT_EQ(source_->start(manager_), kStatusOk);
  Settle();
  EXPECT_NE(Find("v0"), nullptr);
  EXPECT_NE(Find("v1"), nullptr);
}

TEST_F(LiveKernel, SecondLoadAppliesTheDifferenceOnly) {
  AddVeth("v0", "v1");
  Start();
  ASSERT_EQ(source_->load(&error_), kStatusOk);
  EXPECT_THAT(listener_.TakeLines(), IsEmpty());
  Ip("link set v0 name v9");
  ASSERT_EQ(source_->load(&error_), kStatusOk);
  EXPECT_THAT(listener_.TakeLines(), ElementsAre("renamed v0 to v9"));
  EXPECT_THAT(SettledLines(), IsEmpty());
}

TEST_F(LiveKernel, CreationAndDeletionAreFollowed) {
  Start();
  AddVeth("v0", "v1");
  EXPECT_THAT(SettledLines(),
              testing::UnorderedElementsAre("added v0 in default down", "added v1 in default down"));
  Ip("link del v0");
  EXPECT_THAT(SettledLines(),
              testing::UnorderedElementsAre("removed v0 in default", "removed v1 in default"));
}

TEST_F(LiveKernel, CreationAndDeletionInOneBurstCauseNoNotification) {
  Start();
  AddVeth("v0", "v1");
  Ip("link del v0");
  EXPECT_THAT(SettledLines(), IsEmpty());
}

TEST_F(LiveKernel, RenameAndSwapKeepTheHandles) {
  AddVeth("va", "vb");
  Start();
  const std::uint32_t first = HandleOf("va");
  const std::uint32_t second = HandleOf("vb");
  Batch("link set va name tmp\nlink set vb name va\nlink set tmp name vb\n");
  Settle();
  EXPECT_EQ(HandleOf("vb"), first);
  EXPECT_EQ(HandleOf("va"), second);
  EXPECT_EQ(Find("tmp"), nullptr);
  ExpectModelEqualsKernel();
}

TEST_F(LiveKernel, NameFreedAndTakenInOneBurst) {
  AddVeth("va", "vb");
  Start();
  Batch("link set va name vc\nlink add va type veth peer name vd\n");
  Settle();
  EXPECT_EQ(model_.interface_count(), 5U);
  ExpectModelEqualsKernel();
  EXPECT_EQ(source_->counters().refused, 0U);
}

TEST_F(LiveKernel, DeletedAndCreatedInOneBurstIsANewInterface) {
  AddVeth("va", "vb");
  Start();
  const std::uint32_t before = HandleOf("va");
  const std::uint32_t index = if_nametoindex("va");
  Batch("link del va\nlink add va index " + std::to_string(index) + " type veth peer name vb\n");
  Settle();
  ASSERT_EQ(if_nametoindex("va"), index);
  EXPECT_NE(HandleOf("va"), before);
  ExpectModelEqualsKernel();
}

TEST_F(LiveKernel, UpNeedsThePeerToo) {
  AddVeth("v0", "v1");
  Start();
  Ip("link set v0 up");
  Settle();
  EXPECT_FALSE(IsUp("v0"));
  Ip("link set v1 up");
  EXPECT_TRUE(EventuallyTrue([&] { return IsUp("v0") && IsUp("v1"); }));
  Ip("link set v1 down");
  EXPECT_TRUE(EventuallyTrue([&] { return !IsUp("v0"); }));
  EXPECT_FALSE(IsUp("v1"));
}

TEST_F(LiveKernel, LoopbackWhoseStateIsUnknownFollowsItsAdministrativeState) {
  Start();
  EXPECT_TRUE(IsUp("lo"));
  Ip("link set lo down");
  Settle();
  EXPECT_FALSE(IsUp("lo"));
}

TEST_F(LiveKernel, AddressesAreFollowedInTheKernelsOrder) {
  AddVeth("v0", "v1");
  Start();
  Ip("addr add 10.0.0.1/24 dev v0");
  Ip("addr add 10.0.0.2/24 dev v0");
  Ip("addr add 10.1.0.1/24 dev v0");
  Ip("addr add 169.254.1.1/16 scope link dev v0");
  Settle();
  EXPECT_EQ(AddressesOf("v0"), "169.254.1.1/16 10.0.0.1/24 10.1.0.1/24 10.0.0.2/24");
  ExpectModelEqualsKernel();
  ASSERT_EQ(Shell("echo 1 > /proc/sys/net/ipv4/conf/v0/promote_secondaries"), 0);
  Ip("addr del 10.0.0.1/24 dev v0");
  Settle();
  EXPECT_EQ(AddressesOf("v0"), "169.254.1.1/16 10.1.0.1/24 10.0.0.2/24");
  ExpectModelEqualsKernel();
  Ip("addr flush dev v0");
  Settle();
  EXPECT_EQ(AddressesOf("v0"), "");
}

TEST_F(LiveKernel, PointToPointAddressIsTheLocalOne) {
  AddVeth("v0", "v1");
  Start();
  Ip("addr add 10.0.0.1 peer 10.0.0.2/32 dev v0");
  Settle();
  EXPECT_EQ(AddressesOf("v0"), "10.0.0.1/32");
}

TEST_F(LiveKernel, Ipv6AddressesAreFollowed) {
  AddVeth("v0", "v1");
  if (!TryIp("-6 addr add 2001:db8::1/64 dev v0 nodad")) GTEST_SKIP() << "SKIPPED: no IPv6";
  Start();
  EXPECT_EQ(AddressesOf("v0"), "2001:db8::1/64");
  Ip("-6 addr add 2001:db8::2/64 dev v0 nodad");  // announced by a worker of the kernel
  EXPECT_TRUE(EventuallyTrue([&] { return AddressesOf("v0") == "2001:db8::1/64 2001:db8::2/64"; }));
  Ip("-6 addr del 2001:db8::1/64 dev v0");
  EXPECT_TRUE(EventuallyTrue([&] { return AddressesOf("v0") == "2001:db8::2/64"; }));
}

TEST_F(LiveKernel, Ipv6AddressCountsWhenItIsKnownToBeUnique) {
  AddVeth("v0", "v1");
  Ip("link set v1 up");
  Ip("link set v0 up");
  Start();
  if (!TryIp("-6 addr add 2001:db8::1/64 dev v0")) GTEST_SKIP() << "SKIPPED: no IPv6";
  ASSERT_EQ(source_->load(&error_), kStatusOk);
  EXPECT_EQ(AddressesOf("v0").find("2001:db8::1"), std::string::npos);
  EXPECT_TRUE(EventuallyTrue([&] { return AddressesOf("v0").find("2001:db8::1/64") != std::string::npos; }));
}

TEST_F(LiveKernel, AliasOfALinkThatIsUpIsFollowedAtOnce) {
  AddVeth("v0", "v1");
  Ip("link set v0 up");
  Start();
  Ip("link set v0 alias 'new text'");
  EXPECT_THAT(SettledLines(), Contains("v0 'new text'"));
}

TEST_F(LiveKernel, AliasOfALinkThatIsDownIsFoundByTheNextDump) {
  AddVeth("v0", "v1");
  Start();
  Ip("link set v0 alias 'new text'");
  Settle();
  EXPECT_EQ(DescriptionOf("v0"), "");  // the kernel did not announce it
  clock_.advance(30 * kNanosecondsPerSecond);
  EXPECT_THAT(SettledLines(), ElementsAre("v0 'new text'"));
  Ip("link set v0 alias 'newer'");
  clock_.advance(30 * kNanosecondsPerSecond);
  EXPECT_THAT(SettledLines(), ElementsAre("v0 'newer'"));  // again at the next interval
}

TEST_F(LiveKernel, BridgeAndItsPortsStayInDefault) {
  AddVeth("v0", "v1");
  Ip("link add br0 type bridge");
  Start();
  Ip("link set v0 master br0");
  Settle();
  EXPECT_EQ(VrfOf("v0"), "default");
  Ip("link set v0 nomaster");  // announced as a deletion, in the bridge's family
  Settle();
  EXPECT_NE(Find("v0"), nullptr);
  ExpectModelEqualsKernel();
}

}  // namespace
}  // namespace kernel
