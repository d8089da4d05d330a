// For tests: a store in a state directory of its own, that can be ended and started again.
#pragma once

#include <gtest/gtest.h>
#include <sys/resource.h>

#include <csignal>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "platform/core/base/fault.h"
#include "platform/core/chkpt/chkpt.h"
#include "platform/core/evm/test_run_directory.h"
#include "platform/core/sqlite/row_checksum.h"
#include "platform/core/sqlite/sqlite.h"

struct Row {
  std::string key;
  std::string data;
  friend bool operator==(const Row&, const Row&) = default;
  friend void PrintTo(const Row& row, std::ostream* out) { *out << row.key << "=" << row.data; }
};

inline std::string ReadFile(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

inline void WriteFile(const std::string& path, const std::string& octets) {
  std::ofstream(path, std::ios::binary) << octets;
}

// Files cannot grow beyond this size, as on a full disk.
class FileSizeLimit {
 public:
  explicit FileSizeLimit(rlim_t octets) : handler_(std::signal(SIGXFSZ, SIG_IGN)) {
    EXPECT_EQ(getrlimit(RLIMIT_FSIZE, &before_), 0);
    rlimit tight = before_;
    tight.rlim_cur = octets;
    EXPECT_EQ(setrlimit(RLIMIT_FSIZE, &tight), 0);
  }
  ~FileSizeLimit() {
    EXPECT_EQ(setrlimit(RLIMIT_FSIZE, &before_), 0);
    std::signal(SIGXFSZ, handler_);
  }
  FileSizeLimit(const FileSizeLimit&) = delete;
  FileSizeLimit& operator=(const FileSizeLimit&) = delete;

 private:
  rlimit before_{};
  void (*handler_)(int);
};

class CheckpointTest : public ::testing::Test {
 protected:
  CheckpointTest() {
    manager = event_manager_create("/dev/mpls/vpn/main", 0);
    chkpt_application_init(&application, 1235, "mpls_vpn");
    chkpt_table_init(&descriptor, 1, 1, 0, 1, 0);
  }
  ~CheckpointTest() override {
    fault_disarm_all();
    chkpt_end();
    event_manager_destroy(manager);
  }

  // True when the table had contents.
  bool Start() {
    EXPECT_EQ(chkpt_init(&application, manager), kStatusOk);
    bool had_contents = false;
    EXPECT_EQ(chkpt_register(&descriptor, kTable, &table, &had_contents), kStatusOk);
    return had_contents;
  }
  bool Restart() {
    chkpt_end();
    return Start();
  }
  void UseStateDirectory(const std::string& path) {
    chkpt_end();
    state = path;
    setenv("MPLS_VPN_MIB_STATE_DIR", state.c_str(), 1);
  }

  std::uint64_t Map(const std::string& key) const {
    std::uint64_t object_id = 0;
    const Status status = chkpt_mapkey(table, key.data(), key.size(), &object_id);
    EXPECT_TRUE(status == kStatusOk || status == kStatusChkptKeyNotFound);
    return object_id;
  }
  std::uint64_t Create(const std::string& key) const {
    std::uint64_t object_id = 0;
    EXPECT_EQ(chkpt_create(table, key.data(), key.size(), &object_id), kStatusOk);
    return object_id;
  }
  Status Save(std::uint64_t object_id, const std::string& data) const {
    return chkpt_save(table, object_id, data.data(), data.size());
  }
  // Creates the record where it is missing.
  void Put(const std::string& key, const std::string& data) const {
    std::uint64_t object_id = Map(key);
    if (object_id == 0) object_id = Create(key);
    EXPECT_EQ(Save(object_id, data), kStatusOk);
  }
  std::vector<Row> Rows() const {
    ChkptIterator* iterator = nullptr;
    EXPECT_EQ(chkpt_iterate_start(table, &iterator), kStatusOk);
    std::vector<Row> rows;
    std::uint64_t last = 0;
    for (;;) {
      std::string key(256, '\0');
      std::string data(2048, '\0');
      std::size_t key_size = key.size();
      std::size_t size = data.size();
      std::uint64_t object_id = 0;
      EXPECT_EQ(chkpt_iterate_next(iterator, key.data(), &key_size, data.data(), &size, &object_id),
                kStatusOk);
      if (object_id == 0) break;
      EXPECT_GT(object_id, last);
      last = object_id;
      rows.push_back({key.substr(0, key_size), data.substr(0, size)});
    }
    EXPECT_EQ(chkpt_iterate_end(iterator), kStatusOk);
    return rows;
  }

  // Runs the loop until the commit has ended.
  void Await(std::uint64_t number) const {
    while (chkpt_committed() < number) event_run_pending(manager, 1'000'000);
  }

  std::string File() const { return state + "/checkpoint.db"; }
  std::string Log() const { return File() + "-wal"; }
  std::string Aside() const { return File() + ".unusable.1"; }
  static bool Exists(const std::string& path) { return std::filesystem::exists(path); }
  // The transactions in the log: frames that carry the size of the database after them.
  std::size_t CommitsInLog() const {
    const std::string log = ReadFile(Log());
    std::size_t commits = 0;
    for (std::size_t frame = kLogHeader; frame + kFrame <= log.size(); frame += kFrame) {
      if (log.compare(frame + 4, 4, std::string(4, '\0')) != 0) ++commits;
    }
    return commits;
  }
  // Runs SQL on the closed database.
  void Sql(const char* sql) const {
    sqlite3* raw = nullptr;
    ASSERT_EQ(sqlite3_open(File().c_str(), &raw), SQLITE_OK);
    const sqlite::Connection connection(raw);
    ASSERT_EQ(sqlite::define_row_checksum(raw), SQLITE_OK);
    ASSERT_EQ(sqlite::run(raw, sql), SQLITE_OK) << sqlite3_errmsg(raw);
  }

  static constexpr std::uint32_t kTable = 100;
  static constexpr std::size_t kPage = 4096;
  static constexpr std::size_t kLogHeader = 32;
  static constexpr std::size_t kFrame = 24 + kPage;

  TestRunDirectory directory;
  std::string state = directory.path();
  EventManager* manager = nullptr;
  ChkptApplication application{};
  ChkptTableDescriptor descriptor{};
  ChkptTable* table = nullptr;
};
