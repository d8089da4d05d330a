// What is read from recorded answers of versions 8.4.4 and 10.3 of the suite, whole and damaged.
#include "cli/explain/suite_paths.h"

#include <gmock/gmock.h>

#include <filesystem>
#include <fstream>

#include "cli/session.h"
#include "cli/system/suite.h"

namespace cli::explain {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Pair;

class RecordedAnswers : public ::testing::TestWithParam<const char*> {
 protected:
  static std::string Folder() { return std::string("cli/explain/recorded/") + GetParam(); }
  static std::string Read(const std::string& name) {
    std::ifstream file(Folder() + "/" + name);
    EXPECT_TRUE(file) << name;
    return {std::istreambuf_iterator<char>(file), {}};
  }
  // As mplsvpn asks for it.
  static Json Ask(const std::string& text) {
    const std::string path = ::testing::TempDir() + "answer-" + std::to_string(getpid());
    std::ofstream(path) << text;
    std::ofstream(path + ".sh") << "cat " << path << '\n';
    return Suite("/bin/sh " + path + ".sh", std::chrono::seconds(10)).ask_json("show");
  }
  static Json AnswerOf(const std::string& name) { return Json::parse(Read(name)); }
  // Whatever the shape is, it is read without an exception.
  static void ReadAll(const Json& answer) {
    parse_vpn_paths(answer);
    parse_vrf_paths(answer);
    parse_rib(answer);
    parse_sessions(answer);
    parse_vpn_labels(answer, "red");
  }
};

INSTANTIATE_TEST_SUITE_P(Versions, RecordedAnswers, ::testing::Values("8.4.4", "10.3"));

TEST_P(RecordedAnswers, PathOfAnotherRouter) {
  const auto paths = parse_vpn_paths(AnswerOf("vpn-path"));
  ASSERT_EQ(paths.size(), 1U);
  EXPECT_EQ(paths[0].rd, "65000:110");
  EXPECT_EQ(paths[0].prefix, "10.21.0.0/24");
  EXPECT_THAT(paths[0].targets, ElementsAre("65000:10"));
  EXPECT_EQ(paths[0].next_hop, "10.255.0.2");
  EXPECT_EQ(paths[0].neighbor, "10.255.0.2");
  EXPECT_FALSE(paths[0].is_of_this_router());
  const Json recorded = AnswerOf("vpn-path")["65000:110"]["paths"][0];
  EXPECT_EQ(paths[0].label, recorded["remoteLabel"].get<std::uint32_t>());
  EXPECT_TRUE(paths[0].is_valid && paths[0].is_best);
  EXPECT_THAT(parse_vpn_paths(AnswerOf("vpn-path-none")), IsEmpty());
}

TEST_P(RecordedAnswers, PathsOfAVrf) {
  const auto imported = parse_vrf_paths(AnswerOf("vrf-path"));
  ASSERT_EQ(imported.size(), 1U);
  EXPECT_EQ(imported[0].next_hop_vrf, "default");
  EXPECT_EQ(imported[0].next_hop, "10.255.0.2");
  EXPECT_FALSE(imported[0].is_of_this_router());
  const auto local = parse_vrf_paths(AnswerOf("vrf-path-local"));
  ASSERT_EQ(local.size(), 1U);
  EXPECT_EQ(local[0].next_hop, "");
  EXPECT_TRUE(local[0].is_of_this_router());
  EXPECT_THAT(parse_vrf_paths(AnswerOf("vrf-path-no-vrf")), IsEmpty());
}

TEST_P(RecordedAnswers, EntriesOfTheRoutingTable) {
  const auto entries = parse_rib(AnswerOf("rib"));
  ASSERT_EQ(entries.size(), 1U);
  EXPECT_EQ(entries[0].prefix, "10.21.0.0/24");
  EXPECT_EQ(entries[0].protocol, "bgp");
  EXPECT_EQ(entries[0].next_hop, "10.12.0.2 core");
  EXPECT_TRUE(entries[0].is_selected && entries[0].is_installed && entries[0].has_label);
  EXPECT_FALSE(entries[0].is_rejected || entries[0].discards || entries[0].has_segment);
  const auto blackhole = parse_rib(AnswerOf("rib-blackhole"));
  ASSERT_EQ(blackhole.size(), 1U);
  EXPECT_TRUE(blackhole[0].discards);
  EXPECT_THAT(parse_rib(AnswerOf("rib-none")), IsEmpty());
}

TEST_P(RecordedAnswers, SessionsExportersAndLabels) {
  EXPECT_THAT(parse_sessions(AnswerOf("summary")), ElementsAre(Pair("10.255.0.2", kEstablished)));
  EXPECT_THAT(parse_sessions(AnswerOf("summary-down")), ElementsAre(Pair("10.255.0.2", "Active")));
  EXPECT_THAT(parse_exporters(Read("vpn-table")), ElementsAre(Pair("65000:10", ElementsAre("10.255.0.2")),
                                                              Pair("65000:99", ElementsAre("10.255.0.2"))));
  const Json table = AnswerOf("mpls-table");
  for (const auto& [label, entry] : table.items()) {
    const std::string vrf = entry["nexthops"][0]["interface"];
    EXPECT_TRUE(parse_vpn_labels(table, vrf).contains(label)) << vrf;
  }
}

TEST_P(RecordedAnswers, ThatAreErrorsAreNotJson) {
  for (const char* name : {"refused", "rib-no-vrf"}) {
    try {
      Ask(Read(name));
      ADD_FAILURE() << name;
    } catch (const Failure& failure) {
      EXPECT_THAT(failure.what(), HasSubstr("is not JSON")) << name;
    }
  }
  EXPECT_THROW(Ask(""), Failure);
  EXPECT_EQ(Ask(Read("rib")), AnswerOf("rib"));
}

TEST_P(RecordedAnswers, ThatEndEarlyAreNotJson) {
  const std::string whole = Read("vpn-path");
  ASSERT_FALSE(whole.empty());
  EXPECT_THROW(Ask(whole.substr(0, whole.size() / 2)), Failure);
  const std::size_t end = whole.find_last_of('}');
  for (std::size_t length = 0; length < end; ++length)
    EXPECT_TRUE(Json::parse(whole.substr(0, length), nullptr, false).is_discarded()) << length;
}

TEST_P(RecordedAnswers, WithOtherTypesOfValuesAreRead) {
  const Json values[] = {nullptr, 7, "text", Json::array({1, "x", nullptr}), Json::object({{"x", 1}}), true};
  for (const auto& file : std::filesystem::directory_iterator(Folder())) {
    const Json answer = Json::parse(Read(file.path().filename()), nullptr, false);
    if (answer.is_discarded()) continue;
    const Json flat = answer.flatten();
    for (const auto& [pointer, unused] : flat.items()) {
      for (Json::json_pointer at(pointer); !at.empty(); at.pop_back()) {
        for (const Json& value : values) {
          Json changed = answer;
          changed[at] = value;
          EXPECT_NO_THROW(ReadAll(changed)) << file.path() << at.to_string() << value;
        }
      }
    }
  }
}

}  // namespace
}  // namespace cli::explain
