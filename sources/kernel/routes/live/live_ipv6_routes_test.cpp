// Changes of IPv6 routes while their tables are read.
#include "sources/kernel/routes/live/live_routes_test_support.h"

namespace kernel {
namespace {

// The kernel begins its walk over an IPv6 table again and skips as many prefixes as it has shown.
class LiveIpv6Routes : public LiveRoutes {
 protected:
  static constexpr int kLow = 500;
  static constexpr int kHigh = 3000;
  static constexpr router::RouteTableId kRed6{router::Family::kIpv6, 10};

  static void ForEach(const char* command, const char* prefix, int count) {
    std::string lines;
    for (int each = 1; each <= count; ++each)
      lines += std::string("route ") + command + " " + prefix + std::to_string(each) +
               "::/64 via 2001:db8:10::2 dev v0 table 10\n";
    Batch(lines);
  }
  void SetUp() override {
    LiveRoutes::SetUp();
    if (IsSkipped()) return;
    ForEach("add", "2001:db8:a:", kLow);
    ForEach("add", "2001:db8:b:", kHigh);
    MakeVrf("red", 10);
    Start({.batch = 8});  // one datagram per iteration
  }
  // The kernel begins again after an addition.
  static void ReplaceLow() {
    ForEach("del", "2001:db8:a:", kLow);
    ForEach("add", "2001:db8:c:", 1);
  }
  std::size_t Count() const { return model_.routes().count(kRed6); }
};

TEST_F(LiveIpv6Routes, DeletionsDuringTheFirstReadingHideNoOtherRoutes) {
  ASSERT_TRUE(RunUntil([this] { return Count() > 1000; }));
  ASSERT_LT(Count(), 2000U);
  ReplaceLow();
  Settle();
  EXPECT_EQ(Count(), std::size_t{kHigh + 1});
  EXPECT_EQ(Counters().corrections, 0U);
}

TEST_F(LiveIpv6Routes, DeletionsDuringAVerificationRemoveNoOtherRoutes) {
  Settle();
  ASSERT_EQ(Count(), std::size_t{kLow + kHigh});
  const ScopedFault counted("netlink_route_dump_receive", EMFILE, 1'000'000, 1);
  clock_.advance(KernelSourceSettings{}.route_reread);
  ASSERT_TRUE(RunUntil([] { return fault_reached("netlink_route_dump_receive") > 8; }));
  ReplaceLow();
  Settle();
  EXPECT_EQ(Count(), std::size_t{kHigh + 1});
  EXPECT_EQ(Counters().corrections, 0U);
}

// ... although every reading is disturbed.
TEST_F(LiveIpv6Routes, ConstantChangesDuringTheFirstReadingsHideNoOtherRoutes) {
  for (int change = 0; change < 60; ++change) {
    ForEach(change % 2 == 0 ? "del" : "add", "2001:db8:a:", kLow);
    ForEach(change % 2 == 0 ? "add" : "del", "2001:db8:c:", 1);
    for (int iteration = 0; iteration < 8; ++iteration) RunOnce(kNanosecondsPerMillisecond);
    clock_.advance(kSettle);
  }
  Settle();
  EXPECT_EQ(Count(), std::size_t{kHigh + kLow});
}

}  // namespace
}  // namespace kernel
