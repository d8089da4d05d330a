// For tests of routes against a real kernel: the tables 10 and 20 of a namespace, without VRF devices,
// represent the tables of the VRFs red and blue, which the test adds to the model itself.
#pragma once

#include <gmock/gmock.h>
#include <net/if.h>

#include <algorithm>
#include <array>
#include <string>
#include <vector>

#include "sources/kernel/live_kernel_test_support.h"
#include "sources/kernel/route_state/route_messages_test_support.h"

namespace kernel {

inline constexpr router::RouteTableId kBlue4{router::Family::kIpv4, 20};

class LiveRoutes : public LiveKernel {
 protected:
  void SetUp() override {
    LiveKernel::SetUp();
    if (IsSkipped()) return;
    AddVeth("v0", "v1");
    AddVeth("w0", "w1");
    Batch(
        "link set v0 up\nlink set v1 up\nlink set w0 up\nlink set w1 up\n"
        "addr add 10.0.0.1/24 dev v0\naddr add 10.1.0.1/24 dev w0\n"
        "addr add 2001:db8:10::1/64 dev v0 nodad\naddr add 2001:db8:11::1/64 dev w0 nodad\n");
  }
  void MakeVrf(const std::string& name, std::uint32_t table, bool with_ipv6 = true) {
    router::Vrf vrf;
    vrf.name = name;
    vrf.id = next_id_++;
    vrf.ipv4_table = table;
    vrf.ipv6_table = with_ipv6 ? table : 0;
    ASSERT_EQ(model_.create_vrf(vrf), kStatusOk);
  }
  // The changes happen while the kernel has no room for announcements.
  void LoseAnnouncements(const std::string& changes) {
    const ScopedFault loss("netlink_route_receive", ENOBUFS, 1, 1);
    Batch(changes);
    event_run_pending(manager_);
  }
  void DeleteVrf(const std::string& name) { ASSERT_EQ(model_.delete_vrf(name), kStatusOk); }
  void StartWithRed(const KernelSourceSettings& settings = {}) {
    MakeVrf("red", 10);
    Start(settings);
    Settle();
  }
  static void AddRoute(const std::string& route) { Ip("route add " + route); }
  // Routes 10.x.y.0/24 of table 10.
  static void AddManyRoutes(int count) {
    std::string lines;
    for (int each = 0; each < count; ++each) {
      lines += "route add 11." + std::to_string(each / 250) + "." + std::to_string(each % 250) +
               ".0/24 via 10.0.0.2 table 10\n";
    }
    Batch(lines);
  }
  // Of 3000 routes the first 300 are rows, and the table is being read.
  void ReadAPartOfManyRoutes() {
    AddManyRoutes(3000);
    MakeVrf("red", 10);
    Start({.batch = 8});  // one datagram per iteration
    ASSERT_TRUE(RunUntil([this] { return Rows().size() > 300; }));
  }
  static void ObjectsOnly() { ASSERT_EQ(Shell("sysctl -qw net.ipv4.nexthop_compat_mode=0"), 0); }

  std::vector<std::string> Rows(router::RouteTableId table = kRed4) const {
    return router::Walk(model_.routes(), table);
  }
  std::vector<std::string> SettledRows(router::RouteTableId table = kRed4) {
    Settle();
    return Rows(table);
  }
  router::Route Row(const std::string& prefix, const std::string& next_hop = "") const {
    router::Route row;
    EXPECT_TRUE(model_.routes().find(kRed4, router::MakeKey(prefix, next_hop), &row)) << prefix;
    return row;
  }
  // "10.0.0.0/24 via 10.0.0.2 dev v0 remote" of each row, with the labels if there are any.
  std::vector<std::string> Described(router::RouteTableId table) const {
    std::vector<std::string> lines;
    router::Route row;
    for (bool more = model_.routes().find_first(table, &row); more;
         more = model_.routes().find_next(table, row.key, &row)) {
      std::array<char, IF_NAMESIZE> device{};
      std::string line =
          router::Text(table.family, row.key) + " dev " +
          (if_indextoname(row.interface_index, device.data()) != nullptr ? device.data() : "-") +
          (row.type == router::RouteType::kRemote ? " remote" : " local");
      for (const std::uint32_t label : row.labels) line += " label " + std::to_string(label);
      lines.push_back(std::move(line));
    }
    std::ranges::sort(lines);
    return lines;
  }
  std::uint32_t AgeOf(const std::string& prefix, const std::string& next_hop = "") const {
    return router::route_age(Row(prefix, next_hop));
  }
  KernelRouteCounters Counters() const { return source_->counters().routes; }
  // Runs the loop until the condition is true, without advancing the clock. False when nothing is left to do.
  template <class Condition>
  bool RunUntil(Condition condition) {
    for (int iteration = 0; iteration < 10'000; ++iteration) {
      if (condition()) return true;
      if (!RunOnce()) return false;
    }
    return false;
  }

 private:
  std::uint32_t next_id_ = 100;
};

}  // namespace kernel
