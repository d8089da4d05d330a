// The action "router" over the data store's socket, and reloads, which end later.
#include <time.h>

#include <algorithm>
#include <chrono>
#include <optional>
#include <thread>
#include <utility>
#include <vector>

#include "platform/core/files/directories.h"
#include "platform/core/wire/wire.h"
#include "platform/store/client/client.h"
#include "platform/store/server/protocol.h"
#include "platform/store/server/server.h"
#include "platform/store/tree/actions.h"
#include "sources/file/watched_router_test_support.h"

namespace {

using ::testing::EndsWith;

using ::testing::HasSubstr;

class RouterOverTheSocket : public WatchedRouter {
 protected:
  void Serve() {
    StartWith(kRed);
    ASSERT_EQ(kvtree_serve(manager_), kStatusOk);
  }
  // Asks from another thread while this one serves.
  kvtree::ActionResult Ask(const std::vector<std::string>& words) {
    std::atomic<bool> done = false;
    kvtree::ActionResult result;
    std::thread peer([&] {
      kvtree::Client client(event_manager_socket(kMainManager), std::chrono::seconds(5));
      result.status = client.connect();
      if (result.status == kStatusOk) result = client.action(words);
      done = true;
      event_post(manager_, [] {});
    });
    for (iterations_ = 0; !done; ++iterations_) run_once(manager_);
    peer.join();
    return result;
  }
  static std::size_t Clients() { return kvtree::the_server()->server.client_count(); }
  unsigned iterations_ = 0;  // of the loop until the last answer
};

TEST_F(RouterOverTheSocket, ShowIsAnswered) {
  Serve();
  const kvtree::ActionResult result = Ask({"router", "show"});
  EXPECT_EQ(result.status, kStatusOk);
  EXPECT_EQ(result.text, "1 VRF, 0 interfaces\nvrf red id 10 ipv4-table 10 ipv6-table 10");
}

TEST_F(RouterOverTheSocket, RefusalHasItsReason) {
  Serve();
  const kvtree::ActionResult result = Ask({"router", "up", "ge9"});
  EXPECT_EQ(result.status, kStatusNoSuchRow);
  EXPECT_EQ(result.text, "there is no interface \"ge9\"");
}

TEST_F(RouterOverTheSocket, ChangesLastUntilTheFileIsLoadedAgain) {
  Serve();
  EXPECT_EQ(Ask({"router", "add-vrf", "green"}).status, kStatusOk);
  EXPECT_TRUE(Has("green"));
  const kvtree::ActionResult reloaded = Ask({"router", "reload"});
  EXPECT_EQ(reloaded.status, kStatusOk);
  EXPECT_EQ(reloaded.text, path_ + " loaded: 1 VRF deleted");
  EXPECT_FALSE(Has("green"));
}

TEST_F(RouterOverTheSocket, ReloadOfAnInvalidFileReportsThePosition) {
  Serve();
  Write("vrfs: red\n");
  event_run_pending(manager_, kEventBound);
  const kvtree::ActionResult result = Ask({"router", "reload"});
  EXPECT_EQ(result.status, kStatusInvalid);
  EXPECT_EQ(result.text, path_ + ":1:7: VRFs are written as a list");
}

TEST_F(RouterOverTheSocket, ReloadOfALargeRouterLetsTheLoopRun) {
  Serve();
  Replace("generate: {vrfs: 1000, interfaces_per_vrf: 9}\n");
  const kvtree::ActionResult result = Ask({"router", "reload"});
  EXPECT_EQ(result.status, kStatusOk);
  EXPECT_THAT(result.text, EndsWith(" loaded: 1000 VRFs created, 1 VRF deleted, 9000 interfaces added"));
  EXPECT_GE(iterations_, 40U);
}

TEST_F(RouterOverTheSocket, OthersAreAnsweredWhileAReloadReads) {
  Serve();
  slow_.HoldNext();
  std::optional<kvtree::ActionResult> reloaded;
  std::thread user([&] {
    kvtree::Client client(event_manager_socket(kMainManager), std::chrono::seconds(5));
    ASSERT_EQ(client.connect(), kStatusOk);
    const kvtree::ActionResult result = client.action({"router", "reload"});
    event_post(manager_, [&, result] { reloaded = result; });
  });
  while (!source_->is_reading()) ASSERT_TRUE(run_once(manager_));
  slow_.AwaitRead();
  EXPECT_EQ(Ask({"router", "show"}).status, kStatusOk);
  EXPECT_FALSE(reloaded.has_value());
  slow_.Deliver();
  while (!reloaded) ASSERT_TRUE(run_once(manager_));
  user.join();
  EXPECT_EQ(reloaded->text, path_ + " loaded: nothing changed");
}

TEST_F(RouterOverTheSocket, ClientThatLeavesDuringAReloadLeavesNothing) {
  Serve();
  {
    wire::ClientSocket client;
    ASSERT_EQ(client.connect(event_manager_socket(kMainManager), std::chrono::seconds(5)), kStatusOk);
    wire::Writer words = client.begin(kvtree::kAction, 1);
    words.u16(2);
    words.text("router");
    words.text("reload");
    ASSERT_EQ(client.send(), kStatusOk);
    slow_.HoldNext();
    while (!source_->is_reading()) ASSERT_TRUE(run_once(manager_));
    slow_.AwaitRead();
    EXPECT_EQ(Clients(), 1U);
  }
  while (Clients() > 0) ASSERT_TRUE(run_once(manager_));
  Replace(kBlue);
  slow_.Deliver();
  EXPECT_TRUE(Appears("blue"));
  EXPECT_TRUE(ReadEnds());
}

TEST_F(RouterOverTheSocket, StoreMayEndDuringAReload) {
  Serve();
  slow_.HoldNext();
  std::thread user([&] {
    kvtree::Client client(event_manager_socket(kMainManager), std::chrono::seconds(5));
    ASSERT_EQ(client.connect(), kStatusOk);
    EXPECT_EQ(client.action({"router", "reload"}).status, kStatusNotConnected);
  });
  while (!source_->is_reading()) ASSERT_TRUE(run_once(manager_));
  slow_.AwaitRead();
  kvtree_stop_serving(manager_);
  user.join();
  Replace(kBlue);
  slow_.Deliver();
  EXPECT_TRUE(Appears("blue"));
}

// Reloads by users within the process, whose results are stored.
class Reloads : public WatchedRouter {
 protected:
  using Result = std::pair<Status, std::string>;
  // The place of the result, which is there when the reload has ended.
  const std::optional<Result>& Reload() {
    const auto result = std::make_shared<std::optional<Result>>();
    results_.push_back(result);
    const KvActionEnd end = [result](Status status, const std::string& text) {
      EXPECT_FALSE(result->has_value()) << "it ends once";
      *result = {status, text};
    };
    std::string text;
    EXPECT_EQ(kvtree_run_action({true, end}, {"router", "reload"}, &text), kStatusInProgress);
    EXPECT_EQ(text, "");
    return *results_.back();
  }
  bool Ends(const std::optional<Result>& result) {
    while (!result && run_once(manager_)) {
    }
    return result.has_value();
  }
  std::string Loaded(const std::string& what) const { return path_ + " loaded: " + what; }

