// Registration with the data store: order of registrations, report and effect of each failure.
#include "mpls/vpn/mib/src/provider/provider.h"

#include <filesystem>
#include <fstream>

#include "mpls/vpn/mib/src/provider/connection.h"
#include "mpls/vpn/mib/src/provider/provider_test_support.h"

namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsEmpty;

class Provider : public DaemonTest {
 protected:
  void SetUp() override {
    DaemonTest::SetUp();
    parcel_registry_reset();
    library_ = run_directory() + "/data_store";
    std::ofstream(library_) << "present";
    ASSERT_EQ(setenv("MPLS_VPN_MIB_KVTREE_LIBRARY", library_.c_str(), 1), 0);
    store_calls.clear();
  }
  void TearDown() override {
    fault_disarm_all();
    mpls_vpn_mib_prov_end();
    kvtree_reset();
    parcel_registry_reset();
    unsetenv("MPLS_VPN_MIB_KVTREE_LIBRARY");
    DaemonTest::TearDown();
  }
  Status Register() {
    ClearPrints();
    return mpls_vpn_mib_prov_init(manager_);
  }
  // Registers, with only the prints of failures.
  Status RegisterShowingErrors() {
    OnlyArea(ERR);
    return Register();
  }
  void RemoveLibrary() { ASSERT_TRUE(std::filesystem::remove(library_)); }
  Status Get(const std::string& path) {
    Run();
    Reply reply;
    return kvtree_get("/oper/mpls_vpn/gl/" + path, false, reply.Place());
  }
  // The rows of a walk, as "VRF/index".
  std::vector<std::string> Walk(const std::string& path, std::uint32_t max_rows, bool* end) {
    Run();
    std::vector<std::vector<std::uint8_t>> rows;
    EXPECT_EQ(kvtree_walk("/oper/mpls_vpn/gl/" + path, false, max_rows, &rows, end), kStatusOk);
    std::vector<std::string> keys;
    for (std::vector<std::uint8_t>& row : rows) {
      const Decoded<mpls_vpn_mib_interface> decoded(kMibInterfaceParcel,
                                                    {kKvKindRecord, row.data(), row.size()});
      keys.push_back(std::string(decoded->vrfName) + "/" + std::to_string(decoded->ifConfIndex));
    }
    return keys;
  }
  std::string library_;
};

TEST_F(Provider, AnswersRequestsBelowItsSubtreeAfterRegistration) {
  EXPECT_EQ(Get("scalars"), kStatusUnknownPath);
  ASSERT_EQ(Register(), kStatusOk);
  EXPECT_EQ(Get("scalars"), kStatusOk);
}

TEST_F(Provider, BindsAndRegistersInOrderWithTheStoresOptions) {
  fault_arm("bgp_vpn_rd_register_cb", kStatusIo);  // its own subscription is not the daemon's
  ASSERT_EQ(Register(), kStatusOk);
  const std::string all = "subscribe \"\" 7 0 0 4";
  EXPECT_THAT(store_calls, ElementsAre("bind \"/oper/mpls_vpn/gl/\" 1", "provide \"\" 0 1",    //
                                       "bind \"/cfg/gl/vmap/\" 0", all,                        //
                                       "bind \"/cfg/gl/snmp/enable/traps/l3vpnmib/\" 0", all,  //
                                       "bind \"/cfg/gl/ip-bgp/\" 0", all,                      //
                                       "bind \"/cfg/gl/rip/ord_B/\" 0", all,                   //
                                       "bind \"/cfg/gl/ipv4-ospf/proc/\" 0", all,              //
                                       "bind \"/cfg/gl/eigrp/proc/\" 0", all,                  //
                                       "bind \"/cfg/gl/static/router/ord_v/\" 0", all,         //
                                       "bind \"/oper/rib_threshold/\" 0", "subscribe \"\" 3 0 0 4"));
}

