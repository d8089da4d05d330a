// Every configuration item that users can set against the daemon's subscriptions: the real matcher finds the
// item's path in the table of paths of its scope, and every row of those tables has an item.
#include <gtest/gtest.h>

#include <array>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "mpls/vpn/mib/src/provider/path_table.h"
#include "mpls/vpn/mib/src/traps/info.h"
#include "platform/config/items.h"
#include "platform/config/paths.h"
#include "platform/core/evm/evm.h"
#include "platform/core/evm/test_run_directory.h"

namespace {

using vrf_config::Item;
using vrf_config::Kind;

struct Subscribed {
  std::string_view scope;
  const KvPathTable* table;
};
constexpr Subscribed kSubscribed[] = {
    {vrf_config::kVrfScope, &mpls_vpn_mib_vrf_paths},
    {vrf_config::kBgpScope, &mpls_vpn_mib_bgp_paths},
    {vrf_config::kRipScope, &mpls_vpn_mib_rip_paths},
    {vrf_config::kOspfScope, &mpls_vpn_mib_ospf_paths},
    {vrf_config::kEigrpScope, &mpls_vpn_mib_eigrp_paths},
    {vrf_config::kStaticScope, &mpls_vpn_mib_static_paths},
};

// Items that reach the daemon by a service, or not at all.
const std::set<Kind> kOfServices = {Kind::kRouteDistinguisher, Kind::kLowWater, Kind::kWatchedPrefix,
                                    Kind::kVni, Kind::kAsFormat};

std::vector<std::size_t>& rows_hit() {
  static std::vector<std::size_t> rows;
  return rows;
}

constexpr std::size_t kMostRows = 8;

template <std::size_t... kRow>
constexpr std::array<KvNotifyHandler, kMostRows> recorders(std::index_sequence<kRow...> /*rows*/) {
  return {[](const KvNotifyInfo*, const RequestArgs*) { rows_hit().push_back(kRow); }...};
}
constexpr auto kRecorders = recorders(std::make_index_sequence<kMostRows>());

// The patterns of one of the daemon's tables, with handlers that record their row.
KvPathTable& recording_table() {
  static KvPathTable table;
  return table;
}

void match_recording(const KvNotification* notification) {
  kvtree_match_notify(notification, &recording_table());
}

vrf_config::Fields example_fields() {
  vrf_config::Fields fields;
  fields.vrf = "red";
  fields.target = {vrf_config::Target::Type::kTwoOctetAs, 65000, 1};
  fields.as_number = 65000;
  fields.neighbor = fields.next_hop = "192.0.2.1";
  fields.process = "1";
  fields.interface = "ge0";
  fields.prefix = "10.0.0.0/8";
  fields.text = "text";
  fields.number = fields.mid = 1;
  return fields;
}

class ConfigurationItems : public ::testing::Test {
 protected:
  void SetUp() override {
    manager_ = event_manager_create("/dev/mpls/vpn/main", 0);
    ASSERT_NE(manager_, nullptr);
  }
  void TearDown() override {
    kvtree_reset();
    event_manager_destroy(manager_);
  }

  // The rows of the table that take a node with this item's path.
  std::vector<std::size_t> RowsFor(const Item& item, const Subscribed& subscribed) {
    std::vector<KvPathRow> rows(subscribed.table->rows, subscribed.table->rows + subscribed.table->count);
    for (std::size_t row = 0; row < rows.size(); ++row) rows[row].handlers.notify = kRecorders.at(row);
    recording_table() = {rows.data(), rows.size()};
    rows_hit().clear();
    const KvConfigNode node = node_of(item, example_fields());
    EXPECT_EQ(kvtree_set(node.path, node.value), kStatusOk) << node.path;
    KvConnection* connection = nullptr;
    EXPECT_EQ(kvtree_bind(&connection, std::string(subscribed.scope).c_str(), kKvBindConfiguration),
              kStatusOk);
    EXPECT_EQ(kvtree_register_notification(connection, "", kKvEventSet, match_recording, manager_, 0, 0, 4,
                                           nullptr),
              kStatusOk);
    kvtree_reset();
    return rows_hit();
  }

 private:
  const TestRunDirectory directory_;
  EventManager* manager_ = nullptr;
};

TEST_F(ConfigurationItems, EachBelongsToOneRowOfTheSubscriptionAndEachRowHasItems) {
  for (const Subscribed& subscribed : kSubscribed) {
    std::set<std::size_t> rows;
    for (const Item& item : vrf_config::all_items()) {
      if (item.scope != subscribed.scope) continue;
      const std::vector<std::size_t> found = RowsFor(item, subscribed);
      EXPECT_EQ(found.size(), kOfServices.contains(item.kind) ? 0U : 1U) << item.words;
      rows.insert(found.begin(), found.end());
    }
    EXPECT_EQ(rows.size(), subscribed.table->count) << subscribed.scope;
  }
}

TEST_F(ConfigurationItems, AreAllSubscribedTo) {
  for (const Item& item : vrf_config::all_items()) {
    bool is_subscribed = item.scope == vrf_config::kTrapScope || kOfServices.contains(item.kind);
    for (const Subscribed& subscribed : kSubscribed) is_subscribed |= item.scope == subscribed.scope;
    EXPECT_TRUE(is_subscribed) << item.words;
  }
}

TEST(TrapItems, AreTheSwitchesOfTheDaemon) {
  std::vector<std::string_view> names(vrf_config::kTrapItems.begin(), vrf_config::kTrapItems.end());
  names.insert(names.end(), {vrf_config::kTrapAll, vrf_config::kTrapReissueTime});
  ASSERT_EQ(names.size(), kMplsVpnTrapRows);
  for (std::size_t row = 0; row < names.size(); ++row) {
    EXPECT_EQ(mpls_vpn_mib_trap_info[row].item_name, names[row]);
  }
}

}  // namespace
