// The commands of the action "router".
#include <nlohmann/json.hpp>
#include <stdexcept>

#include "sources/file/commands/router_commands.h"
#include "sources/file/commands/router_commands_test_support.h"

namespace {

using ::testing::HasSubstr;
using ::testing::Not;
using Json = nlohmann::json;

const router::Interface& interface_named(const router::Router& model, const char* name) {
  const router::Interface* interface = model.find_interface_by_name(name);
  if (interface == nullptr) throw std::runtime_error(std::string("no interface ") + name);
  return *interface;
}

TEST_F(RouterCommands, HelpListsEveryCommand) {
  Do("");
  for (const RouterCommand& command : router_commands()) EXPECT_THAT(text_, HasSubstr(command.word));
  EXPECT_THAT(text_, HasSubstr("until the file is loaded again"));
  const std::string without_words = text_;
  Do("help");
  EXPECT_EQ(text_, without_words);
}

TEST_F(RouterCommands, UnknownCommandIsRefused) {
  EXPECT_EQ(Say("reboot"), kStatusInvalid);
  EXPECT_EQ(text_, "unknown command \"reboot\"; \"router help\" lists the commands");
}

TEST_F(RouterCommands, CommandsMayBeAbbreviated) {
  Do("add-v red table 10");
  EXPECT_NE(router_.find_vrf("red"), nullptr);
  EXPECT_EQ(Say("add red"), kStatusInvalid);
  EXPECT_THAT(text_, HasSubstr("\"add\" is ambiguous: add-vrf, add-interface, "));
  EXPECT_EQ(Say("relaod"), kStatusInvalid);
  EXPECT_THAT(text_, HasSubstr("did you mean \"reload\"?"));
}

TEST_F(RouterCommands, EveryCommandThatChangesNeedsPermission) {
  for (const RouterCommand& command : router_commands()) {
    if (std::string(command.word) == "show") continue;
    EXPECT_EQ(Say(command.word, false), kStatusAccess) << command.word;
    EXPECT_EQ(text_, "changing the router is for root and the administrators' group");
  }
  EXPECT_EQ(reloads_, 0);
}

TEST_F(RouterCommands, ShowNeedsNoPermission) {
  EXPECT_EQ(Say("show", false), kStatusOk);
}

TEST_F(RouterCommands, WrongNumberOfWordsShowsTheUsage) {
  EXPECT_EQ(Say("join ge0"), kStatusInvalid);
  EXPECT_EQ(text_, "usage: router join NAME VRF");
  EXPECT_EQ(Say("reload now"), kStatusInvalid);
  EXPECT_EQ(text_, "usage: router reload");
}

TEST_F(RouterCommands, AddedVrfHasTheGivenValues) {
  Do("add-vrf red id 7 table 10 rd 65000:1 description the_red_one big");
  EXPECT_EQ(text_, "VRF red created with id 7");
  const router::Vrf* red = router_.find_vrf("red");
  ASSERT_NE(red, nullptr);
  EXPECT_EQ(red->id, 7U);
  EXPECT_EQ(red->ipv4_table, 10U);
  EXPECT_EQ(red->ipv6_table, 10U);
  EXPECT_EQ(red->rd, "65000:1");
  EXPECT_EQ(red->description, "the red one");
  EXPECT_EQ(red->flags, router::kVrfFlagBig);
}

TEST_F(RouterCommands, VrfWithoutAnIdGetsItsTablesOrTheNextFreeOne) {
  Do("add-vrf first");
  EXPECT_EQ(router_.find_vrf("first")->id, 2U);
  EXPECT_EQ(router_.find_vrf("first")->ipv4_table, 2U);
  Do("add-vrf second table 50");
  EXPECT_EQ(router_.find_vrf("second")->id, 50U);
  Do("add-vrf third");
  EXPECT_EQ(router_.find_vrf("third")->id, 51U);
}

TEST_F(RouterCommands, BadWordsOfAVrfAreNamed) {
  EXPECT_EQ(Say("add-vrf red id 1"), kStatusInvalid);
  EXPECT_EQ(text_, "\"1\" is not a valid id");
  EXPECT_EQ(Say("add-vrf red id"), kStatusInvalid);
  EXPECT_EQ(text_, "\"id\" takes a value");
  EXPECT_EQ(Say("add-vrf red rd 5"), kStatusInvalid);
  EXPECT_EQ(text_, "\"5\" is not a valid rd");
  EXPECT_EQ(Say("add-vrf red small"), kStatusInvalid);
  EXPECT_EQ(text_, "unknown word \"small\"");
  EXPECT_EQ(Say("add-vrf " + std::string(32, 'v')), kStatusInvalid);
  EXPECT_EQ(Say("add-vrf red description " + std::string(256, 'd')), kStatusInvalid);
  EXPECT_EQ(router_.vrf_count(), 0U);
}

TEST_F(RouterCommands, RefusalNamesWhatIsInTheWay) {
  Do("add-vrf red id 7");
  EXPECT_EQ(Say("add-vrf red id 8"), kStatusExists);
  EXPECT_EQ(text_, "VRF red exists");
  EXPECT_EQ(Say("add-vrf blue id 7"), kStatusExists);
  EXPECT_EQ(text_, "the VRF id 7 is that of VRF red");
  EXPECT_EQ(Say("add-vrf default"), kStatusInvalid);
  EXPECT_EQ(Say("delete-vrf blue"), kStatusNoSuchRow);
  EXPECT_EQ(text_, "VRF blue does not exist");
  EXPECT_EQ(Say("unreference blue"), kStatusNoSuchRow);
  EXPECT_EQ(text_, "nothing references VRF blue");
  Do("add-interface ge0 index 5");
  EXPECT_EQ(Say("add-interface ge0 index 6"), kStatusExists);
  EXPECT_EQ(text_, "interface ge0 exists");
  EXPECT_EQ(Say("add-interface ge1 index 5"), kStatusExists);
  EXPECT_EQ(text_, "the index 5 is that of interface ge0");
}

TEST_F(RouterCommands, HelpAfterACommandShowsItsUsageAndChangesNothing) {
  for (const char* line : {"add-vrf --help", "add-vrf -h", "help add-vrf", "--help add-vrf"}) {
    EXPECT_EQ(Say(line, false), kStatusOk) << line;
    EXPECT_EQ(text_,
              "usage: router add-vrf NAME [id N] [table N] [rd RD] [description TEXT] [big]\n"
              "  creates a VRF; without an id it gets its table's number or the next free one")
        << line;
  }
  EXPECT_EQ(Say("--help"), kStatusOk);
  EXPECT_THAT(text_, HasSubstr("router add-interface"));
  EXPECT_EQ(Say("help ad-vrf"), kStatusInvalid);
  EXPECT_EQ(text_, "unknown command \"ad-vrf\"; did you mean \"add-vrf\"?");
  EXPECT_EQ(router_.vrf_count(), 0U);
}

TEST_F(RouterCommands, NamesInCommandsDoNotLookLikeOptions) {
  EXPECT_EQ(Say("add-vrf --hlep"), kStatusInvalid);
  EXPECT_EQ(text_, "\"--hlep\" is not a VRF name; a name in a command does not begin with \"-\"");
  EXPECT_EQ(Say("add-interface -x index 5"), kStatusInvalid);
  EXPECT_EQ(Say("reference -x"), kStatusInvalid);
  Do("add-vrf -");
}

TEST_F(RouterCommands, MembersOfADeletedVrfStillNameIt) {
  Do("add-vrf red");
  Do("add-interface ge0 index 1 vrf red");
  Do("delete-vrf red");
  EXPECT_EQ(router_.find_vrf("red"), nullptr);
  EXPECT_EQ(interface_named(router_, "ge0").vrf, "red");
}

TEST_F(RouterCommands, ReferenceIsAddedAndRemoved) {
  Do("reference later");
  EXPECT_TRUE(router_.is_referenced("later"));
  Do("unreference later");
  EXPECT_FALSE(router_.is_referenced("later"));
  EXPECT_EQ(Say("unreference later"), kStatusNoSuchRow);
}

TEST_F(RouterCommands, AddedInterfaceHasTheGivenValues) {
  Do("add-interface ge0 index 5 down vrf red address 10.0.0.1/24 address 2001:db8::1/64 description to_red");
  const router::Interface& ge0 = interface_named(router_, "ge0");
  EXPECT_EQ(ge0.index, 5U);
  EXPECT_FALSE(ge0.up);
  EXPECT_EQ(ge0.vrf, "red");
  EXPECT_EQ(ge0.addresses.size(), 2U);
  EXPECT_EQ(ge0.description, "to red");
  Do("add-interface ge1 index 6");
  EXPECT_TRUE(interface_named(router_, "ge1").up);
  Do("add-interface ge2 index 7 down up");
  EXPECT_TRUE(interface_named(router_, "ge2").up);
}

TEST_F(RouterCommands, BadWordsOfAnInterfaceAreNamed) {
  EXPECT_EQ(Say("add-interface ge0"), kStatusInvalid);
  EXPECT_EQ(text_, "an interface needs an index");
  EXPECT_EQ(Say("add-interface ge0 index 2147483648"), kStatusInvalid);
  EXPECT_EQ(Say("add-interface ge0 index 1 address 10.0.0"), kStatusInvalid);
  EXPECT_EQ(text_, "\"10.0.0\" is not a valid address");
  EXPECT_EQ(Say("add-interface ge0 index 1 vrf " + std::string(32, 'v')), kStatusInvalid);
  EXPECT_EQ(Say("add-interface " + std::string(64, 'i') + " index 1"), kStatusInvalid);
  EXPECT_EQ(router_.interface_count(), 0U);
}

TEST_F(RouterCommands, InterfaceIsSetDownUpAndDeleted) {
  Do("add-interface ge0 index 5");
  Do("down ge0");
  EXPECT_EQ(text_, "interface ge0 is down");
  EXPECT_FALSE(interface_named(router_, "ge0").up);
  Do("up ge0");
  EXPECT_TRUE(interface_named(router_, "ge0").up);
  Do("delete-interface ge0");
  EXPECT_EQ(text_, "interface ge0 removed");
  EXPECT_EQ(router_.interface_count(), 0U);
}

TEST_F(RouterCommands, InterfaceJoinsMovesAndLeaves) {
  Do("add-interface ge0 index 5");
  Do("add-vrf red");
  Do("join ge0 red");
  EXPECT_EQ(text_, "interface ge0 is in VRF red");
  EXPECT_EQ(interface_named(router_, "ge0").vrf, "red");
  Do("move ge0 blue");
  EXPECT_EQ(
      text_,
      "interface ge0 is in VRF blue\nwarning: VRF blue does not exist; \"router add-vrf blue\" creates it");
  EXPECT_EQ(interface_named(router_, "ge0").vrf, "blue");
  Do("leave ge0");
  EXPECT_EQ(text_, "interface ge0 is in no VRF");
  EXPECT_EQ(interface_named(router_, "ge0").vrf, "default");
}

TEST_F(RouterCommands, AddressesAreAddedAndRemoved) {
  Do("add-interface ge0 index 5 address 10.0.0.1/24");
  Do("add-address ge0 10.0.1.1/24");
  EXPECT_EQ(interface_named(router_, "ge0").addresses.size(), 2U);
  EXPECT_EQ(Say("add-address ge0 10.0.1.1/30"), kStatusExists);
  Do("delete-address ge0 10.0.0.1");
  ASSERT_EQ(interface_named(router_, "ge0").addresses.size(), 1U);
  EXPECT_EQ(router::format_address(*interface_named(router_, "ge0").addresses.begin()), "10.0.1.1/24");
  EXPECT_EQ(Say("delete-address ge0 10.0.0.1"), kStatusNoSuchRow);
  EXPECT_EQ(Say("add-address ge0 10.0.1"), kStatusInvalid);
  EXPECT_EQ(Say("delete-address ge0 10.0.1"), kStatusInvalid);
}

TEST_F(RouterCommands, UnknownInterfaceIsNamed) {
  for (const char* command : {"delete-interface ge9", "up ge9", "down ge9", "join ge9 red", "leave ge9",
                              "add-address ge9 10.0.0.1", "delete-address ge9 10.0.0.1"}) {
    EXPECT_EQ(Say(command), kStatusNoSuchRow) << command;
    EXPECT_EQ(text_, "there is no interface \"ge9\"") << command;
  }
}

TEST_F(RouterCommands, ReloadAsksTheSource) {
  EXPECT_EQ(Say("reload"), kStatusInProgress);
  EXPECT_EQ(reloads_, 1);
}

TEST_F(RouterCommands, ShowListsEverything) {
  Do("add-vrf red id 7 rd 1:1 big description the_red_one");
  Do("reference later");
  Do("add-interface ge0 index 5 vrf red address 10.0.0.1/24");
  Do("add-interface ge1 index 6 vrf deleted down description spare");
  Do("show");
  EXPECT_EQ(text_,
            "1 VRF, 2 interfaces\n"
            "vrf red id 7 ipv4-table 7 ipv6-table 7 rd 1:1 big description \"the red one\"\n"
            "vrf later referenced\n"
            "interface ge0 index 5 up vrf red 10.0.0.1/24\n"
            "interface ge1 index 6 down vrf deleted (no such VRF) description \"spare\"");
}

TEST_F(RouterCommands, ShowOfANameIsLimitedToIt) {
  Do("add-vrf red id 7");
  Do("add-vrf blue id 8");
  Do("reference later");
  Do("add-interface ge0 index 5 vrf red");
  Do("add-interface ge1 index 6 vrf blue");
  Do("show red");
  EXPECT_EQ(text_, "vrf red id 7 ipv4-table 7 ipv6-table 7\ninterface ge0 index 5 up vrf red");
  Do("show ge1");
  EXPECT_EQ(text_, "interface ge1 index 6 up vrf blue");
  Do("show later");
  EXPECT_EQ(text_, "vrf later referenced");
  EXPECT_EQ(Say("show nothing"), kStatusNoSuchRow);
  EXPECT_EQ(text_, "no VRF or interface is named \"nothing\"");
}

TEST_F(RouterCommands, ShowIsAnObjectOfJsonOnRequest) {
  Do("add-vrf red id 7 rd 1:1 big description the_red_one");
  Do("reference later");
  Do("add-interface ge0 index 5 vrf red address 10.0.0.1/24");
  Do("add-interface ge1 index 6 vrf deleted down");
  Do("add-route red 10.1.0.0/16 via 10.0.0.2 protocol bgp metric 5 label 17");
  Do("show --json");
  const Json all = Json::parse(text_);
  EXPECT_EQ(all["vrfs"], Json::parse(R"([{"name":"red","id":7,"ipv4Table":7,"ipv6Table":7,
      "ipv4MulticastTable":null,"ipv6MulticastTable":null,"rd":"1:1","isBig":true,"description":"the red one"}])"));
  EXPECT_EQ(all["references"], Json::parse(R"(["later"])"));
  EXPECT_EQ(all["interfaces"][1],
            Json::parse(R"({"name":"ge1","index":6,"isUp":false,"vrf":"deleted","hasVrf":false,
      "addresses":[],"description":null})"));
  EXPECT_FALSE(all.contains("notListed"));
  Do("show red --json");
  const Json red = Json::parse(text_);
  EXPECT_EQ(red["interfaces"][0]["addresses"], Json::parse(R"(["10.0.0.1/24"])"));
  Json route = red["routes"][0];
  EXPECT_TRUE(route["age"].is_number());
  route.erase("age");
  EXPECT_EQ(route,
            Json::parse(R"({"prefix":"10.1.0.0/16","nextHop":"10.0.0.2","interface":null,"type":"remote",
      "protocol":"bgp","metric":5,"labels":[17]})"));
  EXPECT_EQ(Say("show red later"), kStatusInvalid);
}