TEST_F(Provider, RegistrationPrintsItsBeginAndEnd) {
  OnlyArea(PROV);
  ASSERT_EQ(Register(), kStatusOk);
  const std::vector<std::string> prints = Prints();
  ASSERT_GE(prints.size(), 2U);
  EXPECT_EQ(prints.front(), "prov init");
  EXPECT_EQ(prints.back(), "end prov init");
  EXPECT_THAT(Traced("mpls_vpn/prov"), Contains("end prov init"));
}

TEST_F(Provider, ReplaysTheMembershipBeforeRegistrationEnds) {
  AddVrf("red");
  AddInterface("ge0", "red");
  ASSERT_EQ(Register(), kStatusOk);
  EXPECT_NE(mpls_vpn_mib_get_vrf_node(true, "red"), nullptr);
  EXPECT_NE(mpls_vpn_mib_get_if_by_handle(true, HandleOf("ge0")), nullptr);
}

TEST_F(Provider, RegistersBothDescriptionSets) {
  ASSERT_EQ(Register(), kStatusOk);
  EXPECT_NE(parcel_find("mpls_vpn_mib_trap"), nullptr);
  EXPECT_NE(parcel_find("mpls_vpn_vrf"), nullptr);
  EXPECT_EQ(parcel_find("rib_prov_maxthresh"), nullptr) << "only read, never written by this process";
}

TEST_F(Provider, ConfigurationThatFitsNoPatternIsDropped) {
  ASSERT_EQ(Register(), kStatusOk);
  KvValue value;
  value.type = KvValueType::kText;
  value.text = "customer";
  EXPECT_EQ(kvtree_set("/cfg/gl/vmap/vrf/red/ord_a/vmap/ord_k/vmap/description", value), kStatusOk);
  ClearPrints();
  Run();
  EXPECT_THAT(Prints(), IsEmpty());
  EXPECT_EQ(vtab_get_vrf_record_by_vrf_name("red"), nullptr);
}

// --- Routing

TEST_F(Provider, UnknownPathsDifferFromPathsThatAreNotServed) {
  ASSERT_EQ(Register(), kStatusOk);
  EXPECT_EQ(Get("nonsense"), kStatusUnknownPath);
  EXPECT_EQ(Get("red/mid-thresh-exc"), kStatusNoHandler);
  KvListReply list{};
  EXPECT_EQ(kvtree_list("/oper/mpls_vpn/gl/scalars", false, &list), kStatusNoHandler);
  EXPECT_EQ(kvtree_datalist("/oper/mpls_vpn/gl/scalars", false, &list), kStatusNoHandler);
}

TEST_F(Provider, InterfaceNextReachesTheNextForm) {
  AddVrf("red");
  AddInterface("ge0", "red");
  ASSERT_EQ(Register(), kStatusOk);
  EXPECT_EQ(Get("interface-next/red/0"), kStatusOk);
  EXPECT_EQ(Get("interface/red/1"), kStatusNoSuchRow);
}

TEST_F(Provider, ListsAndDatalistsReachTheirHandlers) {
  AddVrf("red");
  ASSERT_EQ(Register(), kStatusOk);
  Run();
  KvListReply reply{};
  reply.max_items = 10;
  EXPECT_EQ(kvtree_list("/oper/mpls_vpn/gl/vrf-detail-filter/-/-/-", false, &reply), kStatusOk);
  EXPECT_EQ(reply.count, 1U);
  kvtree_list_free(reply.list);
  reply = {};
  reply.max_items = 10;
  EXPECT_EQ(kvtree_datalist("/oper/mpls_vpn/gl/vrf-detail-filter/-/-/-", false, &reply), kStatusOk);
  EXPECT_EQ(reply.count, 1U);
  kvtree_datalist_free(reply.datalist);
}

