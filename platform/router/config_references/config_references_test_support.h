// For tests of references: a subscriber that records the items and interfaces that it is notified of.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "platform/config/owners.h"
#include "platform/config/vrf_config.h"
#include "platform/core/base/fault.h"
#include "platform/core/evm/test_run_directory.h"
#include "platform/router/config_references/config_references.h"
#include "platform/router/model/router_test_support.h"
#include "platform/router/vmap/vmap.h"
#include "platform/router/vtab/vtab.h"
#include "platform/store/configuration/configuration.h"
#include "platform/store/tree/kvtree.h"

inline std::vector<std::string>& reported() {
  static std::vector<std::string> lines;
  return lines;
}

inline void note_item(const KvNotification* notification) {
  const bool deleted = kvtree_notify_info(notification)->whichevent == kKvEventDeleted;
  reported().push_back((deleted ? "-" : "+") + std::string(kvtree_notify_path(notification)));
}
inline void note_interface(VmapMemberDatabase*, VmapEvent kind, const VmapIntfItem* item) {
  reported().push_back(std::string(kind == VmapEvent::kUpdate ? "joined " : "left ") + item->vrf_name);
}

inline const KvConfigNode kRedText = vrf_config::description("red", "Red Rail");
inline const KvConfigNode kRedRip = vrf_config::rip_interface("red", "ge0");
inline const KvConfigNode kRedBgp =
    vrf_config::bgp_neighbor("red", 65000, "192.0.2.9", vrf_config::Family::kIpv4);
inline const std::string kTextPath = kRedText.path.substr(vrf_config::kVrfScope.size());
inline const std::string kRipPath = "red/ord_t/if/ge0/ord_d/enabled";

class ConfigReferences : public router::RouterTest {
 protected:
  ConfigReferences() : manager_(event_manager_create("/dev/mpls/vpn/main", 0)) {
    EXPECT_EQ(vrf_config::register_configuration(), kStatusOk);
    vtab_attach(&router_);
    vmap_attach(&router_);
    reported().clear();
  }
  ~ConfigReferences() override {
    fault_disarm_all();
    config_references_stop();
    if (client_ != nullptr) vmap_c_lib_end(client_);
    kvtree_reset();
    vmap_attach(nullptr);
    vtab_attach(nullptr);
    event_manager_destroy(manager_);
  }

  void Start() { ASSERT_EQ(config_references_start(&router_, manager_), kStatusOk); }
  void Run() {
    while (event_run_pending(manager_)) {
    }
  }
  void Commit(std::vector<KvConfigChange> changes, std::string_view owner = kConfigOwnerCli) {
    ASSERT_EQ(kvtree_config_commit(owner, changes, ""), kStatusOk);
    Run();
  }
  void Set(const KvConfigNode& node, std::string_view owner = kConfigOwnerCli) {
    Commit({{node.path, node.value}}, owner);
  }
  void Delete(const KvConfigNode& node, std::string_view owner = kConfigOwnerCli) {
    Commit({{node.path, std::nullopt}}, owner);
  }
  bool IsReferenced(std::string_view vrf) const {
    return router_.is_referenced(vrf, router::ReferenceHolder::kConfiguration);
  }
  // With the next free index.
  std::uint32_t AddInterface(const std::string& name, const std::string& vrf) {
    return RouterTest::AddInterface(name, ++last_index_, vrf);
  }
  // A subscriber that notes its notifications of the items below the scope.
  void ListenTo(std::string_view scope) {
    KvConnection* connection = nullptr;
    ASSERT_EQ(kvtree_bind(&connection, std::string(scope).c_str(), kKvBindConfiguration), kStatusOk);
    ASSERT_EQ(kvtree_register_notification(connection, "", 7, note_item, manager_, 0, 0, 4, nullptr),
              kStatusOk);
  }
  // A subscriber of RIP's items and a client of the membership service, which both note what is delivered.
  void Listen() {
    ListenTo("/cfg/gl/rip/ord_B/");
    ASSERT_EQ(vmap_c_lib_init(
                  "listener", manager_, [](void*) { return 0; }, &client_),
              kStatusOk);
    int fd = -1;
    std::uint32_t count = 0;
    VmapMemberDatabase* database = nullptr;
    ASSERT_EQ(vmap_c_bind(client_, &fd), kStatusOk);
    ASSERT_EQ(vmap_c_mdb_init(client_, 0, &database), kStatusOk);
    ASSERT_EQ(vmap_c_mdb_add_intf_all(database, note_interface, 1), kStatusOk);
    ASSERT_EQ(vmap_c_notif_reg(database, &fd, &count), kStatusOk);
    reported().clear();
  }
  // What was delivered since the last call.
  std::vector<std::string> Reported() {
    Run();
    return std::exchange(reported(), {});
  }

  TestRunDirectory directory_;
  EventManager* manager_;
  VmapClient* client_ = nullptr;
  std::uint32_t last_index_ = 0;
};

class StartedReferences : public ConfigReferences {
 protected:
  void SetUp() override { Start(); }
};

// One item of an interface, with a subscriber and a client that have been notified of it.
class ReplayedItems : public StartedReferences {
 protected:
  void SetUp() override {
    StartedReferences::SetUp();
    Listen();
    Set(kRedRip);
    EXPECT_THAT(Reported(), testing::ElementsAre("+" + kRipPath));
  }
};
