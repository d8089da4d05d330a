#include "tests/power/simulated_disk.h"

#include <algorithm>
#include <array>

namespace power {

namespace {

enum class Fate { kLost, kTorn, kSaved };

constexpr char kZero = 0;
constexpr char kGarbage = 1;

// What happens to each of some changes that were not synchronized. Chance alone would hardly ever lose or
// save all of many, or all after a certain one.
class Survival {
 public:
  Survival(Random& random, std::size_t changes)
      : random_(random), style_(random() % 4), first_lost_(random() % (changes + 1)) {}
  Fate next() {
    const std::size_t change = next_++;
    switch (style_) {
      case 0:
        return Fate::kLost;
      case 1:
        return Fate::kSaved;
      case 2:
        if (change == first_lost_) return Fate::kTorn;
        return change < first_lost_ ? Fate::kSaved : Fate::kLost;
      default:
        return std::array{Fate::kLost, Fate::kTorn, Fate::kSaved}[random_() % 3];
    }
  }

 private:
  Random& random_;
  std::size_t style_;
  std::size_t first_lost_;
  std::size_t next_ = 0;
};

}  // namespace

// Power that fails during an operation leaves it among those that were not synchronized.
bool SimulatedDisk::begin() {
  if (!has_power()) return false;
  ++operations_;
  if (--left_ == 0) std::atomic_ref{has_power_}.store(false);
  return true;
}

void SimulatedDisk::change_entry(const EntryChange& change, Entries* entries) {
  for (const auto& [name, file] : change) {
    if (file) {
      (*entries)[name] = *file;
    } else {
      entries->erase(name);
    }
  }
}

void SimulatedDisk::add_entry_change(EntryChange change) {
  change_entry(change, &entries_);
  entry_changes_.push_back(std::move(change));
}

bool SimulatedDisk::open(const std::string& name, File* file) {
  const auto found = entries_.find(name);
  if (found != entries_.end()) {
    *file = found->second;
    return finish();
  }
  if (!begin()) return false;
  *file = files_.size();
  files_.emplace_back();
  add_entry_change({{name, *file}});
  return finish();
}

bool SimulatedDisk::write(File file, std::size_t place, std::string_view octets) {
  if (!begin()) return false;
  files_[file].changes.push_back({std::string(octets), place});
  return finish();
}

bool SimulatedDisk::truncate(File file, std::size_t size) {
  if (!begin()) return false;
  files_[file].changes.push_back({std::nullopt, size});
  return finish();
}

bool SimulatedDisk::synchronize(File file) {
  if (!begin() || !finish()) return false;
  if (ignores_synchronization_) return true;
  Contents& contents = files_[file];
  for (const Change& change : contents.changes) apply_sectors(change, false, kZero, &contents.synchronized);
  contents.changes.clear();
  return true;
}

bool SimulatedDisk::remove(const std::string& name) {
  if (!begin()) return false;
  add_entry_change({{name, std::nullopt}});
  return finish();
}

bool SimulatedDisk::rename(const std::string& from, const std::string& to) {
  if (!begin()) return false;
  add_entry_change({{from, std::nullopt}, {to, entries_.at(from)}});
  return finish();
}

bool SimulatedDisk::synchronize_directory() {
  if (!begin() || !finish()) return false;
  if (ignores_synchronization_) return true;
  synchronized_entries_ = entries_;
  entry_changes_.clear();
  return true;
}

SimulatedDisk::Image SimulatedDisk::return_power() {
  Image image;
  for (const auto& [name, file] : surviving_entries()) image[name] = surviving_octets(files_[file]);
  load(image);
  return image;
}

void SimulatedDisk::load(const Image& image) {
  files_.clear();
  entries_.clear();
  entry_changes_.clear();
  for (const auto& [name, octets] : image) {
    entries_[name] = files_.size();
    files_.push_back({octets, {}});
  }
  synchronized_entries_ = entries_;
  std::atomic_ref{has_power_}.store(true);
  left_ = SIZE_MAX;
  operations_ = 0;
}

SimulatedDisk::Entries SimulatedDisk::surviving_entries() {
  Entries entries = synchronized_entries_;
  Survival survival(random_, entry_changes_.size());
  for (const EntryChange& change : entry_changes_) {
    if (survival.next() == Fate::kSaved) change_entry(change, &entries);
  }
  return entries;
}

std::string SimulatedDisk::surviving_octets(const Contents& contents) {
  std::string octets = contents.synchronized;
  const char filler = random_() % 2 == 0 ? kZero : kGarbage;
  Survival survival(random_, contents.changes.size());
  for (const Change& change : contents.changes) {
    const Fate fate = survival.next();
    if (fate != Fate::kLost) apply_sectors(change, fate == Fate::kTorn, filler, &octets);
  }
  resize(&octets, surviving_size(contents, octets.size()), filler);
  return octets;
}

// The size that follows from the changes that survive, or any other that the file had.
std::size_t SimulatedDisk::surviving_size(const Contents& contents, std::size_t natural) {
  std::size_t size = contents.synchronized.size();
  std::vector<std::size_t> sizes{natural, natural, size};
  for (const Change& change : contents.changes) {
    size = change.octets ? std::max(size, change.place + change.octets->size()) : change.place;
    sizes.push_back(size);
  }
  return sizes[random_() % sizes.size()];
}

// Sectors of the disk, of which the write may have parts only.
void SimulatedDisk::apply_sectors(const Change& change, bool torn, char filler, std::string* octets) {
  if (!change.octets) return resize(octets, change.place, filler);
  const std::size_t end = change.place + change.octets->size();
  if (octets->size() < end) resize(octets, end, filler);
  for (std::size_t place = change.place; place < end;) {
    const std::size_t next = std::min(end, (place / kSector + 1) * kSector);
    if (!torn || random_() % 2 == 0)
      octets->replace(place, next - place, *change.octets, place - change.place, next - place);
    place = next;
  }
}

void SimulatedDisk::resize(std::string* octets, std::size_t size, char filler) {
  const std::size_t before = octets->size();
  octets->resize(size, '\0');
  if (filler == kZero) return;
  for (std::size_t place = before; place < size; ++place) (*octets)[place] = static_cast<char>(random_());
}

}  // namespace power