TEST_F(Provider, KeysThatThePathEndsBeforeAreMissingArguments) {
  ASSERT_EQ(Register(), kStatusOk);
  OnlyArea(ERR);
  EXPECT_EQ(Get("interface-next/red"), kStatusArgumentMissing);
  EXPECT_EQ(Get("interface"), kStatusArgumentMissing);
  EXPECT_THAT(Prints(), ElementsAre("BGEN arg 1 not present in mpls_vpn_mib_prov_get_interface",
                                    "BGEN arg 0 not present in mpls_vpn_mib_prov_get_interface"));
}

TEST_F(Provider, WalkVisitsEveryInterfaceRowInOrder) {
  AddVrf("blue");
  AddVrf("red");
  AddInterface("ge0", "blue");
  AddInterface("ge1", "red");
  AddInterface("ge2", "blue");
  ASSERT_EQ(Register(), kStatusOk);
  bool end = false;
  EXPECT_THAT(Walk("interface-next//0", 10, &end), ElementsAre("red/2", "blue/1", "blue/3"));
  EXPECT_TRUE(end);
}

// --- The library

TEST_F(Provider, MissingLibraryMakesTheFirstBindFailUnattempted) {
  RemoveLibrary();
  fault_arm("kvtree_bind", kStatusIo);
  EXPECT_EQ(Register(), kStatusUnavailable);
  EXPECT_EQ(fault_reached("kvtree_bind"), 0U);
  EXPECT_EQ(prov_kvtree_conn_h, nullptr);
}

TEST_F(Provider, LibraryThatWasFoundIsNotLookedForAgain) {
  fault_arm("proc_file_readable", kStatusAccess, 2, 0);
  EXPECT_EQ(Register(), kStatusOk);
  EXPECT_EQ(fault_reached("proc_file_readable"), 1U);
}

TEST_F(Provider, LibraryIsLookedForUntilItIsFound) {
  fault_arm("proc_file_readable", kStatusAccess, 1, 1);
  EXPECT_EQ(Register(), kStatusUnavailable);
  EXPECT_EQ(Register(), kStatusOk);
}

// --- Failures

TEST_F(Provider, FailedInterfaceIndexServiceEndsRegistrationFirst) {
  fault_arm("ifindex_initialize_evm", kStatusIo);
  EXPECT_EQ(RegisterShowingErrors(), kStatusIo);
  EXPECT_THAT(Prints(),
              ElementsAre(Failure("mpls_vpn_mib_prov_init", "ifindex_initialize_evm failed", kStatusIo)));
  EXPECT_EQ(backend_scan_in_progress, 0U);
  EXPECT_EQ(prov_kvtree_conn_h, nullptr);
}

TEST_F(Provider, FailedProviderBindIsReturnedAndTraced) {
  fault_arm("kvtree_bind", kStatusIo);
  EXPECT_EQ(RegisterShowingErrors(), kStatusIo);
  EXPECT_THAT(Prints(), IsEmpty());
  Status code = kStatusOk;
  EXPECT_THAT(Traced("mpls_vpn/prov", &code), ElementsAre("register_prov_server: Input/output error"));
  EXPECT_EQ(code, kStatusIo);
  code = kStatusOk;
  EXPECT_THAT(Traced("mpls_vpn/error", &code), ElementsAre("register_prov_server: kvtree_bind"));
  EXPECT_EQ(code, kStatusIo);
  EXPECT_EQ(backend_scan_in_progress, 1U);
}

