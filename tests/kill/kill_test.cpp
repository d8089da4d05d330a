// Processes are killed at random moments, thousands of times. Whatever was acknowledged is there afterwards:
// commits of configuration with their history, records of the checkpoint that a client has read, traps.
//
//   MPLS_TEST_KILL_ROUNDS   rounds (60); each kills the daemon at least once, half of them also subscribers
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <map>
#include <memory>
#include <optional>
#include <sstream>

#include "platform/core/evm/test_run_directory.h"
#include "platform/store/client/client.h"
#include "tests/kill/child.h"
#include "tests/kill/small_daemon.h"
#include "tests/kill/trap_subscriber.h"
#include "tests/random_rounds.h"

namespace kill9 {
namespace {

using Settings = std::map<std::uint32_t, std::int64_t>;  // values by name

constexpr std::uint32_t kNames = 400;
constexpr std::uint64_t kLongestLife = 6000;   // microseconds
constexpr std::uint64_t kLongestStart = 4000;  // of a process that is killed while it starts

std::string ReadFile(const std::string& path) {
  std::ifstream file(path);
  return {std::istreambuf_iterator<char>(file), {}};
}

std::string path_of(std::uint32_t name) {
  return kSettings + std::to_string(name);
}

class KillTest : public ::testing::Test, protected RandomRounds {
 protected:
  std::string Log() const { return directory.path() + "/log"; }

  // --- Rounds

  void Round() {
    while (OneOf(4)) KillWhileStarting();
    StartDaemon();
    Check();
    if (OneOf(2)) KillSubscribers();
    if (OneOf(2)) {
      daemon->kill_after(std::chrono::microseconds(Below(kLongestLife)));
      while (ChangeOrRead()) {
      }
    } else {  // as soon as the last one is acknowledged
      for (std::uint64_t left = 1 + Below(8); left > 0; --left) ChangeOrRead();
    }
    EXPECT_TRUE(daemon->kill_now()) << "the daemon ended by itself";
    ++kills;
  }
  void KillWhileStarting() {
    daemon = std::make_unique<Child>(Log(), run_small_daemon);
    std::this_thread::sleep_for(std::chrono::microseconds(Below(kLongestStart)));
    EXPECT_TRUE(daemon->kill_now()) << "a start fails";
    ++start_kills;
  }
  void StartDaemon() {
    daemon = std::make_unique<Child>(Log(), run_small_daemon);
    for (int tries = 0; client.connect() != kStatusOk; ++tries) {
      ASSERT_LT(tries, 100000);
      std::this_thread::sleep_for(std::chrono::microseconds(100));
    }
  }

  // --- What is found

  void Check() {
    CheckFiles();
    CheckSettings();
    CheckHistory();
    CheckLoaded();
  }
  void CheckFiles() const {
    for (const auto& file : std::filesystem::directory_iterator(directory.path()))
      EXPECT_THAT(file.path().filename().string(), ::testing::Not(::testing::HasSubstr("unusable")));
  }
  // The commit in progress is complete or absent.
  void CheckSettings() {
    const Settings found = FoundSettings();
    if (proposed && found == *proposed) {
      settings = found;
      ++completed;
    } else if (proposed) {
      ++absent;
    }
    proposed.reset();
    ASSERT_EQ(found, settings);
  }
  Settings FoundSettings() {
    Settings found;
    std::string last;
    for (;;) {
      const kvtree::NodesResult part = client.nodes(kSettings, 1000, last);
      EXPECT_EQ(part.status, kStatusOk);
      if (part.nodes.empty()) return found;
      for (const kvtree::Node& node : part.nodes)
        found[static_cast<std::uint32_t>(std::stoul(node.path.substr(kSettings.size())))] = node.value.number;
      last = part.nodes.back().path;
    }
  }
  // The newest commit is the last one that was acknowledged, or the one that was in progress.
  void CheckHistory() {
    const kvtree::HistoryResult history = client.history(2);
    ASSERT_EQ(history.status, kStatusOk);
    if (last_commit.empty()) return;
    ASSERT_FALSE(history.commits.empty());
    const bool is_newest = history.commits.front().id == last_commit;
    ASSERT_TRUE(is_newest || (history.commits.size() > 1 && history.commits[1].id == last_commit))
        << last_commit;
    last_commit = history.commits.front().id;
    const kvtree::CommitChangesResult changes = client.commit_changes(last_commit, 1);
    EXPECT_EQ(changes.status, kStatusOk);
    EXPECT_FALSE(changes.changes.empty());
  }
  // No record is older than what was read of it, or newer than the setting.
  void CheckLoaded() {
    const Settings loaded = LoadedRecords();
    for (const auto& [name, value] : read) {
      const auto record = loaded.find(name);
      ASSERT_TRUE(record != loaded.end()) << "the record of " << name << " is lost";
      EXPECT_GE(record->second, value) << "of " << name;
    }
    for (const auto& [name, value] : loaded) EXPECT_LE(value, newest) << "of " << name;
    checked_reads += read.size();
    read.clear();
  }
  Settings LoadedRecords() {
    const kvtree::ActionResult answer = client.action({"loaded"});
    EXPECT_EQ(answer.status, kStatusOk);
    std::istringstream words(answer.text);
    Settings loaded;
    char equals = 0;
    std::uint32_t name = 0;
    for (std::int64_t value = 0; words >> name >> equals >> value;) loaded[name] = value;
    return loaded;
  }

