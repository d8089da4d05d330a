// Power cuts while owners commit configuration: every acknowledged commit is found at the next start, with
// its entry in the history, and one that was in progress is complete or absent.
#include <deque>

#include "platform/core/base/clock.h"
#include "platform/core/sqlite/sqlite.h"
#include "platform/store/configuration/configuration.h"
#include "platform/store/tree/kvtree.h"
#include "tests/power/power_test.h"

namespace power {
namespace {

constexpr std::array<KvConfigOwner, 3> kOwners = {{{"user", 0}, {"file", 1}, {"suite", 2}}};
constexpr std::size_t kMostOfSmall = 256;  // changes that a commit writes to the rows at once

using OwnerValues = std::map<std::string, KvValue>;  // by path
using Values = std::array<OwnerValues, kOwners.size()>;

// A commit of the history as its reader sees it.
struct Entry {
  std::string id;
  std::string comment;
  std::string changes;  // as text; empty while power failed before they were read
  bool operator==(const Entry&) const = default;
};

struct Known {
  Values values;
  std::deque<Entry> history;  // newest first
};

void AppendText(const std::optional<KvValue>& value, std::string* text) {
  if (!value) {
    *text += "-";
    return;
  }
  *text += value->text + "#" + std::to_string(value->number);
  for (const std::int64_t number : value->tuple) *text += "," + std::to_string(number);
}

class ConfigurationPower : public PowerTest {
 protected:
  ConfigurationPower() {
    kvtree_reset();
    EXPECT_EQ(kvtree_config_register_owners(kOwners), kStatusOk);
  }
  ~ConfigurationPower() override { End(); }

  void ForgetAll() override {
    known = {};
    proposed.reset();
  }
  void Live() override {
    serves = OneOf(2);
    if (!IsCut(Start())) {
      Check();
      Work();
    }
    End();
  }
  std::string Find() override {
    serves = false;
    std::string text;
    if (Start()) {
      for (const OwnerValues& values : ReadValues()) {
        for (const auto& [path, value] : values) {
          text += path + " ";
          AppendText(value, &text);
        }
      }
      text += "end";
    }
    End();
    return text;
  }
  bool Start() {
    return kvtree_keep_configuration(state) == kStatusOk && (!serves || kvtree_serve(manager) == kStatusOk);
  }
  void End() const {
    kvtree_stop_serving(manager);
    kvtree_reset();
    event_run_pending(manager);
  }

  // --- What is found

  void Check() {
    CheckFiles({"configuration.db", "configuration.db-journal"});
    const Values found = ReadValues();
    std::vector<KvConfigCommit> history;
    const bool is_read = kvtree_config_history(UINT32_MAX, "", &history) == kStatusOk;
    if (!disk.has_power()) return;  // it may fail while rows are written on the thread
    if (!is_read) Violate("the history cannot be read");
    if (proposed) CheckProposed(found, history);
    if (found != known.values) Violate("values of acknowledged commits are lost or others are there");
    CheckHistory(history);
  }
  static Values ReadValues() {
    Values found;
    for (std::size_t owner = 0; owner < kOwners.size(); ++owner) {
      kvtree_config_owned(kOwners[owner].name,
                          [&](const KvConfigNode& node) { found[owner][node.path] = node.value; });
    }
    return found;
  }
  // A commit without an effective change has no entry in the history.
  void CheckProposed(const Values& found, const std::vector<KvConfigCommit>& history) {
    const bool is_listed = !history.empty() && history.front().comment == proposed_comment;
    const bool is_complete = is_listed || found == *proposed;
    ++(is_complete ? completed : absent);
    if (is_complete) known.values = *proposed;
    if (is_listed) Remember(history.front().id, proposed_comment);
    proposed.reset();
  }
  void CheckHistory(const std::vector<KvConfigCommit>& history) {
    if (history.size() != known.history.size())
      return Violate(std::to_string(history.size()) + " commits in the history, not " +
                     std::to_string(known.history.size()));
    for (std::size_t i = 0; i < history.size(); ++i) {
      const Entry& entry = known.history[i];
      if (history[i].id != entry.id || history[i].comment != entry.comment)
        return Violate("commit " + entry.id + " is another one");
    }
    if (history.empty()) return;
    CheckContent(0);
    CheckContent(Below(history.size()));
  }
  void CheckContent(std::size_t place) {
    Entry& entry = known.history[place];
    const std::string found = ReadChanges(entry.id);
    if (found.empty()) return;
    if (entry.changes.empty()) entry.changes = found;
    if (found != entry.changes) Violate("commit " + entry.id + " has other changes");
  }
  std::string ReadChanges(const std::string& id) {
    if (!disk.has_power()) return {};
    std::vector<KvConfigCommitChange> changes;
    const bool is_read = kvtree_config_changes(id, &changes) == kStatusOk;
    if (!disk.has_power()) return {};
    if (!is_read) Violate("commit " + id + " cannot be read");
    std::string text;
    for (const KvConfigCommitChange& change : changes) {
      text += change.path + " ";
      AppendText(change.before, &text);
      AppendText(change.after, &text);
    }
    return std::to_string(std::hash<std::string>()(text)) + " of " + std::to_string(changes.size());
  }
  void Remember(const std::string& id, const std::string& comment) {
    known.history.push_front({id, comment, ReadChanges(id)});
    if (known.history.size() > kMaxCommits) known.history.pop_back();
  }

