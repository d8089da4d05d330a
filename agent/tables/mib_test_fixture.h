// The module over a simulated daemon, and the requests of a manager.
#pragma once

#include <gtest/gtest.h>

#include <array>
#include <string>
#include <vector>

#include "agent/tables/l3vpn_tables.h"
#include "agent/tables/mib.h"
#include "agent/tables/tables_test_support.h"
#include "platform/core/base/clock.h"

namespace agent_test {

inline oid::Oid name_of(const tables::Variable& variable) {
  oid::Oid name(variable.object);
  EXPECT_TRUE(name.append(variable.instance));
  return name;
}

class MibTest : public testing::Test {
 protected:
  tables::Answer Get(const oid::Oid& name) {
    mib_.begin_requests(clock_monotonic());
    return mib_.get(name.view(), &variable_);
  }
  std::uint32_t Number(const oid::Oid& name) {
    EXPECT_EQ(Get(name), tables::Answer::kValue) << oid::to_text(name.view());
    EXPECT_TRUE(oid::compare(name_of(variable_).view(), name.view()) == 0);
    return variable_.cell.number;
  }
  // The name found, "end" or "failed".
  std::string Next(const oid::Oid& start, bool include = false, const oid::Oid& end = {}) {
    mib_.begin_requests(clock_monotonic());
    switch (mib_.next(start.view(), include, end.view(), &variable_)) {
      case tables::Answer::kValue:
        return oid::to_text(name_of(variable_).view());
      case tables::Answer::kFailed:
        return "failed";
      default:
        return "end";
    }
  }
  static std::string Text(const oid::Oid& name) { return oid::to_text(name.view()); }

  std::vector<oid::Oid> Walk() {
    std::vector<oid::Oid> names;
    oid::Oid at = parse_oid("1.3.6.1.2.1.10.166.11");
    while (mib_.next(at.view(), false, {}, &variable_) == tables::Answer::kValue) {
      at = name_of(variable_);
      names.push_back(at);
      if (names.size() > 100'000) break;
    }
    return names;
  }

  void AddMembers() {
    daemon_.AddInterface("RED", 11);
    daemon_.AddInterface("RED", 300000, 0x44);
    daemon_.AddInterface("IP", 14);
    daemon_.AddInterface("LONG", 15);
  }

  ManualClock clock_{1000 * kNanosecondsPerSecond};
  FakeDaemon daemon_;
  tables::Mib mib_{tables::l3vpn_tables(), daemon_, kNanosecondsPerSecond};
  tables::Variable variable_;
};

// Entries below mplsL3VpnObjects.
inline constexpr const char* kVrf = "2.2.1";
inline constexpr const char* kRt = "2.3.1";
inline constexpr const char* kSecurity = "2.6.1";
inline constexpr const char* kPerformance = "3.1.1";
inline constexpr const char* kRoute = "4.1.1";

class L3vpnTablesTest : public MibTest {
 protected:
  std::string Text(const oid::Oid& name) {
    EXPECT_EQ(Get(name), tables::Answer::kValue) << oid::to_text(name.view());
    EXPECT_TRUE(is_octet_string(variable_.type)) << oid::to_text(name.view());
    return {variable_.cell.octets.begin(), variable_.cell.octets.end()};
  }
  // "number syntax", or the text of an octet string
  std::string Shown(const oid::Oid& name) {
    static constexpr std::array kNames = {"integer", "truth", "unsigned", "gauge", "counter", "ticks"};
    const std::uint32_t number = Number(name);
    if (is_octet_string(variable_.type)) return {variable_.cell.octets.begin(), variable_.cell.octets.end()};
    return std::to_string(number) + " " + kNames.at(static_cast<std::size_t>(variable_.type));
  }
  // The columns from this one to the last; the following one is not an object.
  std::vector<std::string> Row(const std::string& entry, std::uint32_t column, const std::string& vrf,
                               const std::string& rest = "") {
    std::vector<std::string> row;
    for (; Get(cell(entry, column, vrf, rest)) == tables::Answer::kValue; ++column) {
      row.push_back(Shown(cell(entry, column, vrf, rest)));
    }
    EXPECT_EQ(Get(cell(entry, column, vrf, rest)), tables::Answer::kNoSuchObject);
    return row;
  }
  // The instances of one column, in the order of a walk.
  std::vector<std::string> Column(const std::string& entry, std::uint32_t column) {
    oid::Oid object = parse_oid("1.3.6.1.2.1.10.166.11.1." + entry);
    EXPECT_TRUE(object.append(column));
    oid::Oid end = object;
    ++end[end.size() - 1];
    std::vector<std::string> instances;
    oid::Oid at = object;
    tables::Answer answer = tables::Answer::kValue;
    while ((answer = mib_.next(at.view(), false, end.view(), &variable_)) == tables::Answer::kValue) {
      const oid::Oid found = name_of(variable_);
      EXPECT_TRUE(oid::compare(found.view(), at.view()) > 0);
      at = found;
      instances.push_back(oid::to_text(variable_.instance));
      if (instances.size() > 10'000) break;
    }
    EXPECT_EQ(answer, tables::Answer::kEnd);
    return instances;
  }
  void AddEverything() {
    for (const char* vrf : {"blue", "red", "a", "empty"})
      daemon_.AddVrf(vrf, {"of " + std::string(vrf), "65000:1", {}});
    daemon_.AddInterface("red", 11);
    daemon_.AddInterface("blue", 12);
    for (const char* vrf : {"red", "blue"}) {
      daemon_.AddRouteTarget(vrf, 1, "65000:1", "IPv4 Unicast");
      daemon_.AddRouteTarget(vrf, 2, "65000:1", "IPv4 Unicast");
      daemon_.AddRouteTarget(vrf, 2, "65000:2", "IPv6 Unicast");
    }
    daemon_.AddRoute("red", "0.0.0.0/0", "", 2);
    daemon_.AddRoute("red", "10.0.0.0/8", "", 3);
    daemon_.AddRoute("red", "10.0.0.0/8", "192.0.2.1");
    daemon_.AddRoute("red", "10.0.0.0/16", "192.0.2.1");
    daemon_.AddRoute("red", "2001:db8::/32", "2001:db8::1");
    daemon_.AddRoute("a", "10.0.0.0/24", "192.0.2.1");
    daemon_.AddRoute("blue", "::/0", "", 2);
    daemon_.AddRoute("blue", "2001:db8::/64", "", 3);
    daemon_.AddRoute("blue", "10.9.0.0/16", "", 3);
  }
};

}  // namespace agent_test
