// Checkpoint saves against bare SQLite, and start-up.
//
// Saves: 10,000 records, each mapped and saved as the daemon does, committed in transactions of several
// sizes; the floor is one prepared UPDATE a row in the same transactions on a database with the same columns
// but the checksum, and the same settings. The two run alternately; the result is the median ratio. All
// records at once is also the longest time that a request can wait for a commit. Start-up: opening, checking
// and reading all records, against selecting them with SQLite.
//
//   chkpt_bench [--brief]
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <stdexcept>
#include <string>
#include <vector>

#include "bench/measure.h"
#include "platform/core/chkpt/chkpt.h"
#include "platform/core/evm/test_run_directory.h"
#include "platform/core/sqlite/sqlite.h"

namespace {

constexpr std::uint32_t kRecords = 10000;
constexpr std::size_t kRecordSize = 8;
constexpr double kWaitBound = 0.050;  // seconds

struct Data {
  std::uint32_t created;
  std::uint32_t changed;
};
static_assert(sizeof(Data) == kRecordSize);

void check(Status status, const char* what) {
  if (status != kStatusOk) throw std::runtime_error(std::string(what) + ": " + err_text(status));
}

// --- The store

class StoreUnderTest {
 public:
  StoreUnderTest() : manager_(event_manager_create("/dev/bench", 0)) { open(); }
  ~StoreUnderTest() {
    chkpt_end();
    event_manager_destroy(manager_);
  }
  StoreUnderTest(const StoreUnderTest&) = delete;
  StoreUnderTest& operator=(const StoreUnderTest&) = delete;

  void create_all() {
    for (std::uint32_t vrf = 0; vrf < kRecords; ++vrf) {
      std::uint64_t object_id = 0;
      check(chkpt_create(table_, &vrf, sizeof vrf, &object_id), "chkpt_create");
      save(vrf, 0);
    }
    check(chkpt_flush(), "chkpt_flush");
  }
  void save(std::uint32_t vrf, std::uint32_t now) {
    std::uint64_t object_id = 0;
    check(chkpt_mapkey(table_, &vrf, sizeof vrf, &object_id), "chkpt_mapkey");
    const Data data{vrf, now};
    check(chkpt_save(table_, object_id, &data, sizeof data), "chkpt_save");
  }
  void commit() { check(chkpt_flush(), "chkpt_flush"); }
  void begin() {}

  // Opening again and reading every record, in seconds.
  double start_up() {
    chkpt_end();
    const auto start = Clock::now();
    open();
    if (count() != kRecords) throw std::runtime_error("records are missing");
    return seconds_since(start);
  }

 private:
  void open() {
    ChkptApplication application{};
    chkpt_application_init(&application, 1, "bench");
    check(chkpt_init(&application, manager_), "chkpt_init");
    ChkptTableDescriptor descriptor{};
    chkpt_table_init(&descriptor, 1, 1, kRecordSize, 1, 0);
    bool had_contents = false;
    check(chkpt_register(&descriptor, 100, &table_, &had_contents), "chkpt_register");
  }
  std::uint32_t count() {
    ChkptIterator* iterator = nullptr;
    check(chkpt_iterate_start(table_, &iterator), "chkpt_iterate_start");
    std::uint32_t records = 0;
    for (std::uint64_t object_id = 1; object_id != 0;) {
      std::uint32_t key = 0;
      Data data{};
      std::size_t key_size = sizeof key;
      std::size_t size = sizeof data;
      check(chkpt_iterate_next(iterator, &key, &key_size, &data, &size, &object_id), "chkpt_iterate_next");
      if (object_id != 0) ++records;
    }
    check(chkpt_iterate_end(iterator), "chkpt_iterate_end");
    return records;
  }

  EventManager* manager_;
  ChkptTable* table_ = nullptr;
};

// --- Bare SQLite

class BareSqlite {
 public:
  explicit BareSqlite(const std::string& path) : path_(path) {
    open();
    run("CREATE TABLE record(object_id INTEGER PRIMARY KEY AUTOINCREMENT, application INTEGER NOT NULL,"
        " table_id INTEGER NOT NULL, key BLOB NOT NULL, data BLOB NOT NULL)");
    run("WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE i < 10000)"
        " INSERT INTO record SELECT i, 1235, 100, x'00000000', x'0000000000000000' FROM n");
    prepare();
  }

  void begin() { step(begin_); }
  void save(std::uint32_t vrf, std::uint32_t now) {
    const std::uint32_t data[] = {vrf, now};
    update_.bind(1, vrf + 1);
    update_.bind_octets(2, std::string_view(reinterpret_cast<const char*>(data), sizeof data));
    step(update_);
  }
  void commit() { step(commit_); }