  // --- What happens. False: the daemon was killed.

  bool ChangeOrRead() {
    switch (Below(4)) {
      case 0:
        return Commit();
      case 1:
        return Save();
      case 2:
        return RaiseOne();
      default:
        return ReadOne();
    }
  }
  bool Commit() {
    proposed = settings;
    const std::vector<KvConfigChange> changes = ProposeChanges();
    if (changes.empty()) return true;
    const kvtree::CommitResult result = client.commit(changes, "");
    if (result.status == EBUSY) return true;  // large commits are still being processed
    if (result.status != kStatusOk) return false;
    settings = *proposed;
    proposed.reset();
    last_commit = result.id;
    ++commits;
    return true;
  }
  std::vector<KvConfigChange> ProposeChanges() {
    const std::uint64_t count = OneOf(12) ? 300 : 1 + Below(4);
    const auto first = static_cast<std::uint32_t>(Below(kNames - count));
    const bool withdraws = OneOf(4);
    std::vector<KvConfigChange> changes;
    for (std::uint32_t name = first; name < first + count; ++name) {
      if (withdraws && proposed->erase(name) == 0) continue;
      changes.push_back({path_of(name), withdraws ? std::nullopt : std::optional(NextValue())});
      if (withdraws) Withdraw(name);
      if (!withdraws) (*proposed)[name] = newest;
    }
    return changes;
  }
  // Its record is deleted soon, or was when a later value made another one.
  void Withdraw(std::uint32_t name) {
    read.erase(name);
    withdrawn[name] = newest;
  }
  KvValue NextValue() {
    KvValue value;
    value.type = KvValueType::kNumber;
    value.number = ++newest;
    return value;
  }
  bool Save() {
    const auto name = static_cast<std::uint32_t>(kNames + Below(kNames));
    const std::int64_t value = ++newest;
    if (client.action({"save", std::to_string(name), std::to_string(value)}).status != kStatusOk)
      return false;
    read[name] = value;
    ++saves;
    return true;
  }
  bool ReadOne() {
    if (settings.empty()) return true;
    const std::uint32_t name = std::next(settings.begin(), static_cast<long>(Below(settings.size())))->first;
    const kvtree::ActionResult answer = client.action({"read", std::to_string(name)});
    if (answer.status != kStatusOk) return false;
    const std::int64_t value = std::stoll(answer.text);
    if (value > withdrawn[name]) read[name] = std::max(read[name], value);
    return true;
  }

  // --- Traps

  void KillSubscribers() {
    for (std::uint64_t subscribers = 1 + Below(3); subscribers > 0; --subscribers) {
      TrapSubscriber subscriber(Log());
      subscriber.kill_after(std::chrono::microseconds(Below(kLongestLife)));
      ASSERT_TRUE(Raise(Below(60)));
      traps.add(subscriber.wait());
      ASSERT_TRUE(Raise(OneOf(10) ? 2 * kTrapQueue : Below(20)));
      ++subscriber_kills;
    }
    ASSERT_TRUE(Raise(1));
    traps.add(TrapSubscriber(Log()).wait_for(raised));
    EXPECT_EQ(traps.last(), raised);
  }
  bool Raise(std::uint64_t count) {
    const std::string first = std::to_string(raised + 1);
    raised += static_cast<std::uint32_t>(count);
    return count == 0 || client.action({"raise", first, std::to_string(count)}).status == kStatusOk;
  }
  // Nothing takes it before the daemon is killed.
  bool RaiseOne() {
    if (Raise(1)) return true;
    traps.doubt(raised);
    return false;
  }

  TestRunDirectory directory;
  kvtree::Client client{kvtree::Client::default_socket(), std::chrono::milliseconds(20000)};
  std::unique_ptr<Child> daemon;

  Settings settings;                 // acknowledged,
  std::optional<Settings> proposed;  // and with the commit in progress
  Settings read;                     // or saved in the checkpoint, in this life of the daemon
  Settings withdrawn;                // the newest value when the name had none
  std::int64_t newest = 0;           // value
  std::string last_commit;
  std::uint32_t raised = 0;  // the last trap's number
  TrapCheck traps;

  std::size_t kills = 0;
  std::size_t start_kills = 0;
  std::size_t subscriber_kills = 0;
  std::size_t commits = 0;
  std::size_t saves = 0;
  std::size_t completed = 0;
  std::size_t absent = 0;
  std::size_t checked_reads = 0;
};

TEST_F(KillTest, WhateverWasAcknowledgedSurvivesKillsAtRandomMoments) {
  const std::uint64_t rounds = number_of_environment("MPLS_TEST_KILL_ROUNDS", 60);
  PrintSeed();
  for (std::uint64_t round = 0; round < rounds && !HasFailure(); ++round) Round();
  if (HasFailure()) std::cout << ReadFile(Log());
  std::cout << kills << " kills of the daemon, " << start_kills << " while it started, " << subscriber_kills
            << " of subscribers; " << commits << " acknowledged commits, " << completed
            << " others complete, " << absent << " absent; " << saves << " acknowledged records; "
            << checked_reads << " records checked; " << traps.processed << " traps processed, "
            << traps.repeated << " of them again, " << traps.lost << " lost and reported by a full queue\n";
}

}  // namespace
}  // namespace kill9
