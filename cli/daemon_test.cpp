// The commands against a data store that answers over its socket, with records that this test fills.
#include <gmock/gmock.h>

#include <filesystem>
#include <map>

#include "cli/served_test_fixture.h"
#include "mpls/vpn/mib/src/records/layouts.h"

namespace cli {
namespace {

using ::testing::HasSubstr;
using ::testing::StartsWith;

// What the provider below answers from.
struct Row {
  std::string name;
  std::uint8_t protocol = 0;
};
struct ShorterFirst {
  bool operator()(const std::pair<std::string, std::uint32_t>& left,
                  const std::pair<std::string, std::uint32_t>& right) const {
    return std::tuple(left.first.size(), left.first, left.second) <
           std::tuple(right.first.size(), right.first, right.second);
  }
};
struct Answers {
  mpls_vpn_mib_scalars scalars{};
  std::map<std::pair<std::string, std::uint32_t>, Row, ShorterFirst> rows;
  unsigned reads_until_failure = 0;  // 0: never
  Status failure = kStatusIo;
  bool repeats = false;  // answers the first row whatever the key
};
Answers answers;

Status encode(const ParcelDescription& description, const void* record, KvReply* reply) {
  reply->kind = kKvKindRecord;
  return parcel_encode(&description, record, &reply->data, &reply->length);
}

Status get_scalars(KvReply* reply, const RequestArgs*) {
  return encode(kMibScalarsParcel, &answers.scalars, reply);
}

Status get_interface_next(KvReply* reply, const RequestArgs* args) {
  if (kvtree_absent(args, 0) || kvtree_absent(args, 1)) return kStatusArgumentMissing;
  if (answers.reads_until_failure != 0 && --answers.reads_until_failure == 0) return answers.failure;
  auto row = answers.rows.lower_bound({args->arg[0].text, *args->arg[1].number});
  if (answers.repeats) row = answers.rows.begin();
  if (row == answers.rows.end()) return kStatusNoSuchRow;
  std::string vrf = row->first.first;
  mpls_vpn_mib_interface record{};
  record.name = row->second.name.data();
  record.ifConfIndex = static_cast<std::int32_t>(row->first.second);
  record.vpnClassification = 2;
  record.protocol = row->second.protocol;
  record.storageType = 5;
  record.rowStatus = 1;
  record.vrfName = vrf.data();
  return encode(kMibInterfaceParcel, &record, reply);
}

Status get_wrong_type(KvReply* reply, const RequestArgs*) {
  mpls_vpn_mib_trap trap{};
  return encode(kMibTrapParcel, &trap, reply);
}

constexpr KvRoute kRoutes[] = {
    {"scalars", {.mode = 0, .get = get_scalars}},
    {"interface-next/<s>/<n>", {.mode = kKvModeNext, .get = get_interface_next}},
    {"wrong", {.mode = 0, .get = get_wrong_type}},
};
constexpr KvRoute kWrongRoutes[] = {{"scalars", {.mode = 0, .get = get_wrong_type}}};
constexpr KvRoutingTable kTable = {kRoutes, std::size(kRoutes)};
constexpr KvRoutingTable kWrongTable = {kWrongRoutes, std::size(kWrongRoutes)};
const KvRoutingTable* table = &kTable;

Status provide(const KvRequest* request, KvReply* reply) {
  return kvtree_match_get(request, table, reply);
}

Status following(const KvReply* row, std::string* path) {
  mpls_vpn_mib_interface record{};
  if (const Status status = parcel_decode(&kMibInterfaceParcel, row->data, row->length, &record))
    return status;
  *path = "interface-next/" + kvtree_encode_text(record.vrfName) + "/" +
          std::to_string(static_cast<std::uint32_t>(record.ifConfIndex) + 1);
  return parcel_free_indirections(&kMibInterfaceParcel, &record);
}
constexpr KvWalkRule kWalkRules[] = {{"interface-next", following}};

Status router_action(const KvActionContext&, const std::vector<std::string>& words, std::string* text,
                     void*) {
  *text = std::to_string(words.size());
  for (const std::string& word : words) *text += "|" + word;
  return words.at(1) == "refuse" ? kStatusExists : kStatusOk;
}

class Daemon : public ServedCommandLine {
 protected:
  void SetUp() override {
    ServedCommandLine::SetUp();
    answers = Answers{};
    table = &kTable;
    KvProviderFunctions functions;
    ASSERT_EQ(kvtree_init_prov_functions(&functions), kStatusOk);
    functions.get = provide;
    functions.walk_rules = kWalkRules;
    functions.walk_rule_count = std::size(kWalkRules);
    ASSERT_EQ(kvtree_register_prov2(provider_, "", manager_, &functions, 0, 1), kStatusOk);
    ASSERT_EQ(mpls_vpn_mib_parcel_register(), kStatusOk);
  }
  void TearDown() override {
    ServedCommandLine::TearDown();
    parcel_registry_reset();
  }

