// index.h turns a GETNEXT, with whatever instance part, into "the first row at or after this index". A GET is
// the same question followed by a comparison, because the daemon's exact read of an interface does not
// answer for VRFs in its database (docs/decisions.md). An instance that cannot be an index is answered
// without the daemon.
#include "agent/tables/mib.h"

#include <algorithm>
#include <compare>

#include "platform/core/base/clock.h"

namespace tables {
namespace {

// Without a module of the routing table the records have a count of 0, but reads of routes fail.
constexpr char kAnyRoute[] = "/oper/mpls_vpn/gl/route//1/0/1/0/0";

// In hundredths of a second. Second 0 means "never".
std::uint32_t time_stamp(std::uint32_t seconds, const std::optional<std::int64_t>& up_time_zero) {
  if (seconds == 0 || !up_time_zero) return 0;
  const std::int64_t ns = std::int64_t{seconds} * std::int64_t{kNanosecondsPerSecond} - *up_time_zero;
  constexpr auto kNanosecondsPerTick = std::int64_t{kNanosecondsPerSecond / 100};
  return ns < 0 ? 0 : static_cast<std::uint32_t>(ns / kNanosecondsPerTick);
}

Answer look_up(RowCache& rows, oid::View index, std::size_t slot, std::uint32_t rows_wanted, RowRef* row) {
  switch (rows.first_at_or_after(index, slot_bit(slot), rows_wanted, row)) {
    case Lookup::kRow:
      return Answer::kValue;
    case Lookup::kEnd:
      return Answer::kNoSuchInstance;
    case Lookup::kPending:
      return Answer::kPending;
    case Lookup::kFailed:
      break;
  }
  return Answer::kFailed;
}

}  // namespace

Mib::Mib(std::span<const Table> tables, RowSource& source, std::uint64_t row_age_ns)
    : source_(&source), row_age_ns_(row_age_ns) {
  for (const Table& table : tables) {
    caches_.push_back(std::make_unique<RowCache>(*table.rows, source, row_age_ns));
    for (const Column& column : table.columns) {
      Object object{.name = oid::Oid(kL3vpnObjects),
                    .type = column.type,
                    .slot = column.slot,
                    .rows = caches_.back().get(),
                    .is_counted = column.is_counted,
                    .last = {}};
      object.name.append(column.entry);
      object.name.append(column.number);
      objects_.push_back(object);
    }
  }
  std::sort(objects_.begin(), objects_.end(), [](const Object& left, const Object& right) {
    return std::is_lt(oid::compare(left.name.view(), right.name.view()));
  });
}

std::uint64_t Mib::begin_requests(std::uint64_t now) {
  at_hand_ = ++requests_;
  for (const auto& cache : caches_) cache->begin_requests(now);
  return requests_;
}

void Mib::set_time(std::uint64_t now) {
  for (const auto& cache : caches_) cache->set_time(now);
}

void Mib::resume_requests(std::uint64_t now, std::uint64_t number) {
  at_hand_ = number;
  for (const auto& cache : caches_) cache->resume_requests(now, number);
}

void Mib::want(oid::View start) {
  const std::size_t position = first_object_from(start);
  if (position < objects_.size()) objects_[position].rows->want(slot_bit(objects_[position].slot));
}

// The answer is stored as long as rows are.
std::optional<bool> Mib::are_routes_readable() {
  const std::uint64_t now = clock_monotonic();
  const bool is_young = !asks_for_routes_ && now - routes_asked_at_.value_or(0) < row_age_ns_;
  if (routes_asked_at_ && (routes_answered_ >= at_hand_ || is_young)) return are_routes_readable_;
  if (asks_for_routes_) return std::nullopt;
  routes_asked_at_ = now;
  asks_for_routes_ = true;
  try {
    source_->read({kAnyRoute, 1, {}}, [this, request = requests_](const Batch& answer) {
      routes_answered_ = request;
      take_routes_answer(answer.status);
    });
  } catch (...) {
    asks_for_routes_ = false;
    throw;
  }
  if (asks_for_routes_) return std::nullopt;
  return are_routes_readable_;
}

void Mib::take_routes_answer(Status status) {
  asks_for_routes_ = false;
  const bool is_recent = routes_known_at_ && clock_monotonic() - *routes_known_at_ < kOldRows;
  if (status == kStatusTimedOut && row_age_ns_ > 0 && is_recent) return;
  routes_known_at_ = routes_asked_at_;
  are_routes_readable_ = status == kStatusOk || status == kStatusNoSuchRow;
}

bool Mib::is_in(oid::View name, std::size_t position) const {
  return position < objects_.size() && oid::starts_with(name, objects_[position].name.view());
}

// Position of the object that contains the name, or of the first object after the name. Most look-ups are in
// the object of the one before, or, in a walk of columns side by side, in the one that followed it last time.
std::size_t Mib::first_object_from(oid::View name) {
  if (is_in(name, last_object_)) return last_object_;
  const bool has_last = last_object_ < objects_.size();
  if (has_last && is_in(name, objects_[last_object_].followed_by))
    return last_object_ = objects_[last_object_].followed_by;
  const std::size_t position = search_object_from(name);
  if (has_last) objects_[last_object_].followed_by = position;
  return last_object_ = position;
}

std::size_t Mib::search_object_from(oid::View name) const {
  const auto after = std::partition_point(objects_.begin(), objects_.end(), [&](const Object& object) {
    return std::is_lteq(oid::compare(object.name.view(), name));
  });
  const auto position = static_cast<std::size_t>(after - objects_.begin());
  return position > 0 && is_in(name, position - 1) ? position - 1 : position;
}

Answer Mib::get(oid::View name, Variable* variable) {
  const std::size_t position = first_object_from(name);
  if (position == objects_.size() || !oid::starts_with(name, objects_[position].name.view())) {
    return Answer::kNoSuchObject;
  }
  const Object& object = objects_[position];
  const oid::View instance = name.subspan(object.name.size());
  if (!is_index(object.rows->set().index, instance)) return Answer::kNoSuchInstance;
  RowRef row;
  const Answer found = look_up(*object.rows, instance, object.slot, kExactRows, &row);
  if (found != Answer::kValue) return found;
  if (std::is_neq(oid::compare(row.index(), instance))) return Answer::kNoSuchInstance;
  return answer_with(object, row, variable);
}

Answer Mib::next(oid::View start, bool include, oid::View end, Variable* variable) {
  std::size_t position = first_object_from(start);
  if (position < objects_.size() && oid::starts_with(start, objects_[position].name.view())) {
    Object& object = objects_[position++];
    const Answer answer = next_in(&object, start.subspan(object.name.size()), !include, end, variable);
    if (answer != Answer::kNoSuchInstance) return answer;
  }
  for (; position < objects_.size(); ++position) {
    const Answer answer = next_in(&objects_[position], {}, false, end, variable);
    if (answer != Answer::kNoSuchInstance) return answer;
  }
  return Answer::kEnd;
}

Answer Mib::answer_with(const Object& object, const RowRef& row, Variable* variable) {
  if (object.is_counted) {
    const std::optional<bool> readable = are_routes_readable();
    if (!readable) return Answer::kPending;
    if (!*readable) return Answer::kFailed;
  }
  *variable = {object.name.view(), row.index(), object.type, cell_of(object, row)};
  return Answer::kValue;
}

mib::Value Mib::cell_of(const Object& object, const RowRef& row) const {
  mib::Value cell = row.cell(object.slot);
  if (object.type == mib::Type::kTimeStamp) cell.number = time_stamp(cell.number, up_time_zero_);
  return cell;
}

bool Mib::is_beyond(const Object& object, oid::View index, oid::View end) const {
  return !end.empty() && std::is_gteq(oid::compare(object.name.view(), index, end));
}

// kNoSuchInstance: this object has no such instance; continue with the next object.
Answer Mib::next_in(Object* object, oid::View instance, bool after, oid::View end, Variable* variable) {
  RowCache& rows = *object->rows;
  if (after && rows.advance(&object->last, instance, slot_bit(object->slot))) {
    if (is_beyond(*object, object->last.index(), end)) return Answer::kEnd;
    return answer_with(*object, object->last, variable);
  }
  oid::Oid index;
  if (!first_index(rows.set().index, instance, after, &index)) return Answer::kNoSuchInstance;
  if (is_beyond(*object, index.view(), end)) return Answer::kEnd;
  RowRef row;
  const Answer found = look_up(rows, index.view(), object->slot, kWalkRows, &row);
  if (found != Answer::kValue) return found;
  if (is_beyond(*object, row.index(), end)) return Answer::kEnd;
  object->last = row;
  return answer_with(*object, row, variable);
}

}  // namespace tables
