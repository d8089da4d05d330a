// Abbreviations, help, "--" and wrong words.
#include "cli/arguments.h"

#include <gmock/gmock.h>

#include <CLI/CLI.hpp>
#include <sstream>

#include "cli/command_line_test_fixture.h"
#include "cli/output/wrap.h"

namespace cli {
namespace {

using ::testing::HasSubstr;
using ::testing::StartsWith;

class Arguments : public CommandLine {
 protected:
  // What a usage error says.
  std::string Wrong(const std::vector<std::string>& words) {
    EXPECT_EQ(Run(words), kExitUsage) << ::testing::PrintToString(words);
    EXPECT_EQ(Out(), "");
    return Err();
  }
  bool IsCommand(const std::vector<std::string>& words) { return Run(words) == kExitNoDaemon; }
};

TEST_F(Arguments, UnknownWordIsNamedWithTheClosestOne) {
  EXPECT_EQ(Wrong({"shwo", "vrf"}),
            "mplsvpn: unknown word \"shwo\"; did you mean \"show\"? (mplsvpn --help)\n");
  EXPECT_EQ(Wrong({"show", "vrfs"}),
            "mplsvpn: unknown word \"vrfs\"; did you mean \"vrf\"? (mplsvpn show --help)\n");
  EXPECT_EQ(Wrong({"show", "vrf", "red", "brief", "x", "y", "z"}),
            "mplsvpn: unexpected word \"z\" (mplsvpn show vrf --help)\n");
  EXPECT_EQ(Wrong({"--hlep"}),
            "mplsvpn: unknown option \"--hlep\"; did you mean \"--help\"? (mplsvpn --help)\n");
  EXPECT_THAT(Wrong({"nonsense"}), StartsWith("mplsvpn: unknown word \"nonsense\"; expected show, get, "));
  EXPECT_THAT(Wrong({"\x1b[31m"}), HasSubstr("\"\\x1b[31m\""));
}

TEST_F(Arguments, MissingWordIsNamedWithTheAlternatives) {
  EXPECT_THAT(Wrong({}), StartsWith("mplsvpn: a word is missing after \"mplsvpn\"; expected show, get, "));
  EXPECT_THAT(Wrong({"show"}),
              StartsWith("mplsvpn: a word is missing after \"mplsvpn show\"; expected scalars, status, "));
}

TEST_F(Arguments, MissingValueIsReportedWithTheHelpOfTheCommand) {
  EXPECT_EQ(Wrong({"show", "routes"}), "mplsvpn: VRF is required (mplsvpn show routes --help)\n");
  EXPECT_EQ(Wrong({"export"}), "mplsvpn: --format is required (mplsvpn export --help)\n");
  EXPECT_EQ(Wrong({"show", "traps", "--last"}),
            "mplsvpn: a value is missing after \"--last\" (mplsvpn show traps --help)\n");
  EXPECT_EQ(Wrong({"show", "traps", "--last", "0"}),
            "mplsvpn: --last: 0 is not a number from 1 to 500 (mplsvpn show traps --help)\n");
}

TEST_F(Arguments, WrongValueIsReportedWithTheHelpThatHasTheOption) {
  EXPECT_THAT(Wrong({"show", "vrf", "--timeout", "soon"}), HasSubstr(" (mplsvpn --help)\n"));
  EXPECT_THAT(Wrong({"watch", "--timeout", "soon"}), HasSubstr(" (mplsvpn watch --help)\n"));
}

TEST_F(Arguments, UnambiguousBeginningsOfWordsAndOptionsAreAccepted) {
  EXPECT_TRUE(IsCommand({"sh", "int"}));
  EXPECT_TRUE(IsCommand({"sh", "vrf", "red", "detail", "--struct"}));
  EXPECT_TRUE(IsCommand({"conf", "sh"}));
  EXPECT_TRUE(IsCommand({"--time", "50", "sh", "sc"}));
  EXPECT_TRUE(IsCommand({"--time=50", "sh", "sc"}));
  EXPECT_THAT(Wrong({"show", "route"}), HasSubstr("\"route\" is ambiguous: route-targets or routes"));
  EXPECT_THAT(Wrong({"show", ""}), HasSubstr("unknown word \"\""));
}

TEST_F(Arguments, WordsAndValuesOfACommandMayBeAbbreviated) {
  EXPECT_TRUE(IsCommand({"show", "vrf", "red", "det", "ipv6"}));
  EXPECT_TRUE(IsCommand({"show", "vrf", "--state", "do", "--prot=bg", "--sort", "rou"}));
  EXPECT_TRUE(IsCommand({"watch", "int"}));
  EXPECT_TRUE(IsCommand({"export", "--format", "nap"}));
  EXPECT_TRUE(IsCommand({"graph", "--format", "d"}));
  EXPECT_TRUE(IsCommand({"config", "show", "--owner", "c"}));
  EXPECT_TRUE(IsCommand({"config", "set", "vrf", "red", "desc", "of", "red"}));
  EXPECT_TRUE(IsCommand({"debug", "li"}));
  EXPECT_TRUE(IsCommand({"debug", "prov", "of"}));
  EXPECT_THAT(Wrong({"show", "vrf", "red", "ip"}), HasSubstr("\"ip\" is ambiguous: ipv4 or ipv6"));
  EXPECT_THAT(Wrong({"show", "vrf", "--sort", "r"}), HasSubstr("--sort: \"r\" is ambiguous: rd or routes"));
  EXPECT_THAT(Wrong({"config", "set", "vrf", "red", "r", "1:1"}),
              HasSubstr("\"r\" is ambiguous: rd, rt, rip or ripng"));
}

TEST_F(Arguments, UnknownWordsAndValuesOfACommandHaveTheClosestOne) {
  EXPECT_THAT(Wrong({"watch", "interfces"}),
              HasSubstr("unknown word \"interfces\"; did you mean \"interfaces\"?"));
  EXPECT_THAT(Wrong({"show", "vrf", "--protocol", "bpg"}),
              HasSubstr("--protocol: unknown word \"bpg\"; did you mean \"bgp\"?"));
  EXPECT_THAT(Wrong({"show", "vrf", "--state", "dwn"}), HasSubstr("did you mean \"down\"?"));
  EXPECT_THAT(Wrong({"show", "vrf", "--sort", "nme"}), HasSubstr("did you mean \"name\"?"));
  EXPECT_THAT(Wrong({"show", "vrf", "--sort", "x"}),
              HasSubstr("unknown word \"x\"; expected name, rd, state, interfaces, routes or changed"));
  EXPECT_THAT(Wrong({"export", "--format", "netobx"}), HasSubstr("did you mean \"netbox\"?"));
  EXPECT_THAT(Wrong({"doctor", "--only", "snmp-veiw"}), HasSubstr("did you mean \"snmp-view\"?"));
  EXPECT_THAT(Wrong({"config", "show", "--owner", "fiel"}), HasSubstr("did you mean \"file\"?"));
  EXPECT_THAT(Wrong({"debug", "wtach"}), HasSubstr("did you mean \"watch\"?"));
  EXPECT_THAT(Wrong({"debug", "prov", "onn"}), HasSubstr("did you mean \"on\"?"));
}

TEST_F(Arguments, WordsOfACommandAreNeitherCommandsNorOptions) {
  EXPECT_TRUE(IsCommand({"show", "interfaces", "config"}));
  EXPECT_TRUE(IsCommand({"show", "interfaces", "--", "--json"}));
  EXPECT_TRUE(IsCommand({"show", "vrf", "--", "red"}));
  EXPECT_TRUE(IsCommand({"--", "show", "vrf", "-"}));
  EXPECT_TRUE(IsCommand({"router", "--", "add-vrf", "red"}));
  EXPECT_TRUE(IsCommand({"show", "vrf", "--name", "--json"}));
  EXPECT_THAT(Wrong({"show", "vrf", "--nothing"}), HasSubstr("unknown option \"--nothing\""));
}

TEST_F(Arguments, HelpIsACommandToo) {
  EXPECT_EQ(Run({"show", "vrf", "--help"}), kExitOk);
  const std::string help = Out();
  EXPECT_THAT(help, HasSubstr("mplsvpn show vrf red detail"));
  EXPECT_EQ(Run({"help", "show", "vrf"}), kExitOk);
  EXPECT_EQ(Out(), help);
  EXPECT_EQ(Run({"show", "vrf", "red", "--help"}), kExitOk);
  EXPECT_EQ(Out(), help);
  EXPECT_EQ(Run({"help"}), kExitOk);
  EXPECT_THAT(Out(), HasSubstr("Exit status:"));
  EXPECT_EQ(Run({"show"}), kExitUsage) << "help is not a word of other commands";
  EXPECT_EQ(Run({"help", "--help"}), kExitOk);
  EXPECT_THAT(Out(), HasSubstr("mplsvpn help"));
  EXPECT_THAT(Wrong({"help", "shwo"}), HasSubstr("did you mean \"show\"?"));
}

TEST_F(Arguments, HelpFitsIntoEightyColumns) {
  for (const char* command : {"", "show", "show vrf", "show routes", "get", "list", "debug", "trace", "watch",
                              "config", "config set", "config load", "config history", "router"}) {
    std::vector<std::string> words = {"help"};
    std::istringstream parts(command);
    for (std::string part; parts >> part;) words.push_back(part);
    ASSERT_EQ(Run(words), kExitOk);
    std::istringstream lines(Out());
    for (std::string line; std::getline(lines, line);) EXPECT_LE(line.size(), 80U) << command << ": " << line;
  }
}

TEST(Wrapping, RestOfALineBeginsBelowItsSecondColumn) {
  EXPECT_EQ(wrapped("  --max N   one two three\nshort\n", 20),
            "  --max N   one two\n            three\nshort\n");
  EXPECT_EQ(wrapped("  one two three four", 11), "  one two\n  three\n  four\n");
  EXPECT_EQ(wrapped("a-word-without-blanks", 5), "a-word-without-blanks\n");
  EXPECT_EQ(wrapped("\n\n", 5), "\n\n");
  EXPECT_EQ(wrapped("one two", 0), "one two\n");
  EXPECT_EQ(wrapped("one two\n", 0), "one two\n");
}

TEST_F(Arguments, PagerIsStartedForLongOutputOnATerminalOnly) {
  std::ostringstream out;
  std::ostringstream err;
  unsigned started = 0;
  Terminal terminal;
  terminal.start_pager = [&started] { ++started; };
  for (const std::vector<std::string>& words : std::vector<std::vector<std::string>>{
           {"show", "vrf"}, {"trace"}, {"config", "show"}, {"list", "vrf-detail"}})
    run(words, out, err, terminal);
  EXPECT_EQ(started, 4U);
  for (const std::vector<std::string>& words :
       std::vector<std::vector<std::string>>{{"show", "vrf", "--no-pager"},
                                             {"--json", "show", "vrf"},
                                             {"watch"},
                                             {"config", "set", "traps", "all"},
                                             {"shwo"}})
    run(words, out, err, terminal);
  EXPECT_EQ(started, 4U);
  EXPECT_TRUE(IsCommand({"show", "vrf"})) << "without a terminal";
}

}  // namespace
}  // namespace cli
