#include "platform/store/codec/commit_codec.h"

#include <utility>

#include "platform/store/codec/value_codec.h"
#include "platform/store/server/protocol.h"

namespace kvtree {

namespace {

using wire::Reader;
using wire::Writer;

constexpr std::size_t kOctetsOfChange = 32;  // about, besides the path and the value that are set

constexpr std::uint8_t kNotEffective = 0;
constexpr std::uint8_t kOwnEffective = 1;
constexpr std::uint8_t kOtherEffective = 2;
constexpr std::uint8_t kOwnerChanges = 4;  // added to one of the last two: the effective values are the same

// A plan has only values that a configuration may have, so nothing can be refused here.
void write_shared(Writer* writer, const SharedValue& value) {
  if (value == nullptr) {
    writer->u8(kNoValue);
  } else {
    static_cast<void>(write_value(writer, *value));
  }
}

void write_owned(Writer* writer, std::size_t owner, const SharedValue& value) {
  writer->u8(owner_number(owner));
  write_shared(writer, value);
}

bool read_shared(Reader* reader, SharedValue* shared) {
  std::optional<KvValue> value;
  if (!read_optional_value(reader, &value)) return false;
  if (value) *shared = std::make_shared<const KvValue>(std::move(*value));
  return true;
}

// An owner is encoded with every value, and only with one.
bool read_owned(Reader* reader, std::uint8_t* owner, SharedValue* shared) {
  const std::uint8_t number = reader->u8();
  *owner = static_cast<std::uint8_t>(find_owner_number(number));
  if (!read_shared(reader, shared) || (*owner == kNoOwner && number != kNoOwnerNumber)) return false;
  return (number == kNoOwnerNumber) == (*shared == nullptr);
}

bool read_change(Reader* reader, std::size_t owner, PlannedChange* change) {
  change->path = reader->text();
  if (!read_shared(reader, &change->value)) return false;
  std::uint8_t what = reader->u8();
  if (what == kNotEffective) return reader->ok();
  change->is_effective = (what & kOwnerChanges) == 0;
  what &= static_cast<std::uint8_t>(~kOwnerChanges);
  if (!read_owned(reader, &change->owner_before, &change->before)) return false;
  if (what == kOtherEffective)
    return read_owned(reader, &change->owner_after, &change->after) && reader->ok();
  change->owner_after = static_cast<std::uint8_t>(owner);
  change->after = change->value;
  return what == kOwnEffective && change->after != nullptr && reader->ok();
}

bool skip_owned(Reader* reader, SkippedValue* value) {
  static_cast<void>(reader->u8());
  return skip_optional_value(reader, value);
}

// *is_listed: the change is one of the history; *after: the first owner's value after it.
bool skip_change(Reader* reader, bool* is_listed, SkippedValue* after) {
  static_cast<void>(reader->text());
  if (!skip_optional_value(reader, after)) return false;
  std::uint8_t what = reader->u8();
  *is_listed = what != kNotEffective;
  if (!*is_listed) return reader->ok();
  what &= static_cast<std::uint8_t>(~kOwnerChanges);
  SkippedValue before = SkippedValue::kNone;
  if (what > kOtherEffective || !skip_owned(reader, &before)) return false;
  return what == kOwnEffective ? *after != SkippedValue::kNone : skip_owned(reader, after);
}

std::uint8_t kind_of(const PlannedChange& change, bool own) {
  if (!change.is_listed()) return kNotEffective;
  const std::uint8_t kind = own ? kOwnEffective : kOtherEffective;
  return change.is_effective ? kind : kind | kOwnerChanges;
}

}  // namespace

void write_commit(const CommitPlan& plan, wire::Octets* octets) {
  octets->reserve(plan.set_octets + plan.changes.size() * kOctetsOfChange);
  Writer writer(octets);
  for (const PlannedChange& change : plan.changes) {
    const bool own = change.owner_after == plan.owner;
    writer.text(change.path);
    write_shared(&writer, change.value);
    writer.u8(kind_of(change, own));
    if (!change.is_listed()) continue;
    write_owned(&writer, change.owner_before, change.before);
    if (!own) write_owned(&writer, change.owner_after, change.after);
  }
}

bool read_commit(wire::OctetSpan octets, std::size_t owner, const std::function<void(PlannedChange)>& visit) {
  Reader reader(octets);
  while (reader.left() > 0) {
    PlannedChange change;
    if (!read_change(&reader, owner, &change)) return false;
    visit(std::move(change));
  }
  return true;
}

bool find_listed_changes(wire::OctetSpan octets, std::vector<ChangePlace>* places) {
  std::vector<ChangePlace> sets;
  Reader reader(octets);
  while (reader.left() > 0) {
    const std::size_t start = octets.size() - reader.left();
    bool is_listed = false;
    SkippedValue after = SkippedValue::kNone;
    if (!skip_change(&reader, &is_listed, &after)) return false;
    if (!is_listed) continue;
    const std::size_t size = octets.size() - reader.left() - start;
    (after == SkippedValue::kSeen ? sets : *places)
        .push_back({static_cast<std::uint32_t>(start), static_cast<std::uint32_t>(size)});
  }
  places->insert(places->end(), sets.begin(), sets.end());
  return true;
}

}  // namespace kvtree