  double start_up() {
    for (sqlite::Statement* each : {&begin_, &commit_, &update_}) *each = {};
    connection_.reset();
    const auto start = Clock::now();
    open();
    sqlite::Statement select(
        connection_.get(),
        "SELECT object_id, application, table_id, key, data FROM record ORDER BY object_id");
    std::uint32_t records = 0;
    while (select.step() == SQLITE_ROW) {
      if (select.blob(4).size() == kRecordSize) ++records;
    }
    const double seconds = seconds_since(start);
    if (records != kRecords) throw std::runtime_error("rows are missing");
    prepare();
    return seconds;
  }

 private:
  void open() {
    if (sqlite::open(path_, &connection_) != SQLITE_OK) throw std::runtime_error("open");
    run("PRAGMA locking_mode=EXCLUSIVE; PRAGMA journal_mode=WAL; PRAGMA synchronous=FULL");
  }
  void prepare() {
    begin_ = sqlite::Statement(connection_.get(), "BEGIN IMMEDIATE");
    commit_ = sqlite::Statement(connection_.get(), "COMMIT");
    update_ = sqlite::Statement(connection_.get(), "UPDATE record SET data = ?2 WHERE object_id = ?1");
  }
  void run(const char* sql) {
    if (sqlite::run(connection_.get(), sql) != SQLITE_OK) throw std::runtime_error(sql);
  }
  void step(sqlite::Statement& each) {
    if (each.finish() != SQLITE_OK) throw std::runtime_error(sqlite3_errmsg(connection_.get()));
  }

  std::string path_;
  sqlite::Connection connection_;
  sqlite::Statement begin_;
  sqlite::Statement commit_;
  sqlite::Statement update_;
};

// --- Measuring

// Saves all records, `batch` in a transaction. Seconds.
template <typename Target>
double save_all(Target* target, std::uint32_t batch) {
  static std::uint32_t now = 0;
  ++now;
  const auto start = Clock::now();
  for (std::uint32_t first = 0; first < kRecords; first += batch) {
    target->begin();
    for (std::uint32_t vrf = first; vrf < std::min(first + batch, kRecords); ++vrf) target->save(vrf, now);
    target->commit();
  }
  return seconds_since(start);
}

void compare(StoreUnderTest* store, BareSqlite* bare, std::uint32_t batch, int turns) {
  std::vector<double> ours;
  std::vector<double> floors;
  std::vector<double> ratios;
  for (int turn = 0; turn < turns; ++turn) {
    ours.push_back(save_all(store, batch));
    floors.push_back(save_all(bare, batch));
    ratios.push_back(floors.back() / ours.back());
  }
  std::printf(
      "  %5u a transaction: %9.0f saves/s, bare SQLite %9.0f rows/s, ratio %.2f   (aim: at least %.2f)\n",
      batch, kRecords / median(ours), kRecords / median(floors), median(ratios), batch >= 100 ? 0.85 : 0.7);
  if (batch == kRecords) {
    std::printf("  all at once: median %.1f ms, longest %.1f ms   (aim: at most %.0f ms)\n",
                median(ours) * 1e3, *std::max_element(ours.begin(), ours.end()) * 1e3, kWaitBound * 1e3);
  }
}

}  // namespace

int main(int argc, char** argv) {
  const bool brief = is_brief(argc, argv);
  const int turns = brief ? 1 : 15;
  precede_other_programs();
  const TestRunDirectory directory;
  StoreUnderTest store;
  store.create_all();
  BareSqlite bare(directory.path() + "/bare.db");
  std::printf("checkpoint, %u records of %zu octets\n", kRecords, kRecordSize);
  for (const std::uint32_t batch : {1U, 10U, 100U, kRecords}) {
    compare(&store, &bare, batch, batch == 1 && !brief ? 5 : turns);
  }
  std::vector<double> ours;
  std::vector<double> floors;
  std::vector<double> ratios;
  for (int turn = 0; turn < turns; ++turn) {
    ours.push_back(store.start_up());
    floors.push_back(bare.start_up());
    ratios.push_back(ours.back() / floors.back());
  }
  std::printf(
      "  start-up: %.1f ms (checked, read and iterated), bare SELECT %.1f ms, ratio %.1f   (aim: at most "
      "3)\n",
      median(ours) * 1e3, median(floors) * 1e3, median(ratios));
  return 0;
}