  // --- What happens

  void Work() {
    for (std::uint64_t commits = Below(12); commits > 0 && disk.has_power(); --commits) {
      if (OneOf(4) ? !CommitInSteps() : !Commit()) return;
      if (serves) WorkInSteps(Below(8));
      if (OneOf(20) && !Restart()) return;
    }
  }
  bool Commit() {
    const std::size_t owner = Below(kOwners.size());
    proposed = known.values;
    proposed_comment = "commit " + std::to_string(++comments);
    std::vector<KvConfigChange> changes;
    ProposeChanges(&(*proposed)[owner], &changes);
    std::string id;
    if (Propose(owner, changes, &id) != kStatusOk) {
      if (disk.has_power()) Violate("a commit fails");
      return false;
    }
    Acknowledge(id);
    return true;
  }
  // A source's values are written on a thread and applied while the loop serves others. Sometimes the program
  // ends before that is complete.
  bool CommitInSteps() {
    struct Outcome {
      std::optional<Status> status;
      std::string id;
    };
    const auto outcome = std::make_shared<Outcome>();
    const auto nodes = std::make_shared<std::vector<KvConfigNode>>();
    const std::size_t owner = 1 + Below(kOwners.size() - 1);
    proposed = known.values;
    proposed_comment = "commit " + std::to_string(++comments);
    ProposeMany(&(*proposed)[owner], nodes.get());
    kvtree_config_begin_replacement(manager, kOwners[owner].name, nodes, proposed_comment,
                                    [outcome](Status status, const std::string& id, const std::string&) {
                                      *outcome = {status, id};
                                    });
    for (std::uint64_t steps = OneOf(4) ? Below(20) : UINT64_MAX; steps > 0 && !outcome->status; --steps)
      event_run_pending(manager, kNanosecondsPerMillisecond / 10);
    if (!outcome->status) return false;
    if (*outcome->status != kStatusOk && disk.has_power()) Violate("a commit in steps fails");
    if (*outcome->status != kStatusOk) return false;
    ++commits_in_steps;
    Acknowledge(outcome->id);
    return true;
  }
  // Sometimes more than one step writes to the rows.
  void ProposeMany(OwnerValues* values, std::vector<KvConfigNode>* nodes) {
    if (values->size() > 2000) values->clear();
    const std::uint64_t first = Below(400);
    for (std::uint64_t n = first + (OneOf(20) ? 6000 : Below(1000)); n > first; --n) {
      const std::string path = "/cfg/gl/vrf/" + std::to_string(n);
      if (OneOf(3)) {
        values->erase(path);
      } else {
        (*values)[path] = SomeValue();
      }
    }
    for (const auto& [path, value] : *values) nodes->push_back({path, value});
  }
  // Sources replace all that they set; clients commit changes.
  Status Propose(std::size_t owner, const std::vector<KvConfigChange>& changes, std::string* id) {
    if (owner == 0 || OneOf(3))
      return kvtree_config_commit(kOwners[owner].name, changes, proposed_comment, id);
    std::vector<KvConfigNode> nodes;
    for (const auto& [path, value] : (*proposed)[owner]) nodes.push_back({path, value});
    return kvtree_config_replace(kOwners[owner].name, nodes, proposed_comment, id);
  }
  void ProposeChanges(OwnerValues* values, std::vector<KvConfigChange>* changes) {
    const bool is_large = OneOf(10);
    const std::uint64_t first = Below(400);
    const std::uint64_t count = is_large ? kMostOfSmall + 1 + Below(300) : 1 + Below(5);
    const bool withdraws = OneOf(3);
    for (std::uint64_t n = first; n < first + count; ++n) {
      const std::string path = "/cfg/gl/vrf/" + std::to_string(n);
      if (!withdraws) {
        changes->push_back({path, (*values)[path] = SomeValue()});
      } else if (values->erase(path) > 0) {
        changes->push_back({path, std::nullopt});
      }
    }
  }
  KvValue SomeValue() {
    KvValue value;
    value.type = std::array{KvValueType::kNone, KvValueType::kText, KvValueType::kNumber,
                            KvValueType::kTuple}[Below(4)];
    if (value.type == KvValueType::kText)
      value.text = std::string(Below(40), static_cast<char>('a' + Below(26)));
    if (value.type == KvValueType::kNumber) value.number = static_cast<std::int64_t>(random());
    if (value.type == KvValueType::kTuple) value.tuple = {static_cast<std::int64_t>(random()), 1};
    return value;
  }
  void Acknowledge(const std::string& id) {
    ++acknowledged_changes;
    known.values = *proposed;
    proposed.reset();
    if (!id.empty()) Remember(id, proposed_comment);
  }
  // The program ends in order and starts again.
  bool Restart() {
    End();
    if (!Start()) {
      if (disk.has_power()) Violate("a start fails");
      return false;
    }
    if (disk.has_power()) Check();
    return disk.has_power();
  }