TEST_F(Provider, FailedRegistrationOfTheProviderUnbindsIt) {
  for (const auto& [step, what] : {std::pair{"kvtree_init_prov_functions", "Failed to init prov functions"},
                                   std::pair{"kvtree_register_prov2", "Failed in kvtree_register_prov2"}}) {
    const std::string failure = Failure("register_prov_server", what, kStatusIo);
    store_calls.clear();
    fault_arm(step, kStatusIo, 1, 2);
    EXPECT_EQ(RegisterShowingErrors(), kStatusIo);
    EXPECT_THAT(Prints(), ElementsAre(failure));
    EXPECT_EQ(store_calls.front(), "bind \"/oper/mpls_vpn/gl/\" 1");
    EXPECT_EQ(store_calls.back(), "unbind \"\"");
    EXPECT_EQ(prov_kvtree_conn_h, nullptr);
    fault_arm("kvtree_unbind", kStatusInvalid);
    EXPECT_EQ(RegisterShowingErrors(), kStatusIo);
    EXPECT_THAT(Prints(), ElementsAre(failure, Failure("register_prov_server", "kvtree_unbind failed",
                                                       kStatusInvalid)));
  }
}

TEST_F(Provider, FailedMembershipConnectionEndsRegistrationBeforeTheSubscriptions) {
  fault_arm("vmap_c_lib_init", kStatusIo);
  fault_arm("kvtree_register_notification", kStatusIo);
  EXPECT_EQ(Register(), kStatusIo);
  EXPECT_EQ(fault_reached("kvtree_register_notification"), 0U);
  // What was registered before stays.
  EXPECT_NE(prov_kvtree_conn_h, nullptr);
  Status code = kStatusOk;
  EXPECT_THAT(Traced("mpls_vpn/error", &code), Contains("mpls_vpn_mib_prov_init: membership service"));
  EXPECT_EQ(code, kStatusIo);
}

TEST_F(Provider, MembershipServiceThatIsNotThereYetDoesNotFailTheRegistration) {
  fault_arm("vmap_service", kStatusUnavailable);
  EXPECT_EQ(Register(), kStatusOk);
}

struct SubscriptionTexts {
  const char* function;
  const char* bind;
  const char* summary;  // may be null
};

// In registration order.
const SubscriptionTexts kTexts[] = {
    {"register_for_notification_on_vrf_changes", "kvtree_bind to the VRF path", nullptr},
    {"register_for_notification_on_traps_enable", "kvtree_bind to traps path error", nullptr},
    {"register_for_notification_on_bgp", "kvtree_bind to BGP path error",
     "Failed to register notifier on BGP"},
    {"register_for_notification_on_rip", "kvtree_bind to RIP path error",
     "Failed to register notifier on RIP"},
    {"register_for_notification_on_ospf", "kvtree_bind to ospf path error",
     "Failed to register notifier on ospf"},
    {"register_for_notification_on_eigrp", "kvtree_bind to EIGRP path error",
     "Failed to register notifier on EIGRP"},
    {"register_for_notification_on_static", "kvtree_bind to static path error",
     "Failed to register notifier on Static"},
    {"register_for_notification_on_rib", "kvtree_bind to the RIB path", "Failed to register notifier on RIB"},
};

class SubscriptionFailure : public Provider, public testing::WithParamInterface<std::uint32_t> {
 protected:
  const SubscriptionTexts& Texts() const { return kTexts[GetParam()]; }
  // The print when `what` failed, under the subscription's own name.
  std::vector<std::string> Expected(std::vector<std::string> lines) const {
    if (Texts().summary != nullptr)
      lines.push_back(Failure("mpls_vpn_mib_prov_init", Texts().summary, kStatusIo));
    return lines;
  }
};

TEST_P(SubscriptionFailure, FailedBindIsReportedWithItsOwnText) {
  fault_arm("kvtree_bind", kStatusIo, GetParam() + 2);  // the provider's bind is the first
  fault_arm("kvtree_unbind", kStatusIo, 2);
  EXPECT_EQ(RegisterShowingErrors(), kStatusIo);
  EXPECT_THAT(Prints(), ElementsAreArray(Expected({Failure(Texts().function, Texts().bind, kStatusIo)})));
  EXPECT_EQ(fault_reached("kvtree_unbind"), 0U);
  EXPECT_EQ(backend_scan_in_progress, 1U);
}

