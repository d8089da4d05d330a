// The history of notifications as its readers get it, over restarts of the process.
#include "platform/store/history/history.h"

#include <gmock/gmock.h>

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include "platform/core/base/clock.h"
#include "platform/core/base/fault.h"
#include "platform/core/files/temporary_directory.h"
#include "platform/store/history/notification_history.h"
#include "platform/store/history/records.h"
#include "platform/store/server/test_store.h"

namespace {

using notification_history::History;
using notification_history::kLatestNotificationsParcel;
using notification_history::LatestNotifications;
using notification_history::NotificationCount;
using notification_history::Past;
using notification_history::PastNotification;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

constexpr char kProvider[] = "/oper/traps/";
constexpr char kSubscriber[] = "snmp";
constexpr std::size_t kTypes = 3;
constexpr std::uint64_t kStart = 1'700'000'000 * kNanosecondsPerSecond;

// --- The history and its file

class StoredHistory : public ::testing::Test {
 protected:
  StoredHistory() { Restart(); }

  std::string File() const { return directory.path() + "/history"; }
  // The process is killed and another one begins.
  void Restart(std::size_t limit = 3, std::size_t types = kTypes) {
    history = std::make_unique<History>(limit, types);
    ASSERT_EQ(history->store_in(File()), kStatusOk);
  }
  void Add(std::uint32_t type, const std::string& record) {
    const wire::Octets octets(record.begin(), record.end());
    history->add(type, octets);
    clock.advance(kNanosecondsPerSecond);
  }
  // "number type record" of the latest.
  std::vector<std::string> Latest(std::size_t most = 100) const {
    std::vector<std::string> texts;
    for (const Past& past : history->latest(most)) {
      texts.push_back(std::to_string(past.number) + " " + std::to_string(past.type) + " " +
                      std::string(past.record.begin(), past.record.end()));
    }
    return texts;
  }

  ManualClock clock{kStart};
  TemporaryDirectory directory;
  std::unique_ptr<History> history;
};

TEST_F(StoredHistory, ListsTheLatestTheOldestFirst) {
  EXPECT_THAT(Latest(), IsEmpty());
  for (const char* record : {"a", "b", "c", "d"}) Add(1, record);
  EXPECT_THAT(Latest(), ElementsAre("2 1 b", "3 1 c", "4 1 d"));
  EXPECT_THAT(Latest(2), ElementsAre("3 1 c", "4 1 d"));
  EXPECT_THAT(Latest(0), IsEmpty());
}

TEST_F(StoredHistory, CountsOutliveTheNotificationsAndTheProcess) {
  Add(0, "a");
  for (const char* record : {"b", "c", "d", "e"}) Add(2, record);
  EXPECT_THAT(history->counts(), ElementsAre(1, 0, 4));
  Restart();
  EXPECT_THAT(history->counts(), ElementsAre(1, 0, 4));
  EXPECT_THAT(Latest(), ElementsAre("3 2 c", "4 2 d", "5 2 e"));
  Add(0, "f");
  EXPECT_THAT(history->counts(), ElementsAre(2, 0, 4));
  EXPECT_THAT(Latest(1), ElementsAre("6 0 f"));
}

TEST_F(StoredHistory, ContinuesAndIsWrittenLaterWhenTheFileCannotBeWrittenAtTheStart) {
  for (const char* record : {"a", "b"}) Add(1, record);
  {
    const ScopedFault fault("replace_file", ENOSPC);
    ::testing::internal::CaptureStderr();
    Restart();
    EXPECT_THAT(::testing::internal::GetCapturedStderr(),
                HasSubstr("cannot be written: the latest notifications are lost if the process ends: "));
  }
  EXPECT_THAT(history->counts(), ElementsAre(0, 2, 0));
  EXPECT_THAT(Latest(), ElementsAre("1 1 a", "2 1 b"));
  clock.advance(kNanosecondsPerSecond);
  Add(1, "c");
  Restart();
  EXPECT_THAT(history->counts(), ElementsAre(0, 3, 0));
  EXPECT_THAT(Latest(), ElementsAre("1 1 a", "2 1 b", "3 1 c"));
}

TEST_F(StoredHistory, TimesAreThoseOfTheNotifications) {
  Add(0, "a");
  Add(0, "b");
  Restart();
  const std::vector<Past> latest = history->latest(2);
  ASSERT_EQ(latest.size(), 2U);
  EXPECT_EQ(latest[0].time, kStart);
  EXPECT_EQ(latest[1].time, kStart + kNanosecondsPerSecond);
}

TEST_F(StoredHistory, ProcessWithFewerTypesIgnoresTheCountsOfOthers) {
  Add(0, "a");
  Add(2, "b");
  Restart(3, 1);
  EXPECT_THAT(history->counts(), ElementsAre(1));
}

TEST_F(StoredHistory, FileCutAnywhereListsWhatPrecedesTheCut) {
  for (const char* record : {"a", "b", "c"}) Add(1, record);
  std::ifstream file(File(), std::ios::binary);
  const std::string octets{std::istreambuf_iterator<char>(file), {}};
  std::size_t most = 0;
  for (std::size_t length = 0; length <= octets.size(); ++length) {
    std::ofstream(File(), std::ios::binary) << octets.substr(0, length);
    Restart();
    const std::vector<std::string> all = {"1 1 a", "2 1 b", "3 1 c"};
    const std::vector<std::string> latest = Latest();
    EXPECT_EQ(latest, std::vector<std::string>(all.begin(), all.begin() + static_cast<long>(latest.size())));
    EXPECT_EQ(history->counts()[1], latest.size());
    EXPECT_GE(latest.size(), most);
    most = latest.size();
  }
  EXPECT_EQ(most, 3U);
}

// --- The provider

class HistoryProvider : public StoreTest {
 protected:
  HistoryProvider() {
    EXPECT_EQ(kvtree_bind(&raising, kProvider, kKvBindProvider), kStatusOk);
    EXPECT_EQ(kvtree_retain_notifications(kProvider, kSubscriber, 10), kStatusOk);
    EXPECT_EQ(Begin(), kStatusOk);
  }
  ~HistoryProvider() override { notification_history_stop(); }
  Status Begin() {
    return notification_history_start(
        manager, {kProvider, kSubscriber, directory.path() + "/history", kTypes,
                  [](const KvProviderNotification& notification) -> std::optional<std::uint32_t> {
                    if (std::string(notification.item_name) == "other") return std::nullopt;
                    return notification.first;
                  }});
  }
  void Raise(std::uint32_t type, const std::string& record, const char* item = "trap") {
    const auto* octets = reinterpret_cast<const std::uint8_t*>(record.data());
    const KvProviderNotification notification{item, type, kKvKindRecord, {}, octets, record.size()};
    EXPECT_EQ(kvtree_prov_notify(raising, &notification), kStatusOk);
  }
  // "waiting: counts: number@time type record, ..."
  static std::string Get(const std::string& path) {
    KvReply reply{};
    if (const Status status = kvtree_get("/oper/notifications/" + path, false, &reply))
      return "status " + std::to_string(status);
    LatestNotifications answer{};
    EXPECT_EQ(parcel_decode(&kLatestNotificationsParcel, reply.data, reply.length, &answer), kStatusOk);
    std::free(reply.data);
    std::string text = std::to_string(answer.waiting) + ":";
    const auto* counts = static_cast<const NotificationCount*>(answer.counts.elements);
    for (std::uint64_t at = 0; at < answer.counts.count; ++at) text += " " + std::to_string(counts[at].count);
    const auto* past = static_cast<const PastNotification*>(answer.notifications.elements);
    for (std::uint64_t at = 0; at < answer.notifications.count; ++at) {
      text += "; " + std::to_string(past[at].number) + "@" + std::to_string(past[at].time % 1000) + "." +
              std::to_string(past[at].milliseconds) + " " + std::to_string(past[at].type) + " " +
              std::string(reinterpret_cast<const char*>(past[at].record.octets), past[at].record.length);
    }
    EXPECT_EQ(parcel_free_indirections(&kLatestNotificationsParcel, &answer), kStatusOk);
    return text;
  }

