// What outlives the process of what is watched.
#include <cerrno>
#include <chrono>
#include <fstream>
#include <iterator>
#include <thread>

#include "platform/core/base/fault.h"
#include "platform/router/route_watch/test_support.h"

namespace route_watch {
namespace {

using ::testing::AllOf;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;

class RestartedRouteWatch : public RouteWatch {
 protected:
  RestartedRouteWatch() { Restart(); }
  ~RestartedRouteWatch() override {
    route_watch_store_in("");
    route_watch_ask(nullptr);
  }
  std::string File() const { return directory_.path() + "/route_watch"; }
  // Another process begins; until ReadRoutes() the routes are not read.
  void Restart() {
    route_watch_detach();
    are_read_ = false;
    route_watch_store_in(File());
    route_watch_ask([this](router::RouteTableId) { return are_read_; });
    ASSERT_EQ(route_watch_attach(&router_, manager_), kStatusOk);
    Run();
  }
  void End() {
    route_watch_write_states();
    route_watch_detach();
  }
  void ReadRoutes() { are_read_ = true; }
  std::string Content() const {
    std::ifstream file(File());
    return {std::istreambuf_iterator<char>(file), {}};
  }
  // Until the thread has written it, a second of the clock later.
  std::string AwaitFile(const std::string& text) {
    const auto bound = std::chrono::steady_clock::now() + std::chrono::seconds(30);
    while (Content().find(text) == std::string::npos && std::chrono::steady_clock::now() < bound) {
      clock_.advance(kNanosecondsPerMillisecond);
      event_run_pending(manager_);
      std::this_thread::yield();
    }
    return Content();
  }

