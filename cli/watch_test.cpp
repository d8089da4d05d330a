// Traps as they are shown.
#include <gmock/gmock.h>

#include <cstdlib>
#include <sstream>
#include <utility>

#include "cli/json_list.h"
#include "cli/served_test_fixture.h"
#include "mpls/vpn/mib/src/mpls_vpn_parcel.h"

namespace cli {
namespace {

using ::testing::ElementsAre;
using ::testing::EndsWith;
using ::testing::HasSubstr;

// Says, to another thread, that something was written and flushed.
class AnnouncingBuffer : public std::stringbuf {
 public:
  std::atomic<bool> flushed = false;

 protected:
  int sync() override {
    flushed = true;
    return 0;
  }
};

class Watch : public ServedCommandLine {
 protected:
  // Runs the command, and raises the traps when it has said that it watches.
  int Ask(const std::vector<std::string>& words) {
    std::atomic<bool> done = false;
    int exit_status = -1;
    std::thread command([&] {
      std::ostream err(&err_buffer_);
      exit_status = run(words, out_, err);
      done = true;
      event_post(manager_, [] {});
    });
    while (!done) {
      event_run_pending(manager_, kNanosecondsPerMillisecond);
      if (!err_buffer_.flushed) continue;
      for (const mpls_vpn_mib_trap& trap : std::exchange(traps, {})) Notify(trap);
    }
    command.join();
    return exit_status;
  }
  std::string Out() const { return out_.str(); }
  std::string Err() const { return err_buffer_.str(); }
  void Notify(const mpls_vpn_mib_trap& trap) {
    std::uint8_t* data = nullptr;
    std::size_t length = 0;
    ASSERT_EQ(parcel_encode(&kMibTrapParcel, &trap, &data, &length), kStatusOk);
    const KvProviderNotification notification{"trap_msg", 2, kKvKindRecord, {}, data, length};
    EXPECT_EQ(kvtree_prov_notify(provider_, &notification), kStatusOk);
    std::free(data);
  }
  // The lines of the output, without their times.
  std::vector<std::string> Lines() const {
    std::istringstream in(Out());
    std::vector<std::string> lines;
    for (std::string line; std::getline(in, line);) {
      EXPECT_THAT(line, ::testing::MatchesRegex("[0-9-]+T[0-9:.]+Z .*"));
      lines.push_back(line.substr(line.find(' ') + 1));
    }
    return lines;
  }

  std::string vrf_ = "red";
  std::vector<mpls_vpn_mib_trap> traps;

 private:
  std::ostringstream out_;
  AnnouncingBuffer err_buffer_;
};

TEST_F(Watch, EveryTypeIsShownWithWhatItIsAbout) {
  traps = {{0, vrf_.data(), 7, 1, 1, 0, 0, 0, 0},   {1, vrf_.data(), 7, 2, 1, 0, 0, 0, 0},
           {2, vrf_.data(), 0, 0, 0, 80, 0, 81, 0}, {3, vrf_.data(), 0, 0, 0, 0, 100, 101, 0},
           {4, vrf_.data(), 0, 0, 0, 0, 0, 0, 6},   {5, vrf_.data(), 0, 0, 0, 0, 100, 99, 0},
           {9, vrf_.data(), 0, 0, 0, 0, 0, 0, 0}};
  EXPECT_EQ(Ask({"watch", "--count", "7", "--timeout", "20"}), kExitOk) << Err();
  EXPECT_THAT(
      Lines(),
      ElementsAre("mplsL3VpnVrfUp red interface 7 vrf up", "mplsL3VpnVrfDown red interface 7 vrf down",
                  "mplsL3VpnVrfRouteMidThreshExceeded red routes 81 mid threshold 80",
                  "mplsL3VpnVrfNumVrfRouteMaxThreshExceeded red routes 101 high threshold 100",
                  "mplsL3VpnNumVrfSecIllglLblThrshExcd red violations 6",
                  "mplsL3VpnNumVrfRouteMaxThreshCleared red routes 99 high threshold 100",
                  "trap 9 red of an unknown type"));
  EXPECT_EQ(Err(), "watching for traps\n");
}

TEST_F(Watch, JsonIsOneObjectALine) {
  traps = {{0, vrf_.data(), 7, 1, 1, 2, 3, 4, 5}, {1, vrf_.data(), 8, 2, 1, 0, 0, 0, 0}};
  EXPECT_EQ(Ask({"--json", "watch", "--count", "2", "--timeout", "20"}), kExitOk) << Err();
  std::istringstream in(Out());
  std::string line;
  std::getline(in, line);
  Json first = Json::parse(line);
  EXPECT_THAT(first["time"].get<std::string>(), EndsWith("Z"));
  first.erase("time");
  EXPECT_EQ(first, (Json{{"notification", "mplsL3VpnVrfUp"},
                         {"trapType", 0},
                         {"vrfName", "red"},
                         {"ifConfIndex", 7},
                         {"vrfOperStatus", 1},
                         {"ifConfRowStatus", 1},
                         {"midThresh", 2},
                         {"highThresh", 3},
                         {"currNumRoutes", 4},
                         {"illegalLabelViolations", 5},
                         {"lostBefore", 0}}));
  std::getline(in, line);
  EXPECT_EQ(Json::parse(line)["ifConfIndex"], 8);
}

TEST_F(Watch, FewerTrapsThanCountedAreAFailure) {
  traps = {{0, vrf_.data(), 7, 1, 1, 0, 0, 0, 0}};
  EXPECT_EQ(Ask({"watch", "--count", "2", "--timeout", "1"}), kExitFailed);
  EXPECT_EQ(Lines().size(), 1U);
  EXPECT_THAT(Err(), EndsWith("mplsvpn: 1 of 2 traps within 1 s\n"));
}

TEST_F(Watch, TimeoutAloneEndsIt) {
  EXPECT_EQ(Ask({"watch", "--timeout", "0.2"}), kExitOk) << Err();
  EXPECT_EQ(Out(), "");
}

TEST_F(Watch, NamesCannotSteerTheTerminal) {
  vrf_ = "a\x1b[2J";
  traps = {{0, vrf_.data(), 7, 1, 1, 0, 0, 0, 0}};
  EXPECT_EQ(Ask({"watch", "--count", "1", "--timeout", "20"}), kExitOk) << Err();
  EXPECT_THAT(Out(), HasSubstr("a\\x1b[2J interface"));
}

}  // namespace
}  // namespace cli
