// The start of the daemon with the largest configuration that it accepts: how long it takes, and how much
// memory.
//
//   config_start_bench [--brief]
//
// A million nodes of 200 octets and 200,000 changes that are pending when the process dies; a million pending
// changes of one replacement; and the first of these as a database of the former version, and with a damaged
// page. Each start is in a process of its own and ends when the configuration has been read.
#include <chrono>
#include <cstdio>
#include <ctime>
#include <fstream>
#include <functional>
#include <string>
#include <vector>

#include "bench/in_child.h"
#include "bench/measure.h"
#include "platform/core/evm/test_run_directory.h"
#include "platform/core/sqlite/sqlite.h"
#include "platform/store/configuration/configuration.h"
#include "platform/store/server/store.h"

namespace {

constexpr double kMostSeconds = 10;
constexpr std::size_t kFoldedPerStep = 100000;
constexpr KvConfigOwner kOwners[] = {{"first", 0}, {"second", 1}};

void check(bool is_good, const char* what) {
  if (!is_good) throw std::runtime_error(what);
}

double cpu_seconds() {
  timespec now{};
  clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
  return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
}

KvConfigNode node(std::size_t number, char text) {
  KvConfigNode made;
  made.path = "/cfg/many/" + std::to_string(10000000 + number);
  made.value.type = KvValueType::kText;
  made.value.text = std::string(150, text);
  return made;
}

class Bench {
 public:
  explicit Bench(std::size_t nodes) : nodes_(nodes) {}

  void run() {
    in_child([this] { return make(false); });
    report("200,000 changes pending", [] {});
    in_child([this] { return make(true); });
    report("a million pending", [] {});
    report("of the former version", [this] {
      in_child([this] { return fold(); });
      execute(
          "ALTER TABLE node DROP COLUMN checksum; ALTER TABLE log DROP COLUMN checksum; ALTER TABLE content "
          "DROP COLUMN checksum; ALTER TABLE node DROP COLUMN suppressed; ALTER TABLE log DROP COLUMN user; "
          "DROP TABLE confirmation; PRAGMA user_version = 3");
    });
    report("damaged", [this] { damage(); });
  }

 private:
  struct Result {
    double seconds;
    double cpu;
    double octets;
  };

  std::string file() const { return directory_.path() + "/configuration.db"; }
  void execute(const char* sql) const {
    sqlite::Connection connection;
    check(sqlite::open(file(), &connection) == SQLITE_OK, "open");
    check(sqlite::run(connection.get(), sql) == SQLITE_OK, sqlite3_errmsg(connection.get()));
  }
  void damage() const {
    std::fstream database(file(), std::ios::in | std::ios::out | std::ios::binary);
    database.seekp(1000 * 4096);
    database << std::string(4096, '\xee');
  }
  // A server keeps the changes pending: its event loop does not run.
  int make(bool all_at_once) const {
    std::remove(file().c_str());
    EventManager* manager = event_manager_create("/dev/mpls/vpn/main", 0);
    check(kvtree_config_register_owners(kOwners) == kStatusOk, "owners");
    check(kvtree_keep_configuration(directory_.path()) == kStatusOk, "make");
    if (all_at_once) {
      check(kvtree_serve(manager) == kStatusOk, "serve");
      replace(nodes_, 'a');
      return 0;
    }
    replace(nodes_, 'a');
    fold_all();
    check(kvtree_serve(manager) == kStatusOk, "serve");
    for (std::size_t commit = 0; commit < 2; ++commit) change(commit * nodes_ / 10, nodes_ / 10);
    return 0;
  }
  int fold() const {
    check(kvtree_config_register_owners(kOwners) == kStatusOk, "owners");
    check(kvtree_keep_configuration(directory_.path()) == kStatusOk, "start");
    fold_all();
    return 0;
  }
  static void fold_all() {
    while (kvtree::store().node_store->fold_some(kFoldedPerStep)) {
    }
    check(!kvtree::store().node_store->has_unfolded(), "fold");
  }
  static void replace(std::size_t count, char text) {
    std::vector<KvConfigNode> nodes;
    for (std::size_t i = 0; i < count; ++i) nodes.push_back(node(i, text));
    check(kvtree_config_replace("first", nodes, "") == kStatusOk, "replace");
  }
  static void change(std::size_t first, std::size_t count) {
    std::vector<KvConfigChange> changes;
    for (std::size_t i = first; i < first + count; ++i) {
      KvConfigNode changed = node(i, 'b');
      changes.push_back({std::move(changed.path), std::move(changed.value)});
    }
    check(kvtree_config_commit("first", changes, "") == kStatusOk, "commit");
  }
  void report(const char* what, const std::function<void()>& prepare) const {
    prepare();
    const Result result = in_child([this] { return start(); });
    std::printf("%-26s start %6.2f s, processor %6.2f s   (aim: at most %.0f s: %s), %5.0f MB resident\n",
                what, result.seconds, result.cpu, kMostSeconds,
                result.seconds <= kMostSeconds ? "met" : "not met", result.octets / 1e6);
    std::fflush(stdout);
  }
  Result start() const {
    const auto begin = Clock::now();
    check(kvtree_config_register_owners(kOwners) == kStatusOk, "owners");
    check(kvtree_keep_configuration(directory_.path()) == kStatusOk, "start");
    std::size_t found = 0;
    const double seconds = seconds_since(begin);
    kvtree_config_effective("/cfg/", [&found](const KvConfigNode&) { ++found; });
    check(found > nodes_ * 9 / 10, "nodes are missing");
    return {seconds, cpu_seconds(), resident_octets()};
  }

  std::size_t nodes_;
  TestRunDirectory directory_;
};

}  // namespace

int main(int argc, char** argv) {
  try {
    Bench(is_brief(argc, argv) ? 20000 : 1000000).run();
    return 0;
  } catch (const std::exception& failure) {
    std::fprintf(stderr, "config_start_bench: %s\n", failure.what());
    return 1;
  }
}