TEST_P(SubscriptionFailure, FailedSubscriptionIsReportedAndUnbound) {
  fault_arm("kvtree_register_notification", kStatusIo, GetParam() + 1);
  fault_arm("kvtree_unbind", kStatusIo, 2);
  EXPECT_EQ(RegisterShowingErrors(), kStatusIo);
  EXPECT_THAT(Prints(), ElementsAreArray(Expected(
                            {Failure(Texts().function, "kvtree_register_notification failed", kStatusIo)})));
  EXPECT_EQ(fault_reached("kvtree_unbind"), 1U);
}

TEST_P(SubscriptionFailure, FailedUnbindIsReportedBetweenTheTwo) {
  fault_arm("kvtree_register_notification", kStatusIo, GetParam() + 1);
  fault_arm("kvtree_unbind", kStatusIo);
  EXPECT_EQ(RegisterShowingErrors(), kStatusIo);
  EXPECT_THAT(
      Prints(),
      ElementsAreArray(Expected({Failure(Texts().function, "kvtree_register_notification failed", kStatusIo),
                                 Failure(Texts().function, "kvtree_unbind failed", kStatusIo)})));
}

INSTANTIATE_TEST_SUITE_P(EachSubscription, SubscriptionFailure, testing::Range(0U, 8U));

// The BGP VPN library's own subscription is not the daemon's.
TEST_F(Provider, SubscribesEightTimes) {
  fault_arm("bgp_vpn_rd_register_cb", kStatusIo);
  fault_arm("kvtree_register_notification", kStatusIo, 100);
  fault_arm("kvtree_bind", kStatusIo, 100);
  EXPECT_EQ(Register(), kStatusOk);
  EXPECT_EQ(fault_reached("kvtree_register_notification"), 8U);
  EXPECT_EQ(fault_reached("kvtree_bind"), 9U);
}

// --- Descriptions

TEST_F(Provider, FailedRegistrationOfTheMibsDescriptionsIsFatal) {
  fault_arm("parcel_batch_open", kStatusIo, 1);
  EXPECT_EQ(RegisterShowingErrors(), kStatusIo);
  EXPECT_THAT(Prints(), ElementsAre(Failure("mpls_vpn_mib_prov_init",
                                            "Failed to register mpls_vpn_mib.parcel Parcels", kStatusIo)));
  EXPECT_EQ(backend_scan_in_progress, 0U);
}

TEST_F(Provider, FailedRegistrationOfTheShowDescriptionsIsFatal) {
  fault_arm("parcel_batch_open", kStatusIo, 2);
  EXPECT_EQ(RegisterShowingErrors(), kStatusIo);
  EXPECT_THAT(Prints(), ElementsAre(Failure("mpls_vpn_mib_prov_init",
                                            "Failed to register mpls_vpn.parcel Parcels", kStatusIo)));
}

void register_other_version(const ParcelDescription& description, const char* set_name) {
  ParcelDescription other = description;
  other.version = 7;
  ParcelBatch* batch = nullptr;
  ASSERT_EQ(parcel_batch_open(set_name, &batch), kStatusOk);
  ASSERT_EQ(parcel_register(batch, &other), kStatusOk);
  ASSERT_EQ(parcel_batch_close(batch), kStatusOk);
  parcel_registry_reset();
}

TEST_F(Provider, RegistryWithOtherVersionsIsReportedAndRegistrationContinues) {
  register_other_version(kMibVrfParcel, "mpls_vpn_mib.parcel");
  register_other_version(kShowVrfParcel, "mpls_vpn.parcel");
  EXPECT_EQ(RegisterShowingErrors(), kStatusOk);
  const char line[] =
      "Error in mpls_vpn_mib_prov_init: Parcel definition(s) changed from what is found in registry!: "
      "Record definition differs from the registry";
  EXPECT_THAT(Prints(), ElementsAre(line, line));
  EXPECT_NE(parcel_find("mpls_vpn_vrf"), nullptr);
}

}  // namespace
