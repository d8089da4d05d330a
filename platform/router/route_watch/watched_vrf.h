// What is watched of one VRF, and its evaluation. The rules are in route_watch.h.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <utility>

#include "platform/core/base/clock.h"
#include "platform/router/model/router.h"

namespace route_watch {

inline constexpr std::size_t kFamilies = 2;  // IPv4, IPv6
inline constexpr std::uint64_t kCheckInterval = 100 * kNanosecondsPerMillisecond;

// Whether the model has had all routes of the table since the start.
using HasRead = std::function<bool(router::RouteTableId table)>;

struct Pair {
  std::uint32_t first = 0;
  std::uint32_t second = 0;
};

struct WatchedTable {
  std::uint32_t low = 0;   // the low-water mark; 0: none
  std::uint32_t hold = 0;  // seconds
  std::uint32_t mid = 0;   // thresholds, which platform/router/rib_threshold compares; 0: none
  std::uint32_t maximum = 0;
  bool is_low = false;
  std::uint64_t below_since = 0;   // clock_monotonic(); 0: it is not below the mark
  std::uint64_t below_before = 0;  // for how long it had been then, in earlier processes
  std::uint32_t changed = 0;       // seconds since 1970; 0: not since the process started
  std::uint64_t unread_since = 0;  // clock_monotonic(); 0: its routes are read, or not compared
  bool is_unread_reported = false;

  bool is_configured() const { return low != 0 || mid != 0 || maximum != 0; }
};

struct WatchedPrefix {
  bool is_present = false;
  bool is_reported = false;   // as missing
  std::uint32_t changed = 0;  // as above
};

// What of these outlives the process.
struct StoredTable {
  bool is_low = false;
  std::uint64_t below_since = 0;  // clock_stamp(); 0: it is not below the mark
  std::uint32_t changed = 0;
};
struct StoredPrefix {
  bool is_present = false;
  bool is_reported = false;
  std::uint32_t changed = 0;
};
struct StoredVrf {
  std::array<StoredTable, kFamilies> tables;
  std::map<std::string, StoredPrefix> prefixes;  // by their texts
};

class WatchedVrf {
 public:
  explicit WatchedVrf(std::string name) : name_(std::move(name)) {}

  void set_low(std::size_t family, const Pair& low_and_hold);
  void set_thresholds(std::size_t family, const Pair& maximum_and_mid);
  bool has_prefix(const router::Address& prefix) const;  // watched or waiting
  void add_prefix(const router::Address& prefix) { prefixes_.try_emplace(key_of(prefix)); }
  bool remove_prefix(const router::Address& prefix) { return prefixes_.erase(key_of(prefix)) > 0; }
  // One that waits until it can be watched, and its place among them.
  void add_waiting(const router::Address& prefix, std::uint64_t place) { waiting_[key_of(prefix)] = place; }
  std::uint64_t remove_waiting(const router::Address& prefix);  // 0 if it does not wait
  bool is_configured() const;
  bool is_compared() const;  // with the routes: thresholds alone are not

  // Continues from what an earlier process knew. The prefix is watched.
  void restore(std::size_t family, const StoredTable& stored);
  void restore(const router::Address& prefix, const StoredPrefix& stored);
  StoredVrf stored() const;
  // Whether a state has changed since the last call.
  bool take_changed() { return std::exchange(is_changed_, false); }

  // Compares with the routes now, in tables that are read, and logs what has changed. When the next
  // comparison is due although no route changes, clock_monotonic(); 0 if never.
  std::uint64_t evaluate(const router::Router& model, const HasRead& has_read);

  const std::string& name() const { return name_; }
  const WatchedTable& table(std::size_t family) const { return tables_[family]; }
  // 0 if the VRF does not exist or has no such table.
  static std::uint32_t routes_of(const router::Router& model, const std::string& vrf, std::size_t family);
  template <typename Visit>
  void for_each_prefix(Visit visit) const {
    for (const auto& [key, watched] : prefixes_) visit(address_of(key), watched);
  }
  std::size_t prefix_count() const { return prefixes_.size(); }
  std::size_t waiting_count() const { return waiting_.size(); }
  // The first ones, at most so many.
  template <typename Visit>
  void for_each_waiting(std::size_t most, Visit visit) const {
    for (auto each = waiting_.begin(); each != waiting_.end() && most > 0; ++each, --most)
      visit(address_of(each->first));
  }

 private:
  using PrefixKey = std::pair<router::Family, router::RouteKey>;
  static PrefixKey key_of(const router::Address& prefix);
  static router::Address address_of(const PrefixKey& key);
  bool is_compared(std::size_t family) const;
  bool note_reading(std::size_t family, bool is_read);
  std::uint64_t evaluate_low(std::size_t family, std::uint32_t routes);
  void report_low(std::size_t family, std::uint32_t routes);
  void evaluate_prefix(const PrefixKey& key, bool is_present, WatchedPrefix* watched);
  void set_below(std::uint64_t since, WatchedTable* table);

  std::string name_;
  std::array<WatchedTable, kFamilies> tables_;
  std::map<PrefixKey, WatchedPrefix> prefixes_;
  std::map<PrefixKey, std::uint64_t> waiting_;
  bool is_changed_ = false;
};

// For how long it has not been read; 0 for one that is read.
std::uint32_t seconds_unread(const WatchedTable& table);
// The table of a VRF; its number is 0 if the VRF has none.
router::RouteTableId table_of(const router::Vrf& vrf, std::size_t family);

}  // namespace route_watch