  ManualClock clock{kStart};
  TemporaryDirectory directory;
  KvConnection* raising = nullptr;
};

TEST_F(HistoryProvider, AnswersWithCountsAndTheLatest) {
  EXPECT_EQ(Get("latest/10"), "0: 0 0 0");
  Raise(0, "a");
  clock.advance(1500 * kNanosecondsPerMillisecond);
  Raise(2, "b");
  EXPECT_EQ(Get("latest/10"), "2: 1 0 1; 1@0.0 0 a; 2@1.500 2 b");
  EXPECT_EQ(Get("latest/1"), "2: 1 0 1; 2@1.500 2 b");
  EXPECT_EQ(Get("latest/0"), "2: 1 0 1");
}

TEST_F(HistoryProvider, FiguresAreThoseOfTheAnswer) {
  Raise(1, "a");
  const NotificationFigures figures = notification_figures();
  EXPECT_THAT(figures.counts, ElementsAre(0, 1, 0));
  EXPECT_EQ(figures.waiting, 1U);
  notification_history_stop();
  EXPECT_THAT(notification_figures().counts, IsEmpty());
}

TEST_F(HistoryProvider, ListsNeitherOtherProvidersNorOtherNotifications) {
  KvConnection* other = nullptr;
  ASSERT_EQ(kvtree_bind(&other, "/oper/others/", kKvBindProvider), kStatusOk);
  const KvProviderNotification notification{"trap", 0, kKvKindRecord, {}, nullptr, 0};
  EXPECT_EQ(kvtree_prov_notify(other, &notification), kStatusOk);
  Raise(0, "a", "other");
  EXPECT_EQ(Get("latest/10"), "1: 0 0 0");
}

TEST_F(HistoryProvider, ContinuesAfterARestart) {
  Raise(0, "a");
  EXPECT_EQ(Begin(), kStatusExists);
  notification_history_stop();
  Raise(0, "missed");
  ASSERT_EQ(Begin(), kStatusOk);
  EXPECT_EQ(Get("latest/10"), "2: 1 0 0; 1@0.0 0 a");
}

TEST_F(HistoryProvider, FileThatCannotBeUsedLeavesTheHistoryInMemory) {
  notification_history_stop();
  fault_arm("read_file", EIO);
  fault_arm("set_aside", EROFS);
  ::testing::internal::CaptureStderr();
  ASSERT_EQ(Begin(), kStatusOk);
  EXPECT_THAT(
      ::testing::internal::GetCapturedStderr(),
      ::testing::HasSubstr("/history is not used: it cannot be read (Input/output error) nor set aside "
                           "(Read-only file system), and is left as it is; the latest notifications "
                           "are lost if the process ends"));
  Raise(0, "a");
  EXPECT_EQ(Get("latest/10"), "1: 1 0 0; 1@0.0 0 a");
}

TEST_F(HistoryProvider, OtherPathsAreRejected) {
  for (const char* path : {"latest", "newest/1", "latest/1/2", "latest/x", "latest/501", "latest/-1"})
    EXPECT_THAT(Get(path), ::testing::StartsWith("status ")) << path;
  EXPECT_EQ(Get("latest/500"), "0: 0 0 0");
}

}  // namespace
