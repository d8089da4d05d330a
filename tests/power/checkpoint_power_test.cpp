// Power cuts while the checkpoint store writes: everything that was flushed is found at the next start.
#include "platform/core/chkpt/chkpt.h"
#include "tests/power/power_test.h"

namespace power {
namespace {

constexpr std::uint32_t kTable = 100;
constexpr std::size_t kRecordsOfALongLog = 30'000;  // more than a thousand pages

struct StoredRecord {
  std::uint64_t object_id = 0;
  std::string data;
  bool operator==(const StoredRecord&) const = default;
};
using Records = std::map<std::string, StoredRecord>;  // by key

class CheckpointPower : public PowerTest {
 protected:
  CheckpointPower() {
    chkpt_application_init(&application, 1235, "mpls_vpn");
    chkpt_table_init(&descriptor, 1, 1, 0, 1, 0);
  }
  ~CheckpointPower() override { chkpt_end(); }

  void ForgetAll() override {
    flushed = pending = {};
    highest_flushed = 0;
  }
  void Live() override {
    setenv("MPLS_VPN_MIB_STATE_DIR", state.c_str(), 1);
    if (!IsCut(Start())) {
      Check();
      Work();
    }
    chkpt_end();
  }
  std::string Find() override {
    setenv("MPLS_VPN_MIB_STATE_DIR", state.c_str(), 1);
    std::string text;
    if (Start()) {
      for (const auto& [key, record] : Read())
        text += key + "=" + std::to_string(record.object_id) + record.data.front() +
                std::to_string(record.data.size()) + " ";
      text += "end";
    }
    chkpt_end();
    return text;
  }
  bool Start() {
    if (chkpt_init(&application, manager) != kStatusOk) return false;
    return chkpt_register(&descriptor, kTable, &table, &had_contents) == kStatusOk;
  }
  void Check() {
    CheckFiles({"checkpoint.db", "checkpoint.db-wal", "checkpoint.db-journal"});
    const Records found = Read();
    if (found != flushed && found != pending) Violate(Difference(found));
    if (had_contents == found.empty()) Violate("a wrong first run");
    if (pending != flushed) ++(found == pending ? completed : absent);
    flushed = pending = found;
  }
  std::string Difference(const Records& found) const {
    for (const auto& [key, record] : flushed) {
      const auto other = found.find(key);
      if (other == found.end()) return "record " + std::to_string(record.object_id) + " is lost";
      if (other->second != record) return "record " + std::to_string(record.object_id) + " is another one";
    }
    return "there are records that were deleted or never made";
  }
  Records Read() const {
    Records found;
    ChkptIterator* iterator = nullptr;
    EXPECT_EQ(chkpt_iterate_start(table, &iterator), kStatusOk);
    for (;;) {
      std::string key(256, '\0');
      std::string data(2048, '\0');
      std::size_t key_size = key.size();
      std::size_t size = data.size();
      std::uint64_t id = 0;
      EXPECT_EQ(chkpt_iterate_next(iterator, key.data(), &key_size, data.data(), &size, &id), kStatusOk);
      if (id == 0) break;
      found[key.substr(0, key_size)] = {id, data.substr(0, size)};
    }
    EXPECT_EQ(chkpt_iterate_end(iterator), kStatusOk);
    return found;
  }

  void Work() {
    for (std::uint64_t flushes = Below(40); flushes > 0; --flushes) {
      for (std::uint64_t changes = OneOf(20) ? 300 : 1 + Below(4); changes > 0; --changes) ChangeOne();
      if (chkpt_flush() != kStatusOk) return ExpectNoPower("a flush");
      Acknowledge();
      if (OneOf(30) && !Restart()) return;
    }
  }
  void ChangeOne() {
    const std::string key = std::to_string(1000 + Below(400));
    const auto known = pending.find(key);
    if (known == pending.end()) {
      Create(key);
    } else if (OneOf(3)) {
      static_cast<void>(chkpt_delete(table, known->second.object_id));
      pending.erase(known);
    } else {
      Save(&known->second);
    }
  }
  void Create(const std::string& key) {
    StoredRecord record;
    if (chkpt_create(table, key.data(), key.size(), &record.object_id) != kStatusOk) return;
    if (record.object_id <= highest_flushed) Violate("an object id is used again");
    Save(&(pending[key] = record));
  }
  void Save(StoredRecord* record) {
    record->data = std::string(1 + Below(300), static_cast<char>('a' + Below(26)));
    static_cast<void>(chkpt_save(table, record->object_id, record->data.data(), record->data.size()));
  }
  void Acknowledge() {
    ++acknowledged_changes;
    flushed = pending;
    for (const auto& [key, record] : flushed) highest_flushed = std::max(highest_flushed, record.object_id);
  }
  // The program ends in order and starts again.
  bool Restart() {
    chkpt_end();
    if (!Start()) {
      ExpectNoPower("a start");
      return false;
    }
    if (disk.has_power()) Check();
    return disk.has_power();
  }
  // Power fails in this operation from the flush on, or after it.
  void StartWorkAndCut(std::size_t records, std::size_t operation) {
    setenv("MPLS_VPN_MIB_STATE_DIR", state.c_str(), 1);
    if (!Start()) return Violate("a start fails");
    Check();
    for (; records > 0; --records) Create(std::to_string(10'000 + pending.size()));
    if (operation > 0) disk.cut_power_at(operation);
    if (chkpt_flush() == kStatusOk) Acknowledge();
    disk.cut_power_at(1);
    chkpt_end();
    UseImage(disk.return_power());
  }
  void ExpectNoPower(const std::string& what) {
    if (disk.has_power()) Violate(what + " fails");
  }

  ChkptApplication application{};
  ChkptTableDescriptor descriptor{};
  ChkptTable* table = nullptr;
  bool had_contents = false;
  Records flushed;  // acknowledged,
  Records pending;  // and with the changes that are not
  std::uint64_t highest_flushed = 0;
};

TEST_F(CheckpointPower, FlushedRecordsSurviveAndOthersAreWholeOrAbsent) {
  RunLives(Cuts());
  EXPECT_EQ(violation, "");
}

TEST_F(CheckpointPower, SalvageThatIsCutIsRepeated) {
  CutSalvages("checkpoint.db", Cuts() / 4);
  EXPECT_EQ(violation, "");
}

// What a checkpoint of the log has not written back is due at the next start.
TEST_F(CheckpointPower, StartThatWritesTheLogBackLosesNothing) {
  PrintSeed();
  ::testing::internal::CaptureStderr();
  for (lives = 0; lives < 20 && violation.empty(); ++lives) {
    ForgetAll();
    disk.load({});
    UseImage({});
    StartWorkAndCut(kRecordsOfALongLog, 1500 + Below(3000));
    StartWorkAndCut(1, 0);
    StartWorkAndCut(1, 0);
  }
  PrintEndOfLog(::testing::internal::GetCapturedStderr());
  EXPECT_EQ(violation, "");
}

// The proof is able to fail.
TEST_F(CheckpointPower, DiskThatIgnoresSynchronizationLosesFlushedRecords) {
  disk.ignore_synchronization();
  RunLives(50);
  EXPECT_NE(violation, "");
}

}  // namespace
}  // namespace power
