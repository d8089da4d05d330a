// Octets as the database of the configuration, and as the record of a commit in it.
//
// The first octet chooses: a sound database with damage (support.h), a file of the input's own, or the octets
// of a commit. Whatever a file has, the process starts: a file that cannot be used is preserved under another
// name, and one of a newer version may be refused but is not changed. What can be read of the values and the
// history is read without a crash, damage makes no value that was never set, and a commit that is made after
// that is there when the file is opened again.
#include <algorithm>
#include <array>

#include "fuzz/support.h"
#include "platform/core/files/temporary_directory.h"
#include "platform/store/codec/commit_codec.h"
#include "platform/store/configuration/configuration.h"

namespace {

using fuzz::require;

constexpr std::array<KvConfigOwner, 2> kOwners = {{{"user", 0}, {"peer", 1}}};
constexpr std::uint32_t kVersion = 5;

const std::string& directory() {
  static const TemporaryDirectory made;
  return made.path();
}

std::string file_name() {
  return directory() + "/configuration.db";
}

Status keep() {
  kvtree_reset();
  return kvtree_keep_configuration(directory());
}

KvConfigChange set_to(const std::string& path, const std::string& text) {
  KvValue value;
  value.type = KvValueType::kText;
  value.text = text;
  return {path, value};
}

std::string make_database() {
  require(kvtree_config_register_owners(kOwners) == kStatusOk);
  require(keep() == kStatusOk);
  require(kvtree_config_commit("peer", {set_to("/cfg/a", "1"), set_to("/cfg/b", "2")}, "x") == kStatusOk);
  require(kvtree_config_commit("user", {set_to("/cfg/b", "3")}, "y") == kStatusOk);
  KvConfigChange numbers{"/cfg/c", KvValue{}};
  numbers.value->type = KvValueType::kTuple;
  numbers.value->tuple = {1, -2};
  require(kvtree_config_commit("user", {{"/cfg/b", std::nullopt}, numbers}, "") == kStatusOk);
  kvtree_reset();
  return fuzz::read_file(file_name());
}

bool is_newer(const std::string& octets) {
  constexpr std::size_t kVersionAt = 60;
  return fuzz::number_at(octets, kVersionAt) > kVersion;
}

bool was_set(const KvConfigNode& node) {
  if (node.path == "/cfg/c") return node.value.tuple == std::vector<std::int64_t>{1, -2};
  if (node.path == "/cfg/a") return node.value.text == "1";
  return node.path == "/cfg/b" && (node.value.text == "2" || node.value.text == "3");
}

void read_everything(bool is_damaged) {
  kvtree_config_effective("/cfg/", [is_damaged](const KvConfigNode& node) {
    require(node.path.starts_with("/cfg/") && (!is_damaged || was_set(node)));
  });
  std::vector<KvConfigCommit> commits;
  if (kvtree_config_history(100, {}, &commits) != kStatusOk) return;
  for (const KvConfigCommit& commit : commits) {
    std::vector<KvConfigCommitChange> changes;
    (void)kvtree_config_changes(commit.id, &changes);
  }
}

void commit_and_reopen() {
  if (kvtree_config_commit("user", {set_to("/cfg/new", "new")}, "") != kStatusOk) return;
  require(keep() == kStatusOk);
  const auto found = kvtree_config_find("/cfg/new");
  require(found && found->value.text == "new");
}

void remove_files() {
  for (const char* end :
       {"", "-journal", "-wal", ".unusable.1", ".unusable.1-journal", ".unusable.1-wal", ".salvaged"}) {
    std::remove((file_name() + end).c_str());
  }
}

void open_file(const std::string& octets, bool is_damaged) {
  remove_files();
  fuzz::write_file(file_name(), octets);
  if (keep() == kStatusOk) {
    const std::string aside = fuzz::read_file(file_name() + ".unusable.1");
    require(aside.empty() || aside == octets);
    read_everything(is_damaged);
    commit_and_reopen();
  } else {
    require(is_newer(octets) && fuzz::read_file(file_name()) == octets);
  }
  kvtree_reset();
}

void read_commit(fuzz::Input input) {
  const wire::Octets octets(input.begin(), input.end());
  std::size_t changes = 0;
  (void)kvtree::read_commit(octets, 0, [&](const kvtree::PlannedChange&) { ++changes; });
  require(changes <= octets.size());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const std::string sound = make_database();
  fuzz::Input input(data, size);
  switch (fuzz::take_octet(&input) % 3) {
    case 0:
      open_file(fuzz::damaged(sound, input), true);
      break;
    case 1:
      open_file(fuzz::text_of(input), false);
      break;
    default:
      read_commit(input);
      break;
  }
  return 0;
}