TEST_F(RouterCommands, ShowOfALargeRouterIsBounded) {
  for (std::uint32_t number = 2; number < 1203; ++number) Do("add-vrf v" + std::to_string(number));
  Do("show");
  EXPECT_THAT(text_, HasSubstr("vrf v1001 "));
  EXPECT_THAT(text_, Not(HasSubstr("vrf v1002 ")));
  EXPECT_THAT(text_, HasSubstr("... and 201 more VRFs"));
  Do("show --json");
  EXPECT_EQ(Json::parse(text_)["notListed"], (Json{{"vrfs", 201}}));
}

// Every user may ask for it.
TEST_F(RouterCommands, ShowIsMadeInStepsWithTheSameText) {
  Do("add-vrf red");
  for (std::uint32_t number = 1; number <= 1500; ++number) {
    const std::string name = std::to_string(number);
    Do("reference r" + name);
    Do("add-interface e" + name + " index " + name + " vrf " + (number % 2 == 0 ? "red" : "blue"));
  }
  for (const std::string command : {"show", "show red"}) {
    Do(command);
    const std::string whole = text_;
    KvSteps steps;  // each is over at once
    int count = 1;
    for (; Say(command, false, &steps) == kStatusUnfinished; ++count) EXPECT_EQ(text_, "");
    EXPECT_EQ(text_, whole);
    EXPECT_GE(count, 1500 / 100);
  }
}

TEST_F(RouterCommands, ShowContinuesAfterWhatIsDeletedMeanwhile) {
  for (int number = 100; number < 300; ++number) Do("add-vrf v" + std::to_string(number));
  KvSteps steps;
  EXPECT_EQ(Say("show", false, &steps), kStatusUnfinished);
  for (int number = 100; number < 250; ++number) Do("delete-vrf v" + std::to_string(number));
  while (Say("show", false, &steps) == kStatusUnfinished) {
  }
  EXPECT_THAT(text_, HasSubstr("\nvrf v100 "));
  EXPECT_THAT(text_, Not(HasSubstr("\nvrf v249 ")));
  EXPECT_THAT(text_, HasSubstr("\nvrf v299 "));
}

}  // namespace