  void AddRow(const std::string& vrf, std::uint32_t index, const std::string& name,
              std::uint8_t protocol = 0x80) {
    answers.rows[{vrf, index}] = {name, protocol};
  }
};

TEST_F(Daemon, ScalarsAreShownWithTheirTitles) {
  answers.scalars = {3, 2, 8, 1, 60, 5};
  EXPECT_EQ(Ask({"show", "scalars"}), kExitOk) << Err();
  EXPECT_EQ(Out(),
            "VRFs configured             3\n"
            "VRFs active                 2\n"
            "interfaces connected        8\n"
            "notifications               enabled\n"
            "maximum threshold re-issue  60 s\n"
            "illegal label threshold     5\n");
}

TEST_F(Daemon, ScalarsWithoutAReissueTimeShowNever) {
  EXPECT_EQ(Ask({"show", "scalars"}), kExitOk) << Err();
  EXPECT_THAT(Out(), HasSubstr("re-issue  never\n"));
  EXPECT_THAT(Out(), HasSubstr("notifications               disabled\n"));
}

TEST_F(Daemon, ScalarsAsJsonHaveTheRecordsKeys) {
  answers.scalars = {3, 2, 8, 1, 60, 5};
  EXPECT_EQ(AskForJson({"show", "scalars"}), (Json{{"configuredVrfs", 3},
                                                   {"activeVrfs", 2},
                                                   {"connectedInterfaces", 8},
                                                   {"notificationEnable", 1},
                                                   {"notificationEnableName", "enabled"},
                                                   {"maxThresholdNotifTime", 60},
                                                   {"illegalLabelsThreshold", 5}}));
}

TEST_F(Daemon, InterfacesAreShownInTheDaemonsOrder) {
  AddRow("customer", 3, "ge0.100", 0x44);
  AddRow("red", 12, "ge1", 0);
  AddRow("red", 300000, "ge2");
  EXPECT_EQ(Ask({"show", "interfaces"}), kExitOk) << Err();
  EXPECT_EQ(Out(),
            "VRF        INDEX  INTERFACE  PROTOCOLS   CLASS       STORAGE   STATUS\n"
            "red           12  ge1        -           enterprise  readOnly  active\n"
            "red       300000  ge2        none        enterprise  readOnly  active\n"
            "customer       3  ge0.100    bgp,static  enterprise  readOnly  active\n");
}

TEST_F(Daemon, InterfacesOfOneVrfAreShownAlone) {
  AddRow("red", 1, "a");
  AddRow("blue", 2, "b");
  AddRow("blue", 3, "c");
  AddRow("green", 4, "d");
  const Json rows = AskForJson({"show", "interfaces", "blue"});
  ASSERT_EQ(rows.size(), 2U);
  EXPECT_EQ(rows[0]["name"], "b");
  EXPECT_EQ(rows[1]["name"], "c");
}

TEST_F(Daemon, InterfaceAsJsonHasNumbersAndNames) {
  AddRow("red", 12, "ge1", 0x44);
  EXPECT_EQ(AskForJson({"show", "interfaces"})[0], (Json{{"vrfName", "red"},
                                                         {"ifConfIndex", 12},
                                                         {"name", "ge1"},
                                                         {"vpnClassification", 2},
                                                         {"vpnClassificationName", "enterprise"},
                                                         {"protocol", 0x44},
                                                         {"protocolNames", {"bgp", "static"}},
                                                         {"storageType", 5},
                                                         {"storageTypeName", "readOnly"},
                                                         {"rowStatus", 1},
                                                         {"rowStatusName", "active"}}));
}

TEST_F(Daemon, TableWithoutInterfacesIsAnEmptyList) {
  EXPECT_EQ(AskForJson({"show", "interfaces"}), Json::array());
  EXPECT_EQ(AskForJson({"show", "interfaces", "red"}), Json::array());
  EXPECT_EQ(Ask({"show", "interfaces"}), kExitOk);
  EXPECT_EQ(Out(), "VRF  INDEX  INTERFACE  PROTOCOLS  CLASS  STORAGE  STATUS\n");
}

TEST_F(Daemon, LongTableIsReadInBatchesWithEachRowOnce) {
  for (std::uint32_t index = 1; index <= 1500; ++index) AddRow("red", index, "ge" + std::to_string(index));
  AddRow("blue", 1, "last");
  const Json rows = AskForJson({"show", "interfaces"});
  ASSERT_EQ(rows.size(), 1501U);
  for (std::uint32_t at = 0; at < 1500; ++at) EXPECT_EQ(rows[at]["ifConfIndex"], at + 1);
  EXPECT_EQ(rows[1500]["name"], "last");
}

TEST_F(Daemon, LargestIndexIsFollowedByTheNextVrf) {
  AddRow("red", 2147483647, "a");
  AddRow("blue", 1, "b");
  EXPECT_EQ(AskForJson({"show", "interfaces"}).size(), 2U);
}

TEST_F(Daemon, OddVrfNamesTravelSafely) {
  for (const char* name : {"-", "a/b", "50%", "caf\xc3\xa9", "with blank"}) {
    answers.rows.clear();
    AddRow(name, 1, "ge0");
    const Json rows = AskForJson({"show", "interfaces", name});
    ASSERT_EQ(rows.size(), 1U) << name;
    EXPECT_EQ(rows[0]["vrfName"], name);
  }
}

TEST_F(Daemon, TruncatedListIsNotValidJson) {
  for (std::uint32_t index = 1; index <= 1500; ++index) AddRow("red", index, "ge");
  answers.reads_until_failure = 700;
  EXPECT_EQ(Ask({"--json", "show", "interfaces"}), kExitFailed);
  EXPECT_FALSE(Json::accept(Out()));
  EXPECT_THAT(Err(), HasSubstr("Input/output error"));
}

TEST_F(Daemon, TableThatRepeatsARowEnds) {
  AddRow("red", 1, "ge0");
  answers.repeats = true;
  EXPECT_EQ(Ask({"show", "interfaces"}), kExitFailed);
  EXPECT_THAT(Err(), HasSubstr("the daemon repeats a row of the interface table"));
}

TEST_F(Daemon, GetShowsARecordOfAnyType) {
  answers.scalars.configuredVrfs = 3;
  EXPECT_EQ(AskForJson({"get", "scalars"})["configuredVrfs"], 3);
  EXPECT_EQ(AskForJson({"get", "/oper/mpls_vpn/gl/scalars"})["configuredVrfs"], 3);
  AddRow("red", 1, "ge0");
  EXPECT_EQ(AskForJson({"get", "interface-next/red/0"})["name"], "ge0");
  EXPECT_EQ(Ask({"get", "scalars"}), kExitOk);
  EXPECT_THAT(Out(), StartsWith("{\n  "));
}

TEST_F(Daemon, FailureOfGetHasThePathAndTheReason) {
  EXPECT_EQ(Ask({"get", "nothing"}), kExitFailed);
  EXPECT_EQ(Err(), "mplsvpn: /oper/mpls_vpn/gl/nothing: No such path (0x40818a00)\n");
  EXPECT_EQ(Ask({"get", "interface-next/red"}), kExitFailed);
  EXPECT_EQ(Err(),
            "mplsvpn: /oper/mpls_vpn/gl/interface-next/red: A path argument is missing (0x40818800)\n");
  EXPECT_EQ(Ask({"get", "interface-next/red/0"}), kExitFailed);
  EXPECT_EQ(Err(), "mplsvpn: /oper/mpls_vpn/gl/interface-next/red/0: no such row\n");
}

TEST_F(Daemon, GetOfATypeWithoutDescriptionIsAFailure) {
  parcel_registry_reset();
  std::filesystem::remove(Directory() + "/parcel.registry");
  EXPECT_EQ(Ask({"get", "wrong"}), kExitFailed);
  EXPECT_THAT(Err(), HasSubstr("a record of type \"mpls_vpn_mib_trap\" that " + Directory() +
                               "/parcel.registry does not describe"));
}

TEST_F(Daemon, AnswerOfAnotherTypeIsAFailure) {
  table = &kWrongTable;
  EXPECT_EQ(Ask({"show", "scalars"}), kExitFailed);
  EXPECT_THAT(Err(),
              HasSubstr("the answer is not of the type mpls_vpn_mib_scalars as this program knows it"));
}

TEST_F(Daemon, RouterWordsGoToTheActionAsTheyAre) {
  ASSERT_EQ(kvtree_register_action("router", router_action, nullptr), kStatusOk);
  EXPECT_EQ(Ask({"router", "add-vrf", "red", "description", "two words", "--json"}), kExitOk) << Err();
  EXPECT_EQ(Out(), "6|router|add-vrf|red|description|two words|--json\n");
  EXPECT_EQ(AskForJson({"router", "show"}), (Json{{"text", "2|router|show"}}));
}

TEST_F(Daemon, RouterRefusalIsShownAsItIs) {
  ASSERT_EQ(kvtree_register_action("router", router_action, nullptr), kStatusOk);
  EXPECT_EQ(Ask({"router", "refuse"}), kExitFailed);
  EXPECT_EQ(Out(), "");
  EXPECT_EQ(Err(), "mplsvpn: 2|router|refuse\n");
}

TEST_F(Daemon, DaemonWithoutARouterFileHasNoRouterCommands) {
  EXPECT_EQ(Ask({"router", "show"}), kExitFailed);
  EXPECT_EQ(Err(), "mplsvpn: the daemon's source is not a router file, so there are no router commands\n");
}

TEST_F(Daemon, DaemonThatDoesNotAnswerIsGivenUp) {
  EXPECT_EQ(Run({"--timeout", "50", "show", "scalars"}), kExitFailed);  // the event loop does not run
  EXPECT_EQ(Err(), "mplsvpn: /oper/mpls_vpn/gl/scalars: no answer within 50 ms; --timeout sets the limit\n");
}

TEST_F(Daemon, DaemonThatStopsIsNotRunning) {
  std::atomic<bool> done = false;
  int exit_status = -1;
  std::thread command([&] {
    exit_status = Run({"--timeout", "60000", "show", "scalars"});
    done = true;
  });
  event_set_acceptor(manager_, [](int fd) { close(fd); });
  while (!done) event_run_pending(manager_, kNanosecondsPerMillisecond);
  command.join();
  EXPECT_EQ(exit_status, kExitNoDaemon);
  EXPECT_THAT(Err(), HasSubstr("mpls_vpn_mib closed the connection"));
}

}  // namespace
}  // namespace cli
