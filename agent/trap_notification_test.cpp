// Every trap type as a master agent receives it, and records that are not traps.
#include "agent/trap_notification.h"

#include <gmock/gmock.h>

#include "agent/agentx/master_test_support.h"
#include "agent/notify.h"
#include "agent/tables/tables_test_support.h"

namespace {

using agent_test::Bound;
using ::testing::ElementsAre;

kvtree::Octets encoded(std::uint32_t type, std::string vrf = "RED") {
  const mpls_vpn_mib_trap trap = {type, vrf.data(), 7, 2, 1, 100, 200, 4'000'000'000, 5};
  return agent_test::encode(kMibTrapParcel, &trap);
}

Status write_trap(const kvtree::Octets& record, agentx::Writer* writer) {
  agent::TrapNotification notification;
  if (const Status status = agent::read_trap(record, &notification)) return status;
  agent::write_notification(notification, writer);
  return kStatusOk;
}

// "name type value" of each variable; names without what all share.
std::vector<std::string> variables(const kvtree::Octets& record) {
  std::vector<std::uint8_t> octets;
  agentx::Writer writer(&octets);
  EXPECT_EQ(write_trap(record, &writer), kStatusOk);
  std::vector<std::string> all;
  agentx::Reader reader(octets, true);
  for (Bound& variable : agent_test::read_variables(&reader)) {
    const std::string common = "1.3.6.1.2.1.10.166.11.";
    if (variable.name.starts_with(common)) variable.name.erase(0, common.size());
    all.push_back(variable.name + " " + std::to_string(static_cast<unsigned>(variable.type)) + " " +
                  variable.text);
  }
  return all;
}

std::string trap_oid(int number) {
  return "1.3.6.1.6.3.1.1.4.1.0 6 1.3.6.1.2.1.10.166.11.0." + std::to_string(number);
}

TEST(TrapNotification, VrfUpAndDownCarryTheStatusOfInterfaceAndVrf) {
  for (const std::uint32_t type : {0U, 1U}) {
    EXPECT_THAT(variables(encoded(type)),
                ElementsAre(trap_oid(static_cast<int>(type) + 1), "1.2.1.1.5.3.82.69.68.7 2 1",
                            "1.2.2.1.6.3.82.69.68 2 2"));
  }
}

TEST(TrapNotification, MidThresholdCarriesRoutesAndMidThreshold) {
  EXPECT_THAT(variables(encoded(2)),
              ElementsAre(trap_oid(3), "1.3.1.1.3.3.82.69.68 66 4000000000", "1.2.2.1.9.3.82.69.68 66 100"));
}

TEST(TrapNotification, MaxThresholdExceededAndClearedCarryRoutesAndHighThreshold) {
  for (const std::uint32_t type : {3U, 5U}) {
    EXPECT_THAT(variables(encoded(type)),
                ElementsAre(trap_oid(static_cast<int>(type) + 1), "1.3.1.1.3.3.82.69.68 66 4000000000",
                            "1.2.2.1.10.3.82.69.68 66 200"));
  }
}

TEST(TrapNotification, IllegalLabelsCarryTheViolations) {
  EXPECT_THAT(variables(encoded(4)), ElementsAre(trap_oid(5), "1.2.6.1.1.3.82.69.68 65 5"));
}

TEST(TrapNotification, NamesOfAnyOctetsAreIndexes) {
  EXPECT_EQ(variables(encoded(4, "\xff"))[1], "1.2.6.1.1.1.255 65 5");
  EXPECT_EQ(variables(encoded(4, ""))[1], "1.2.6.1.1.0 65 5");
}

TEST(TrapNotification, RecordThatIsNotATrapIsRefusedAndNothingIsWritten) {
  std::vector<std::uint8_t> octets;
  agentx::Writer writer(&octets);
  EXPECT_EQ(write_trap({1, 2, 3}, &writer), kStatusBadEncoding);
  EXPECT_EQ(write_trap(encoded(6), &writer), kStatusInvalid);
  EXPECT_EQ(write_trap(encoded(0, std::string(32, 'x')), &writer), kStatusInvalid);
  EXPECT_TRUE(octets.empty());
  EXPECT_EQ(write_trap(encoded(0, std::string(31, 'x')), &writer), kStatusOk);
}

}  // namespace
