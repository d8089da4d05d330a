// The module's accessible objects in OID order, and the two questions of a management protocol: the value of
// exactly this variable, and the next variable. Independent of the protocol; answers are views that stay
// valid until the next question.
//
// A scalar is a column of a table with one row, whose index is the single sub-identifier 0.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <vector>

#include "agent/oid/oid.h"
#include "agent/rows/row_cache.h"
#include "agent/rows/row_set.h"
#include "agent/rows/row_source.h"

namespace tables {

// mplsL3VpnObjects, the subtree of the module.
inline constexpr std::uint32_t kL3vpnObjects[] = {1, 3, 6, 1, 2, 1, 10, 166, 11, 1};

struct Column {
  oid::View entry;  // of its table, or the scalar group, below kL3vpnObjects
  std::uint32_t number;
  mib::Type type;
  std::size_t slot;  // of the row set's rows
  bool is_counted;   // known only while the daemon can answer reads of routes
};

// The scalars, or a table with those that augment it.
struct Table {
  const RowSet* rows;
  std::span<const Column> columns;
};

enum class Answer {
  kValue,
  kNoSuchObject,
  kNoSuchInstance,
  kEnd,      // no variable follows (or none before the range's end)
  kFailed,   // the daemon has no answer; nothing may be concluded
  kPending,  // the daemon's answer is under way; to be asked again
};

struct Variable {
  oid::View object;  // name: object, then instance
  oid::View instance;
  mib::Type type = mib::Type::kInteger;
  mib::Value cell;  // a time stamp is in TimeTicks, the value of sysUpTime at that moment
};

class Mib {
 public:
  // The descriptions must outlive it, and it the answers of the source. Tables may be in any order.
  Mib(std::span<const Table> tables, RowSource& source, std::uint64_t row_age_ns);
  Mib(const Mib&) = delete;
  Mib& operator=(const Mib&) = delete;

  // New requests begin, now by clock_monotonic(): what failed before is tried again. Returns their number.
  std::uint64_t begin_requests(std::uint64_t now);
  // One of the requests at hand begins with this name: what all of them want is read together.
  void want(oid::View start);
  // The requests at hand have waited until now.
  void set_time(std::uint64_t now);
  // Other requests are at hand, which began before.
  void resume_requests(std::uint64_t now, std::uint64_t number);

  Answer get(oid::View name, Variable* variable);
  // The first variable after `start` (at or after it, with `include`) and before `end` (empty: no end).
  Answer next(oid::View start, bool include, oid::View end, Variable* variable);
  // When the sysUpTime that time stamps refer to was 0: nanoseconds since 1970. Events before it, and all
  // events while it is not known, have the time stamp 0.
  void set_up_time_zero(std::optional<std::int64_t> zero_ns) { up_time_zero_ = zero_ns; }

 private:
  struct Object {
    oid::Oid name;
    mib::Type type;
    std::size_t slot;
    RowCache* rows;
    bool is_counted;
    RowRef last;                  // the row that was answered last
    std::size_t followed_by = 0;  // the object that was looked for after this one
  };

  bool is_beyond(const Object& object, oid::View index, oid::View end) const;
  std::size_t first_object_from(oid::View name);
  bool is_in(oid::View name, std::size_t position) const;
  std::size_t search_object_from(oid::View name) const;
  // None while the daemon's answer is under way.
  std::optional<bool> are_routes_readable();
  void take_routes_answer(Status status);
  // kValue; kFailed or kPending while the values of this object are unknown.
  Answer answer_with(const Object& object, const RowRef& row, Variable* variable);
  mib::Value cell_of(const Object& object, const RowRef& row) const;
  Answer next_in(Object* object, oid::View instance, bool after, oid::View end, Variable* variable);

  std::vector<std::unique_ptr<RowCache>> caches_;  // one per table
  RowSource* source_;
  std::uint64_t row_age_ns_;
  std::optional<std::uint64_t> routes_asked_at_;  // by clock_monotonic()
  std::optional<std::uint64_t> routes_known_at_;  // not by a time-out
  bool are_routes_readable_ = false;
  bool asks_for_routes_ = false;
  std::uint64_t routes_answered_ = 0;  // the last request that had begun when the answer was asked for
  std::uint64_t requests_ = 0;         // that have begun
  std::uint64_t at_hand_ = 0;          // the number of those at hand
  std::optional<std::int64_t> up_time_zero_;
  std::size_t last_object_ = 0;  // that was looked for
  std::vector<Object> objects_;  // sorted by name; no name begins with another
};

}  // namespace tables