  Known known;                     // of acknowledged commits
  std::optional<Values> proposed;  // with the commit that is not acknowledged
  std::string proposed_comment;
  std::uint64_t comments = 0;
  std::size_t commits_in_steps = 0;
  bool serves = false;  // large commits are folded step by step, after their acknowledgement
};

TEST_F(ConfigurationPower, AcknowledgedCommitsSurviveAndOthersAreCompleteOrAbsent) {
  RunLives(Cuts());
  EXPECT_EQ(violation, "");
  EXPECT_GT(commits_in_steps, 0U);
}

TEST_F(ConfigurationPower, SalvageThatIsCutIsRepeated) {
  CutSalvages("configuration.db", Cuts() / 4);
  EXPECT_EQ(violation, "");
}

// The proof is able to fail.
TEST_F(ConfigurationPower, DiskThatIgnoresSynchronizationLosesCommits) {
  disk.ignore_synchronization();
  RunLives(50);
  EXPECT_NE(violation, "");
}

int disable_synchronization(sqlite3* database, char**, const void*) {
  return sqlite::run(database, "PRAGMA synchronous=OFF");
}

TEST_F(ConfigurationPower, DatabaseThatDoesNotSynchronizeLosesCommits) {
  const auto extension = reinterpret_cast<void (*)()>(disable_synchronization);
  ASSERT_EQ(sqlite3_auto_extension(extension), SQLITE_OK);
  RunLives(50);
  sqlite3_cancel_auto_extension(extension);
  EXPECT_NE(violation, "");
}

}  // namespace
}  // namespace power
