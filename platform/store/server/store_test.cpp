// Tests of binding and of subscriptions from within the process.
#include "platform/store/server/store.h"

#include <cstdlib>
#include <fstream>
#include <string>

#include "platform/core/base/test_fault.h"
#include "platform/store/server/test_store.h"

namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

// --- Binding

using Binding = StoreTest;

TEST_F(Binding, BadPathsAndModesAreRefused) {
  KvConnection* connection = nullptr;
  for (const char* path : {static_cast<const char*>(nullptr), "", "cfg/gl"}) {
    EXPECT_EQ(kvtree_bind(&connection, path, 0), kStatusInvalid);
  }
  EXPECT_EQ(kvtree_bind(&connection, ("/" + std::string(kKvMaxPath, 'a')).c_str(), 0), kStatusInvalid);
  EXPECT_EQ(kvtree_bind(&connection, "/cfg/", 2), kStatusInvalid);
  EXPECT_EQ(kvtree_bind(nullptr, "/cfg/", 0), kStatusInvalid);
  EXPECT_EQ(connection, nullptr);
}

TEST_F(Binding, UnbindOfAnUnboundConnectionIsRefused) {
  EXPECT_EQ(kvtree_unbind(nullptr), kStatusInvalid);
  KvConnection* connection = Bind("/cfg/");
  EXPECT_EQ(kvtree_unbind(connection), kStatusOk);
  EXPECT_EQ(kvtree_unbind(connection), kStatusInvalid);
}

TEST_F(Binding, EachOperationFailsAtItsFaultPoint) {
  KvConnection* connection = Bind("/cfg/");
  KvProviderFunctions functions{};
  ExpectFault("kvtree_bind", [&] { return kvtree_bind(&connection, "/cfg/", 0); });
  ExpectFault("kvtree_unbind", [&] { return kvtree_unbind(connection); });
  ExpectFault("kvtree_init_prov_functions", [&] { return kvtree_init_prov_functions(&functions); });
  ExpectFault("kvtree_register_prov2",
              [&] { return kvtree_register_prov2(connection, "", manager, &functions, 0, 1); });
  ExpectFault("kvtree_register_notification", [&] {
    return kvtree_register_notification(connection, "", 7, note, manager, 0, 0, 4, nullptr);
  });
  ExpectFault("kvtree_set", [] { return kvtree_set("/cfg/a", {}); });
  ExpectFault("kvtree_delete", [] { return kvtree_delete("/cfg/a"); });
  ExpectFault("kvtree_prov_notify", [&] { return kvtree_prov_notify(connection, nullptr); });
  EXPECT_EQ(kvtree_unbind(connection), kStatusOk);
}

TEST_F(Binding, LibraryPathIsReadableAndCanBeOverridden) {
  EXPECT_TRUE(std::ifstream(kvtree_library_path()).good());
  setenv("MPLS_VPN_MIB_KVTREE_LIBRARY", "/no/such/library", 1);
  EXPECT_STREQ(kvtree_library_path(), "/no/such/library");
  unsetenv("MPLS_VPN_MIB_KVTREE_LIBRARY");
}

// --- Subscriptions

class Subscriptions : public StoreTest {
 protected:
  void Register(KvConnection* connection, KvNotificationEntry entry, const char* path = "") {
    ASSERT_EQ(kvtree_register_notification(connection, path, 7, entry, manager, 0, 0, 4, nullptr), kStatusOk);
  }
};

TEST_F(Subscriptions, ExistingNodesAreReplayedWhileRegistering) {
  ASSERT_EQ(SetText("/cfg/gl/vmap/b", "two"), kStatusOk);
  ASSERT_EQ(SetText("/cfg/gl/vmap/a", "one"), kStatusOk);
  ASSERT_EQ(SetText("/cfg/gl/vmap2/c", "other subtree"), kStatusOk);
  ASSERT_EQ(SetText("/cfg/gl/a", "other subtree"), kStatusOk);
  Subscribe("/cfg/gl/vmap/", 7);
  EXPECT_THAT(TakeReceived(), ElementsAre("b 3 two", "a 3 one"));
  Run();
  EXPECT_THAT(TakeReceived(), IsEmpty());
}