  std::vector<std::shared_ptr<std::optional<Result>>> results_;
};

TEST_F(Reloads, TwoDuringOneReadHaveTheFileOfTheSecond) {
  StartWith(kRed);
  slow_.HoldNext();
  const auto& first = Reload();
  slow_.AwaitRead();
  Replace(kBlue);
  const auto& second = Reload();
  slow_.Deliver();
  ASSERT_TRUE(Ends(first));
  EXPECT_EQ(*first, Result(kStatusOk, Loaded("1 VRF created, 1 VRF deleted")));
  EXPECT_EQ(second, first);
  EXPECT_TRUE(Has("blue"));
}

TEST_F(Reloads, OneDuringALoadIsCarriedOutAfterIt) {
  StartWith(kRed);
  Replace("generate: {vrfs: 1000, interfaces_per_vrf: 9}\n");
  const auto& first = Reload();
  while (router_->vrf_count() < 10) ASSERT_TRUE(run_once(manager_));
  Replace(kBlue);
  const auto& second = Reload();
  ASSERT_TRUE(Ends(first));
  EXPECT_THAT(first->second, HasSubstr("1000 VRFs created, 1 VRF deleted, 9000 interfaces added"));
  EXPECT_FALSE(second.has_value());
  ASSERT_TRUE(Ends(second));
  EXPECT_EQ(second->second, Loaded("1 VRF created, 1000 VRFs deleted, 9000 interfaces removed"));
}

TEST_F(Reloads, OneThatCannotBeReadFailsAtOnce) {
  StartWith(kRed);
  const ScopedFault fault("file_reader_thread", kStatusNoMemory);
  const auto& result = Reload();
  ASSERT_TRUE(result.has_value());
  EXPECT_EQ(*result, Result(kStatusNoMemory, path_ + ": no thread to read it: Cannot allocate memory"
                                                     " (it is tried again)"));
}

TEST_F(Reloads, EndWithTheSource) {
  StartWith(kRed);
  slow_.HoldNext();
  const auto& result = Reload();
  slow_.AwaitRead();
  slow_.Deliver();
  source_.reset();
  ASSERT_TRUE(result.has_value());
  EXPECT_EQ(result->first, kStatusNotConnected);
}

TEST_F(Reloads, FileThatKeepsChangingIsLoaded) {
  StartWith(kRed);
  Replace("generate: {vrfs: 1000, interfaces_per_vrf: 9}\n");
  const auto& result = Reload();
  while (router_->vrf_count() < 10) ASSERT_TRUE(run_once(manager_));
  while (!result) {
    Replace(kBlue);
    ASSERT_TRUE(run_once(manager_));
  }
  EXPECT_THAT(result->second, HasSubstr("9000 interfaces added"));
}

TEST_F(Reloads, AnswerHasAllWrittenRoutes) {
  std::string routes;
  for (int number = 0; number < 5000; ++number) {
    routes += "{prefix: 10." + std::to_string(number / 250) + "." + std::to_string(number % 250) +
              ".0/24, type: reject},";
  }
  StartWith(kRed);
  Replace("vrfs: [{name: red, id: 10, routes: [" + routes + "]}]\n");
  const auto& result = Reload();
  ASSERT_TRUE(Ends(result));
  EXPECT_EQ(result->second, Loaded("5000 routes added"));
  EXPECT_EQ(router_->routes().count({router::Family::kIpv4, 10}), 5000U);
}

// Processor time of this thread, which the load of the machine does not change.
std::uint64_t thread_time() {
  timespec time{};
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
  return static_cast<std::uint64_t>(time.tv_sec) * kNanosecondsPerSecond +
         static_cast<std::uint64_t>(time.tv_nsec);
}

TEST(BackgroundReading, ResultThatIsNotUsedIsNotFreedByTheLoop) {
  const TestRunDirectory directory;
  EventManager* const manager = event_manager_create(kMainManager, 0);
  const auto read = [](const std::string& /*path*/) {
    router_file::Reading reading;
    for (std::size_t i = 0; i < 500'000; ++i) reading.file.references.emplace_back(40, 'v');
    return reading;
  };
  std::optional<router_file::Reading> used;
  const auto use = [&used](router_file::Reading reading) { used = std::move(reading); };
  auto reader = std::make_unique<router_file::BackgroundReader>(manager, "", use, read);
  reader->start();
  reader->start();  // drops the first result
  std::uint64_t longest = 0;
  for (std::uint64_t before = thread_time(); !used; before = thread_time()) {
    ASSERT_TRUE(run_once(manager));
    longest = std::max(longest, thread_time() - before);
  }
  const std::uint64_t before = thread_time();
  used.reset();
  EXPECT_LT(longest, (thread_time() - before) / 4);
  reader.reset();
  event_manager_destroy(manager);
}

}  // namespace