 private:
  bool are_read_ = false;
};

TEST_F(RestartedRouteWatch, TableOfANewVrfIsNotComparedBeforeItIsRead) {
  ReadRoutes();
  SetLow(1, 0);
  WatchPrefix("10.0.1.0/24");
  AddRoute("10.0.1.0/24");
  Pass(100);
  DeleteVrf("red");
  Pass(100);
  bool is_read = false;
  route_watch_detach();
  route_watch_ask([&is_read](router::RouteTableId table) { return is_read || table.table != 10; });
  ASSERT_EQ(route_watch_attach(&router_, manager_), kStatusOk);
  AddVrf("red", 10);
  EXPECT_THAT(LogOf([this] { Pass(1000); }), IsEmpty());
  EXPECT_THAT(Shown(), ElementsAre("red ipv4 0<1/0 ok, not read", "red 10.0.1.0/24 absent, not read"));
  AddRoute("10.0.1.0/24");
  is_read = true;
  Pass(100);
  EXPECT_THAT(Shown(), ElementsAre("red ipv4 1<1/0 ok", "red 10.0.1.0/24 present"));
}

TEST_F(RestartedRouteWatch, TableOfADeletedVrfIsNotSaidToBeRead) {
  SetLow(1, 0);
  route_watch_detach();
  route_watch_ask([](router::RouteTableId) { return false; });
  ASSERT_EQ(route_watch_attach(&router_, manager_), kStatusOk);
  Pass(100);
  EXPECT_THAT(LogOf([this] { Pass(kLongReading * 1000 + 1000); }), HasSubstr("are not read after 20 s"));
  ASSERT_EQ(router_.delete_vrf("red"), kStatusOk);
  EXPECT_THAT(LogOf([this] { Pass(1000); }), ::testing::Not(HasSubstr("are read and compared now")));
}

TEST_F(RestartedRouteWatch, TableThatIsNotReadForLongIsReportedOnceAndOthersAreCompared) {
  AddVrf("blue", 20);
  SetLow(1, 0);
  SetLow(1, 0, "blue");
  route_watch_detach();
  bool is_read = false;
  route_watch_ask([&is_read](router::RouteTableId table) { return is_read || table.table == 20; });
  ASSERT_EQ(route_watch_attach(&router_, manager_), kStatusOk);
  EXPECT_THAT(LogOf([this] { Pass(100); }),
              HasSubstr("VRF blue: 0 IPv4 routes, below its low-water mark of 1 for 0 s"));
  EXPECT_THAT(LogOf([this] { Pass(kLongReading * 1000 - 200); }), IsEmpty());
  EXPECT_THAT(
      LogOf([this] { Pass(200); }),
      HasSubstr("VRF red: its IPv4 routes are not read after 20 s; until they are, its low-water mark "
                "and watched prefixes are not compared"));
  EXPECT_THAT(LogOf([this] { Pass(60'000); }), IsEmpty());
  EXPECT_THAT(Shown(), ElementsAre("red ipv4 0<1/0 ok, not read", "blue ipv4 0<1/0 low"));
  is_read = true;
  EXPECT_THAT(LogOf([this] { Pass(1000); }),
              AllOf(HasSubstr("VRF red: its IPv4 routes are read and compared now"),
                    HasSubstr("VRF red: 0 IPv4 routes, below its low-water mark")));
}

TEST_F(RestartedRouteWatch, PrefixThatIsLostWhileNoProcessRunsIsReported) {
  WatchPrefix("10.0.1.0/24");
  AddRoute("10.0.1.0/24");
  ReadRoutes();
  Pass(100);
  End();
  RemoveRoute("10.0.1.0/24");
  Restart();
  EXPECT_THAT(LogOf([this] { Pass(1000); }), IsEmpty()) << "the routes are not read yet";
  EXPECT_THAT(Shown(), ElementsAre("red ipv4 0<0/0 ok, not read", "red 10.0.1.0/24 present, not read"));
  EXPECT_THAT(LogOf([this] {
                ReadRoutes();
                Pass(100);
              }),
              HasSubstr("VRF red: the watched prefix 10.0.1.0/24 has no route any more"));
  End();
  Restart();
  EXPECT_THAT(LogOf([this] {
                ReadRoutes();
                Pass(100);
              }),
              IsEmpty())
      << "it is reported once";
  EXPECT_THAT(LogOf([this] {
                AddRoute("10.0.1.0/24");
                Pass(100);
              }),
              HasSubstr("has a route again"));
}

TEST_F(RestartedRouteWatch, TimeBelowTheMarkContinues) {
  SetLow(1, 10);
  ReadRoutes();
  Pass(100);
  clock_.advance(6 * kNanosecondsPerSecond);
  End();
  clock_.advance(2 * kNanosecondsPerSecond);
  Restart();
  ReadRoutes();
  Pass(1500);
  EXPECT_THAT(Shown(), ElementsAre("red ipv4 0<1/10 ok"));
  EXPECT_THAT(LogOf([this] { Pass(600); }), HasSubstr("below its low-water mark of 1 for 10 s"));
  End();
  Restart();
  EXPECT_THAT(Shown(), ElementsAre("red ipv4 0<1/10 low, not read"));
  ReadRoutes();
  EXPECT_THAT(LogOf([this] { Pass(20'000); }), IsEmpty()) << "it is reported once";
  AddRoute("10.0.1.0/24");
  EXPECT_THAT(LogOf([this] { Pass(100); }), HasSubstr("no longer below its low-water mark"));
}

TEST_F(RestartedRouteWatch, ProcessThatIsKilledHasWrittenItsStates) {
  WatchPrefix("10.0.1.0/24");
  AddRoute("10.0.1.0/24");
  ReadRoutes();
  Pass(100);
  EXPECT_THAT(AwaitFile("prefix red 10.0.1.0/24 1 0 "), HasSubstr("prefix red 10.0.1.0/24 1 0 "));
  RemoveRoute("10.0.1.0/24");
  EXPECT_THAT(AwaitFile("prefix red 10.0.1.0/24 0 1 "), HasSubstr("prefix red 10.0.1.0/24 0 1 "));
  Unset(Kind::kWatchedPrefix, {.vrf = "red", .prefix = "10.0.1.0/24"});
  End();
  EXPECT_THAT(Content(), Not(HasSubstr("prefix red")));
}

TEST_F(RestartedRouteWatch, DamagedLineCostsOnlyItself) {
  for (const char* prefix : {"10.0.1.0/24", "10.0.2.0/24"}) {
    WatchPrefix(prefix);
    AddRoute(prefix);
  }
  ReadRoutes();
  Pass(100);
  std::string text = AwaitFile("prefix red 10.0.2.0/24 1 0 ");
  const std::size_t begin = text.find("prefix red 10.0.1.0/24");
  const std::size_t end = text.find('\n', begin);
  route_watch_detach();
  for (std::size_t place = begin; place < end; ++place) {
    std::string damaged = text;
    damaged[place] ^= 1;
    std::ofstream(File()) << damaged;
    EXPECT_THAT(LogOf([this] { Restart(); }), HasSubstr("damaged lines are ignored")) << place;
    EXPECT_THAT(Shown(), ElementsAre("red ipv4 2<0/0 ok, not read", "red 10.0.1.0/24 absent, not read",
                                     "red 10.0.2.0/24 present, not read"))
        << place;
    route_watch_detach();
  }
}

TEST_F(RestartedRouteWatch, TimeBelowTheMarkContinuesOverProcessesThatWriteIt) {
  SetLow(1, 10);
  ReadRoutes();
  Pass(100);
  for (const char* prefix : {"10.0.1.0/24", "10.0.2.0/24", "10.0.3.0/24"}) {
    clock_.advance(3 * kNanosecondsPerSecond);
    WatchPrefix(prefix);  // each process has something to write
    End();
    Restart();
    ReadRoutes();
    Pass(100);
  }
  EXPECT_EQ(Shown().front(), "red ipv4 0<1/10 ok");
  EXPECT_THAT(LogOf([this] { Pass(900); }), HasSubstr("below its low-water mark of 1 for 10 s"));
}

TEST_F(RestartedRouteWatch, FileThatCannotBeWrittenIsWrittenLater) {
  WatchPrefix("10.0.1.0/24");
  AwaitFile("10.0.1.0/24");
  route_watch_write_states();  // waits for the thread; no timer is left
  WatchPrefix("10.0.2.0/24");
  fault_arm("replace_file", ENOSPC, 1, 0);
  EXPECT_THAT(LogOf([this] {
                Pass(1000);
                route_watch_write_states();
              }),
              HasSubstr("/route_watch cannot be written"));
  fault_disarm_all();
  Pass(9000);
  EXPECT_THAT(Content(), Not(HasSubstr("10.0.2.0/24")));
  EXPECT_THAT(LogOf([this] {
                EXPECT_THAT(AwaitFile("10.0.2.0/24"), HasSubstr("10.0.2.0/24"));
                route_watch_write_states();  // waits for the thread
              }),
              HasSubstr("/route_watch is written again"));
}

TEST_F(RestartedRouteWatch, FileThatCannotBeWrittenIsWrittenAtTheEnd) {
  WatchPrefix("10.0.1.0/24");
  fault_arm("replace_file", ENOSPC);
  EXPECT_THAT(LogOf([this] { route_watch_write_states(); }), HasSubstr("/route_watch cannot be written"));
  End();
  EXPECT_THAT(Content(), HasSubstr("prefix red 10.0.1.0/24"));
}

}  // namespace
}  // namespace route_watch