TEST_F(Subscriptions, ChangesComeThroughTheEventLoopInOrder) {
  Subscribe("/cfg/gl/vmap/", 7);
  ASSERT_EQ(SetText("/cfg/gl/vmap/a", "one"), kStatusOk);
  ASSERT_EQ(SetText("/cfg/gl/vmap/a", "two"), kStatusOk);
  ASSERT_EQ(kvtree_delete("/cfg/gl/vmap/a"), kStatusOk);
  ASSERT_EQ(SetText("/cfg/gl/vmap/a", "three"), kStatusOk);
  EXPECT_THAT(TakeReceived(), IsEmpty());
  Run();
  EXPECT_THAT(TakeReceived(), ElementsAre("a 3 one", "a 2 two", "a 4 none", "a 3 three"));
}

TEST_F(Subscriptions, SettingTheSameValueIsAChangeToo) {
  Subscribe("/oper/rib_threshold/", 3);
  ASSERT_EQ(SetText("/oper/rib_threshold/red/mid", "x"), kStatusOk);
  ASSERT_EQ(SetText("/oper/rib_threshold/red/mid", "x"), kStatusOk);
  Run();
  EXPECT_THAT(TakeReceived(), ElementsAre("mid 3 x", "mid 2 x"));
}

TEST_F(Subscriptions, EventMaskSelectsTheNotifications) {
  Subscribe("/cfg/", kKvEventCreated);
  ASSERT_EQ(SetText("/cfg/a", "one"), kStatusOk);
  ASSERT_EQ(SetText("/cfg/a", "two"), kStatusOk);
  ASSERT_EQ(kvtree_delete("/cfg/a"), kStatusOk);
  Run();
  EXPECT_THAT(TakeReceived(), ElementsAre("a 1 one"));
  Subscribe("/cfg2/", kKvEventDeleted);
  ASSERT_EQ(SetText("/cfg2/a", "one"), kStatusOk);
  ASSERT_EQ(kvtree_delete("/cfg2/a"), kStatusOk);
  Run();
  EXPECT_THAT(TakeReceived(), ElementsAre("a 4 none"));
}

TEST_F(Subscriptions, MaskWithoutSetsReplaysNothing) {
  ASSERT_EQ(SetText("/cfg/a", "one"), kStatusOk);
  Subscribe("/cfg/", kKvEventDeleted);
  EXPECT_THAT(TakeReceived(), IsEmpty());
}

TEST_F(Subscriptions, EachSubscriberIsNotified) {
  Subscribe("/cfg/", 7);
  Subscribe("/cfg/gl", 7);  // a missing slash is added
  ASSERT_EQ(SetText("/cfg/gl/a", "one"), kStatusOk);
  ASSERT_EQ(SetText("/cfg/glx", "two"), kStatusOk);
  Run();
  EXPECT_THAT(TakeReceived(), ElementsAre("a 3 one", "a 3 one", "glx 3 two"));
}

TEST_F(Subscriptions, NothingIsDeliveredAfterTheUnbind) {
  KvConnection* connection = Bind("/cfg/");
  Register(connection, note);
  ASSERT_EQ(SetText("/cfg/a", "one"), kStatusOk);  // under way
  ASSERT_EQ(kvtree_unbind(connection), kStatusOk);
  ASSERT_EQ(SetText("/cfg/a", "two"), kStatusOk);
  Run();
  EXPECT_THAT(TakeReceived(), IsEmpty());
}

TEST_F(Subscriptions, MissingEntryDropsNotifications) {
  ASSERT_EQ(SetText("/cfg/a", "one"), kStatusOk);
  Register(Bind("/cfg/"), nullptr);
  ASSERT_EQ(SetText("/cfg/a", "two"), kStatusOk);
  Run();
  EXPECT_THAT(TakeReceived(), IsEmpty());
}

TEST_F(Subscriptions, RegistrationPathIsBelowTheBindPoint) {
  Register(Bind("/cfg/"), note, "gl/vmap");
  ASSERT_EQ(SetText("/cfg/gl/vmap/a", "one"), kStatusOk);
  ASSERT_EQ(SetText("/cfg/gl/b", "two"), kStatusOk);
  Run();
  EXPECT_THAT(TakeReceived(), ElementsAre("a 3 one"));
}

