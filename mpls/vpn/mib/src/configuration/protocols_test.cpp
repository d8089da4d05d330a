// Routing protocols on the interfaces of VRFs: from nodes of the data store to the bits of the MIB's row.
//
// The handlers alone. In the process, the configuration references retain the record of a VRF that has
// configuration and repeat the notifications when an interface is added or an item is set again;
// daemon/configured_vrfs_test.cpp covers what is counted then.
#include "mpls/vpn/mib/src/configuration/protocols.h"

#include <utility>

#include "mpls/vpn/mib/src/configuration/config_test_support.h"
#include "platform/config/owners.h"
#include "platform/store/configuration/configuration.h"

namespace {

using testing::AllOf;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;

std::string bgp_path(const std::string& vrf) {
  return "/cfg/gl/ip-bgp/default/0/65000/ord_a/" + vrf + "/nbr/4/prov/default/1/192.0.2.9/ipv4";
}
std::string rip_path(const std::string& vrf, const std::string& interface) {
  return "/cfg/gl/rip/ord_B/" + vrf + "/ord_t/if/" + interface + "/ord_d/enabled";
}
std::string ospf_path(const std::string& vrf, const std::string& interface) {
  return "/cfg/gl/ipv4-ospf/proc/1/ord_a/" + vrf + "/ord_v/area/0.0.0.1/int/ord_i/name_scope/" + interface +
         "/ord_A/running";
}
std::string eigrp_path(const std::string& vrf, const std::string& interface) {
  return "/cfg/gl/eigrp/proc/100/" + vrf + "/ord_a/ord_m/af/ipv4/ord_t/if/" + interface + "/ord_a/enabled";
}
// "-" for no interface.
std::string static_path(const std::string& vrf, const std::string& interface,
                        const std::string& prefix = "198.51.100.0") {
  return "/cfg/gl/static/router/ord_v/" + vrf + "/address/ipv4/unicast/ord_c/topology/route/" + prefix +
         "/24/a/b/nexthop/" + interface + "/192.0.2.9";
}

// VRF "red" with the interface ge0 (index 1).
class Protocols : public Configured<DaemonTest> {
 protected:
  void SetUp() override {
    Configured::SetUp();
    AddVrf("red");
    AddInterface("ge0", "red");
    Run();
    ClearPrints();
  }
  // The interface's or the VRF's count.
  std::uint32_t OfInterface(std::uint32_t protocol, const char* interface = "ge0") {
    const IfNode* node = mpls_vpn_mib_get_if_by_vrf_and_name("red", interface);
    EXPECT_NE(node, nullptr);
    return node == nullptr ? UINT32_MAX : node->protocol_count[protocol];
  }
  std::uint32_t OfVrf(std::uint32_t protocol, const char* vrf = "red") {
    return AttributesOf(vrf)->protocol_count[protocol];
  }
  // The protocols of the interface's row, as the MIB shows them.
  unsigned Bits(std::uint32_t index = 1) {
    Reply reply;
    const std::string path = "/oper/mpls_vpn/gl/interface-next/red/" + std::to_string(index);
    EXPECT_EQ(kvtree_get(path, false, reply.Place()), kStatusOk);
    const Decoded<mpls_vpn_mib_interface> row(kMibInterfaceParcel, reply.Get());
    EXPECT_EQ(row->ifConfIndex, static_cast<std::int32_t>(index));
    return row->protocol;
  }
  // Every count of everything, added up.
  std::uint64_t All() {
    std::uint64_t sum = 0;
    for (const VtabVrfRecord* record = vtab_get_first_vrf_record(); record != nullptr;
         record = vtab_get_next_vrf_record(record)) {
      for (const std::uint32_t one : mpls_vpn_vrf_attributes(record)->protocol_count) sum += one;
    }
    for (const IfNode* node = mpls_vpn_mib_if_dbase_first(); node != nullptr;
         node = mpls_vpn_mib_if_dbase_next(node)) {
      for (const std::uint32_t one : node->protocol_count) sum += one;
    }
    return sum;
  }
  static constexpr KvNotifyInfo kSet{"item", kKvEventSet, nullptr};
};

// --- Owners

// The routing suite's item is the command line's for a while, with a value of its own.
TEST_F(Protocols, ItemThatChangesItsOwnerAndItsValueIsCountedOnce) {
  const auto commit = [this](std::string_view owner, const std::string& path, std::optional<KvValue> value) {
    ASSERT_EQ(kvtree_config_commit(owner, {{path, std::move(value)}}, ""), kStatusOk);
    Run();
  };
  KvValue number;
  number.type = KvValueType::kNumber;
  for (const std::string& path : {rip_path("red", "ge0"), ospf_path("red", "ge0"), eigrp_path("red", "ge0"),
                                  static_path("red", "ge0"), bgp_path("red")}) {
    commit(kConfigOwnerFrr, path, KvValue{});
    EXPECT_EQ(All(), 1U) << path;
    commit(kConfigOwnerCli, path, number);
    EXPECT_EQ(All(), 1U) << path;
    commit(kConfigOwnerCli, path, std::nullopt);
    EXPECT_EQ(All(), 1U) << path;
    commit(kConfigOwnerFrr, path, std::nullopt);
    EXPECT_EQ(All(), 0U) << path;
  }
}

// --- Paths

TEST_F(Protocols, SetAndDeletionArePrinted) {
  const std::pair<std::string, std::string> items[] = {
      {rip_path("red", "ge0"), "RIP notify for interface ge0 on VRF red"},
      {ospf_path("red", "ge0"), "OSPF notify for interface ge0 on VRF red"},
      {eigrp_path("red", "ge0"), "EIGRP notify for interface ge0 on VRF red"},
      {static_path("red", "ge0"), "STATIC notify for interface ge0 on VRF red"},
      {static_path("red", "-"), "STATIC notify for interface <any> on VRF red"},
      {bgp_path("red"), "BGP neighbor af notify for VRF red"},
  };
  for (const auto& [path, line] : items) {
    OnlyArea(PROV);
    SetText(path, "");
    Delete(path);
    EXPECT_THAT(Prints(), ElementsAre(line + ", event 3", line + ", event 4"));
  }
}

TEST_F(Protocols, StaticRouteWithoutAnInterfaceShowsOnEveryInterfaceOfTheVrf) {
  AddInterface("ge1", "red");
  Run();
  SetText(static_path("red", "-"), "");
  EXPECT_EQ(OfVrf(kProtocolStatic), 1U);
  EXPECT_EQ(All(), 1U);
  EXPECT_EQ(Bits(1), 0x04U);
  EXPECT_EQ(Bits(2), 0x04U);
  Delete(static_path("red", "-"));
  EXPECT_EQ(Bits(1), 0U);
}

TEST_F(Protocols, NamesOfInterfacesAreDecoded) {
  AddInterface("ge0/0/1", "red");
  Run();
  SetText(rip_path("red", "ge0%2F0%2F1"), "");
  EXPECT_EQ(OfInterface(kProtocolRip, "ge0/0/1"), 1U);
}

// --- Counting

TEST_F(Protocols, HandlersCountEverySetAndOneDeletionLeavesTheBit) {
  SetText(rip_path("red", "ge0"), "");
  SetText(rip_path("red", "ge0"), "again");
  EXPECT_EQ(OfInterface(kProtocolRip), 2U);
  Delete(rip_path("red", "ge0"));
  EXPECT_EQ(OfInterface(kProtocolRip), 1U);
  EXPECT_EQ(Bits(), 0x10U);
}

TEST_F(Protocols, CountsArePrinted) {
  OnlyArea(VTAB);
  set_interface_protocol("ge0", "red", kProtocolRip, 0);
  set_interface_protocol("ge0", "red", kProtocolRip, 1);
  set_vrf_protocol("red", kProtocolBgp, 0);
  set_vrf_protocol("red", kProtocolBgp, 1);
  EXPECT_THAT(Prints(),
              ElementsAre("Protocol 3 count for interface ge0 on VRF redis now 1",
                          "Protocol 3 count for interface ge0 on VRF redis now 0",
                          "Protocol 1 count for VRF red is now 1", "Protocol 1 count for VRF red is now 0"));
  EXPECT_THAT(Traced("mpls_vpn/vtab"), AllOf(Contains("VRF red: interfaces' count of protocol 3 is now 1"),
                                             Contains("VRF red: count of protocol 1 is now 1")));
}

TEST_F(Protocols, DeletionAtZeroStaysAtZeroAndIsPrintedUnderVtabForAnInterface) {
  OnlyArea(VTAB);
  set_interface_protocol("ge0", "red", kProtocolRip, 1);
  EXPECT_THAT(Prints(), ElementsAre("Protocol 3 count for interface ge0 on VRF redis already 0"));
  EXPECT_THAT(Traced("mpls_vpn/vtab"), Contains("VRF red: interfaces' count of protocol 3 is already 0"));
  EXPECT_EQ(OfInterface(kProtocolRip), 0U);
}

TEST_F(Protocols, DeletionAtZeroStaysAtZeroAndIsPrintedUnderErrForAVrf) {
  OnlyArea(ERR);
  set_vrf_protocol("red", kProtocolBgp, 1);
  EXPECT_THAT(Prints(), ElementsAre("Protocol 1 count for VRF red is already 0"));
  EXPECT_EQ(OfVrf(kProtocolBgp), 0U);
}

TEST_F(Protocols, CountsEndAtTheLargestNumber) {
  AttributesOf("red")->protocol_count[kProtocolBgp] = 0xfffffffe;
  mpls_vpn_mib_get_if_by_vrf_and_name("red", "ge0")->protocol_count[kProtocolRip] = 0xffffffff;
  ClearPrints();
  set_vrf_protocol("red", kProtocolBgp, 0);
  set_vrf_protocol("red", kProtocolBgp, 0);
  set_interface_protocol("ge0", "red", kProtocolRip, 0);
  EXPECT_EQ(OfVrf(kProtocolBgp), 0xffffffffU);
  EXPECT_EQ(OfInterface(kProtocolRip), 0xffffffffU);
  EXPECT_TRUE(Printed("Protocol 1 count for VRF red is now 4294967295"));
  EXPECT_TRUE(Printed("Protocol 1 count for VRF red is already 4294967295"));
  EXPECT_TRUE(Printed("Protocol 3 count for interface ge0 on VRF redis already 4294967295"));
}

TEST_F(Protocols, HandlersAloneForgetAnInterfaceThatLeaves) {
  SetText(rip_path("red", "ge0"), "");
  Leave("ge0");
  Run();
  Join("ge0", "red");
  Run();
  EXPECT_EQ(OfInterface(kProtocolRip), 0U);
  OnlyArea(VTAB);
  Delete(rip_path("red", "ge0"));
  EXPECT_THAT(Prints(), Contains("Protocol 3 count for interface ge0 on VRF redis already 0"));
}

TEST_F(Protocols, ForwardReferenceIsCountedForAndKeepsItsCountWhenTheVrfIsCreated) {
  NameVrf("blue");
  Run();
  ASSERT_EQ(vtab_get_vrf_record_by_vrf_name("blue")->vrf_id, 0U);
  SetText(bgp_path("blue"), "");
  EXPECT_EQ(OfVrf(kProtocolBgp, "blue"), 1U);
  AddVrf("blue");
  Run();
  EXPECT_NE(vtab_get_vrf_record_by_vrf_name("blue")->vrf_id, 0U);
  EXPECT_EQ(OfVrf(kProtocolBgp, "blue"), 1U);
}

// --- What is not counted

TEST_F(Protocols, NothingIsCountedForTheVrfDefault) {
  AddInterface("ge7");
  Run();
  SetText(ospf_path("default", "ge7"), "");
  SetText(bgp_path("default"), "");
  SetText(static_path("default", "-"), "");
  EXPECT_EQ(All(), 0U);
  ClearPrints();
  set_vrf_protocol("default", 99, 0);
  set_interface_protocol("ge7", "default", 99, 0);
  EXPECT_THAT(Prints(), IsEmpty()) << "the protocol is not even looked at";
}

TEST_F(Protocols, VrfWhoseNameOnlyBeginsLikeDefaultIsCounted) {
  AddVrf("default2");
  AddVrf("defaul");
  Run();
  SetText(bgp_path("default2"), "");
  SetText(bgp_path("defaul"), "");
  EXPECT_EQ(OfVrf(kProtocolBgp, "default2"), 1U);
  EXPECT_EQ(OfVrf(kProtocolBgp, "defaul"), 1U);
}

TEST_F(Protocols, InvalidProtocolIsReported) {
  OnlyArea(ERR);
  set_vrf_protocol("red", 7, 0);
  set_interface_protocol("ge0", "red", 8, 0);
  EXPECT_THAT(Prints(), ElementsAre("Invalid protocol 7", "Invalid protocol 8"));
  ExpectErrorTraced("Invalid protocol 8", kStatusInvalid);
  EXPECT_EQ(All(), 0U);
}

TEST_F(Protocols, LargestProtocolIsCounted) {
  set_vrf_protocol("red", 6, 0);
  EXPECT_EQ(OfVrf(6), 1U);
}

TEST_F(Protocols, InterfaceOfAnotherVrfIsUnknown) {
  AddVrf("blue");
  Run();
  SetText(rip_path("blue", "ge0"), "");
  EXPECT_EQ(All(), 0U);
}

TEST_F(Protocols, HandlersAloneDoNotCountAVrfThatIsCreatedLater) {
  OnlyArea(ERR);
  SetText(bgp_path("blue"), "");
  EXPECT_EQ(vtab_get_vrf_record_by_vrf_name("blue"), nullptr);
  Delete(bgp_path("blue"));
  EXPECT_THAT(Prints(), IsEmpty());
  SetText(bgp_path("blue"), "");
  AddVrf("blue");
  Run();
  ClearPrints();
  Delete(bgp_path("blue"));
  EXPECT_THAT(Prints(), ElementsAre("Protocol 1 count for VRF blue is already 0"));
}

// --- The mutex

TEST_F(Protocols, InterfaceIsCountedWhenTheMutexCanBeTakenEvenIfItCannotBeReleased) {
  const auto count = [] { set_interface_protocol("ge0", "red", kProtocolRip, 0); };
  OnlyArea(DBASE);
  WithFault("pthread_mutex_lock", kStatusIo, count);
  EXPECT_THAT(Prints(), ElementsAre("Error (set_interface_protocol): pthread mutex lock failed"));
  EXPECT_EQ(OfInterface(kProtocolRip), 0U);
  WithFault("pthread_mutex_unlock", kStatusIo, count);
  EXPECT_TRUE(Printed("Error (set_interface_protocol): pthread mutex unlock failed"));
  ReleaseMutex();
  EXPECT_EQ(OfInterface(kProtocolRip), 1U);
}

TEST_F(Protocols, MutexIsReleasedWhenTheInterfaceIsUnknown) {
  set_interface_protocol("ge9", "red", kProtocolRip, 0);
  TakeMutex();
  ReleaseMutex();
}

TEST_F(Protocols, VrfIsCountedWithoutTheMutex) {
  TakeMutex();
  set_vrf_protocol("red", kProtocolBgp, 0);
  ReleaseMutex();
  EXPECT_EQ(OfVrf(kProtocolBgp), 1U);
}

// --- Arguments

struct HandlerArguments {
  const char* name;
  KvNotifyHandler handler;
  unsigned vrf;
  int interface;  // -1: none
};

constexpr HandlerArguments kHandlers[] = {
    {"mpls_vpn_mib_bgp_nbr_af_notify", mpls_vpn_mib_bgp_nbr_af_notify, 4, -1},
    {"mpls_vpn_mib_rip_notify", mpls_vpn_mib_rip_notify, 0, 1},
    {"mpls_vpn_mib_ospf_notify", mpls_vpn_mib_ospf_notify, 2, 5},
    {"mpls_vpn_mib_eigrp_notify", mpls_vpn_mib_eigrp_notify, 1, 3},
    {"mpls_vpn_mib_static_notify", mpls_vpn_mib_static_notify, 0, 7},
};

class ProtocolArguments : public Protocols, public testing::WithParamInterface<HandlerArguments> {
 protected:
  // All of the path's names, but none else.
  static Arguments Names() {
    Arguments args(0, 10);
    args.Text(GetParam().vrf, "red");
    if (GetParam().interface >= 0) args.Text(static_cast<unsigned>(GetParam().interface), "ge0");
    return args;
  }
};

TEST_P(ProtocolArguments, VrfNameIsLookedForFirst) {
  OnlyArea(ERR);
  GetParam().handler(&kSet, Arguments(0, 10).Block());
  GetParam().handler(&kSet, Arguments(0, 10).Text(GetParam().vrf, nullptr).Block());
  EXPECT_THAT(Prints(), ElementsAre(MissingArgument(GetParam().vrf, GetParam().name),
                                    NullArgument(GetParam().vrf, "vrf_name", GetParam().name)));
  EXPECT_EQ(All(), 0U);
}

TEST_P(ProtocolArguments, InterfaceNameThatIsNullIsReported) {
  if (GetParam().interface < 0) return;
  const auto argument = static_cast<unsigned>(GetParam().interface);
  OnlyArea(ERR);
  GetParam().handler(&kSet, Arguments(0, 10).Text(GetParam().vrf, "red").Text(argument, nullptr).Block());
  EXPECT_THAT(Prints(), ElementsAre(NullArgument(argument, "if_name", GetParam().name)));
  EXPECT_EQ(All(), 0U);
}

TEST_P(ProtocolArguments, NamesAreTakenFromTheirPlaces) {
  Arguments args(0, 10);
  for (unsigned n = 0; n < 10; ++n) args.Text(n, "other");
  args.Text(GetParam().vrf, "red");
  if (GetParam().interface >= 0) args.Text(static_cast<unsigned>(GetParam().interface), "ge0");
  GetParam().handler(&kSet, args.Block());
  EXPECT_EQ(All(), 1U);
}

TEST_P(ProtocolArguments, EveryEventButADeletionCountsUp) {
  const Arguments args = Names();
  const auto notify = [&](std::uint32_t events) {
    const KvNotifyInfo info{"item", events, nullptr};
    GetParam().handler(&info, args.Block());
  };
  for (const std::uint32_t events : {0U, kKvEventCreated, kKvEventSet, kKvEventCreated | kKvEventSet})
    notify(events);
  EXPECT_EQ(All(), 4U);
  notify(kKvEventDeleted);
  notify(kKvEventDeleted | kKvEventSet);
  EXPECT_EQ(All(), 2U);
}

INSTANTIATE_TEST_SUITE_P(EachHandler, ProtocolArguments, testing::ValuesIn(kHandlers));

TEST_F(Protocols, InterfaceNameIsOptionalForStaticRoutesOnly) {
  OnlyArea(ERR);
  for (const HandlerArguments& each : kHandlers) {
    if (each.interface >= 0) each.handler(&kSet, Arguments(0, 10).Text(each.vrf, "red").Block());
  }
  EXPECT_THAT(Prints(), ElementsAre(MissingArgument(1, "mpls_vpn_mib_rip_notify"),
                                    MissingArgument(5, "mpls_vpn_mib_ospf_notify"),
                                    MissingArgument(3, "mpls_vpn_mib_eigrp_notify")));
  EXPECT_EQ(OfVrf(kProtocolStatic), 1U);
  EXPECT_EQ(All(), 1U);
}

}  // namespace
