// A disk whose power can fail: the files of one directory as a program writes them, and what is found of them
// when power returns.
//
// Everything that was synchronized is found. Of what was not, all is left to chance: a write is found whole,
// not at all, or in some of its sectors, whatever happened to the writes before and after it; a file has any
// of the sizes that it had since, and octets that were never written are zero or garbage; an entry of the
// directory that was made or removed is there or not. A file that is found only under an entry that was not
// synchronized is lost with it.
//
// One thread at a time, but has_power() is for all.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <random>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace power {

using Random = std::mt19937_64;

inline constexpr std::size_t kSector = 512;

class SimulatedDisk {
 public:
  using File = std::size_t;
  using Image = std::map<std::string, std::string>;  // octets by name

  explicit SimulatedDisk(Random::result_type seed) : random_(seed) {}

  // From now on synchronizing has no effect, although it succeeds.
  void ignore_synchronization() { ignores_synchronization_ = true; }
  // Power fails during this operation, counted from 1 for the next one. Every later operation fails.
  void cut_power_at(std::size_t operation) { left_ = operation; }
  bool has_power() const { return std::atomic_ref{has_power_}.load(); }
  std::size_t operations() const { return operations_; }  // since power returned

  // The operations return false if power fails during them or has failed before.
  bool open(const std::string& name, File* file);  // creates a missing one
  bool write(File file, std::size_t place, std::string_view octets);
  bool truncate(File file, std::size_t size);
  bool synchronize(File file);
  bool remove(const std::string& name);
  bool rename(const std::string& from, const std::string& to);  // in one step
  bool has(const std::string& name) const { return entries_.contains(name); }
  bool synchronize_directory();

  // Returns what is found; the disk has exactly that.
  Image return_power();
  // Power returns, and the disk has exactly this.
  void load(const Image& image);

 private:
  struct Change {
    std::optional<std::string> octets;  // none: the file gets the size `place`
    std::size_t place = 0;
  };
  struct Contents {
    std::string synchronized;
    std::vector<Change> changes;  // since then
  };
  using Entries = std::map<std::string, File>;
  // Entries that change in one step; without a file they are removed.
  using EntryChange = std::map<std::string, std::optional<File>>;

  bool begin();
  bool finish() const { return has_power(); }
  static void change_entry(const EntryChange& change, Entries* entries);
  void add_entry_change(EntryChange change);
  Entries surviving_entries();
  std::string surviving_octets(const Contents& contents);
  std::size_t surviving_size(const Contents& contents, std::size_t natural);
  void apply_sectors(const Change& change, bool torn, char filler, std::string* octets);
  void resize(std::string* octets, std::size_t size, char filler);

  Random random_;
  bool ignores_synchronization_ = false;
  mutable bool has_power_ = true;  // accessed atomically
  std::size_t left_ = SIZE_MAX;
  std::size_t operations_ = 0;
  std::vector<Contents> files_;
  Entries entries_;                         // as the program has them
  Entries synchronized_entries_;            // as the disk has them,
  std::vector<EntryChange> entry_changes_;  // and what happened since
};

}  // namespace power
