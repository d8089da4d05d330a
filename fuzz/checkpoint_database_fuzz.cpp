// Octets as the checkpoint database.
//
// The first octet chooses: a sound database with damage (support.h), or a file of the input's own. Whatever
// the file has, the store opens, and a file that cannot be used is preserved under another name; one of a
// newer version may be refused but is not changed. Its records
// are in order and can be read; one that is saved after that is there when the file is opened again.
#include <optional>

#include "fuzz/support.h"
#include "platform/core/chkpt/chkpt.h"
#include "platform/core/evm/test_run_directory.h"

namespace {

using fuzz::require;

constexpr std::uint32_t kTable = 100;
constexpr std::uint32_t kVersion = 2;

const TestRunDirectory& directory() {
  static const TestRunDirectory made;
  return made;
}

std::string file_name() {
  return directory().path() + "/checkpoint.db";
}

std::uint32_t version_of(const std::string& octets) {
  constexpr std::size_t kVersionAt = 60;
  return fuzz::number_at(octets, kVersionAt);
}

// The store while it is open.
struct Store {
  EventManager* manager = nullptr;
  ChkptTable* table = nullptr;
};

Status open_store(Store* store) {
  ChkptApplication application{};
  ChkptTableDescriptor descriptor{};
  chkpt_application_init(&application, 1235, "mpls_vpn");
  chkpt_table_init(&descriptor, 1, 1, 0, 1, 0);
  store->manager = event_manager_create("/dev/mpls/vpn/main", 0);
  if (const Status status = chkpt_init(&application, store->manager)) return status;
  bool had_contents = false;
  return chkpt_register(&descriptor, kTable, &store->table, &had_contents);
}

void close_store(Store* store) {
  chkpt_end();
  event_manager_destroy(store->manager);
  *store = {};
}

Status save(const Store& store, const std::string& key, const std::string& data) {
  std::uint64_t object = 0;
  Status status = chkpt_mapkey(store.table, key.data(), key.size(), &object);
  if (status == kStatusChkptKeyNotFound) status = chkpt_create(store.table, key.data(), key.size(), &object);
  if (status == kStatusOk) status = chkpt_save(store.table, object, data.data(), data.size());
  return status == kStatusOk ? chkpt_flush() : status;
}

bool is_original(const std::string& key, const std::string& data) {
  return (key == "red1" || key == "red2" || key == "blue") && data == "data";
}

// The data of the key's record.
std::optional<std::string> read_all(const Store& store, const std::string& wanted, bool only_original) {
  std::optional<std::string> found;
  ChkptIterator* iterator = nullptr;
  require(chkpt_iterate_start(store.table, &iterator) == kStatusOk);
  for (std::uint64_t last = 0;;) {
    std::string key(kChkptKeyMax, '\0');
    std::string data(kChkptDataMax, '\0');
    std::size_t key_size = key.size();
    std::size_t data_size = data.size();
    std::uint64_t object = 0;
    require(chkpt_iterate_next(iterator, key.data(), &key_size, data.data(), &data_size, &object) ==
            kStatusOk);
    if (object == 0) break;
    require(object > last);
    last = object;
    require(!only_original || is_original(key.substr(0, key_size), data.substr(0, data_size)));
    if (key.substr(0, key_size) == wanted) found = data.substr(0, data_size);
  }
  require(chkpt_iterate_end(iterator) == kStatusOk);
  return found;
}

std::string make_database() {
  (void)directory();  // sets the environment
  Store store;
  require(open_store(&store) == kStatusOk);
  for (const char* key : {"red1", "red2", "blue"}) require(save(store, key, "data") == kStatusOk);
  close_store(&store);
  // A store that opens the file again also checkpoints its log.
  require(open_store(&store) == kStatusOk);
  close_store(&store);
  return fuzz::read_file(file_name());
}

void remove_files() {
  for (const char* end : {"", "-wal", "-shm", "-journal", ".unusable.1", ".unusable.1-wal", ".salvaged"}) {
    std::remove((file_name() + end).c_str());
  }
}

void check(const std::string& octets, bool is_damaged) {
  remove_files();
  fuzz::write_file(file_name(), octets);
  Store store;
  if (open_store(&store) != kStatusOk) {
    require(version_of(octets) > kVersion && fuzz::read_file(file_name()) == octets);
    return close_store(&store);
  }
  const std::string aside = fuzz::read_file(file_name() + ".unusable.1");
  require(aside.empty() || aside == octets);
  (void)read_all(store, "", is_damaged);
  const bool saved = save(store, "new1", "new") == kStatusOk;
  close_store(&store);
  if (!saved) return;
  require(open_store(&store) == kStatusOk);
  require(read_all(store, "new1", false) == "new");
  close_store(&store);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const std::string sound = make_database();
  fuzz::Input input(data, size);
  const bool whole = (fuzz::take_octet(&input) & 1U) != 0;
  check(whole ? fuzz::text_of(input) : fuzz::damaged(sound, input), !whole);
  return 0;
}