TEST_F(Subscriptions, NotificationHasItsPathBelowTheBindPoint) {
  static std::string path;
  const auto entry = [](const KvNotification* notification) { path = kvtree_notify_path(notification); };
  Register(Bind("/cfg/gl/"), entry);
  ASSERT_EQ(SetText("/cfg/gl/vmap/a", "one"), kStatusOk);
  Run();
  EXPECT_EQ(path, "vmap/a");
}

TEST_F(Subscriptions, EntryMayChangeTheTreeDuringTheReplay) {
  ASSERT_EQ(SetText("/cfg/a", "one"), kStatusOk);
  ASSERT_EQ(SetText("/cfg/b", "two"), kStatusOk);
  const auto entry = [](const KvNotification* notification) {
    note(notification);
    if (kvtree_notify_info(notification)->whichevent != kKvEventDeleted) {
      EXPECT_EQ(kvtree_delete("/cfg/" + std::string(kvtree_notify_info(notification)->item_name)), kStatusOk);
    }
  };
  Register(Bind("/cfg/"), entry);
  EXPECT_THAT(TakeReceived(), ElementsAre("a 3 one", "b 3 two"));
  Run();
  EXPECT_THAT(TakeReceived(), ElementsAre("a 4 none", "b 4 none"));
}

TEST_F(Subscriptions, PendingChangesBelowAPathAreDeliveredOnRequest) {
  Subscribe("/oper/a/", 7);
  Subscribe("/cfg/", 7);
  ASSERT_EQ(SetText("/oper/a/x", "one"), kStatusOk);
  ASSERT_EQ(SetText("/cfg/x", "other path"), kStatusOk);
  ASSERT_EQ(kvtree_delete("/oper/a/x"), kStatusOk);
  kvtree_deliver("/oper/a/");
  EXPECT_THAT(TakeReceived(), ElementsAre("x 3 one", "x 4 none"));
  ASSERT_EQ(SetText("/oper/a/x", "two"), kStatusOk);
  EXPECT_THAT(TakeReceived(), IsEmpty());
  Run();
  EXPECT_THAT(TakeReceived(), ElementsAre("x 3 other path", "x 3 two"));
  kvtree_deliver("/oper/a/");
  EXPECT_THAT(TakeReceived(), IsEmpty());
}

TEST_F(Subscriptions, EntryMayUnbindWhileItsQueueIsDelivered) {
  static KvConnection* connection = nullptr;
  connection = Bind("/oper/");
  const auto entry = [](const KvNotification* notification) {
    note(notification);
    EXPECT_EQ(kvtree_unbind(connection), kStatusOk);
  };
  Register(connection, entry);
  ASSERT_EQ(SetText("/oper/x", "one"), kStatusOk);
  ASSERT_EQ(SetText("/oper/x", "two"), kStatusOk);
  kvtree_deliver("/oper/");
  Run();
  EXPECT_THAT(TakeReceived(), ElementsAre("x 3 one"));
}

TEST_F(Subscriptions, BadArgumentsAreRefused) {
  EXPECT_EQ(kvtree_register_notification(nullptr, "", 7, note, manager, 0, 0, 4, nullptr), kStatusInvalid);
  EXPECT_EQ(kvtree_register_notification(Bind("/cfg/"), "", 7, note, nullptr, 0, 0, 4, nullptr),
            kStatusInvalid);
  EXPECT_EQ(kvtree_set("cfg", {}), kStatusInvalid);
  EXPECT_EQ(kvtree_set("/", {}), kStatusInvalid);
  EXPECT_EQ(kvtree_set(std::string_view("/a\0b", 4), {}), kStatusInvalid);
  EXPECT_EQ(kvtree_set("/" + std::string(kKvMaxPath, 'a'), {}), kStatusInvalid);
  EXPECT_EQ(kvtree_delete("cfg"), kStatusInvalid);
  EXPECT_EQ(kvtree_delete("/cfg/none"), kStatusNoSuchRow);
}

}  // namespace
