#include "platform/store/configuration/commit_codec.h"

#include <utility>

#include "platform/store/configuration/value_codec.h"
#include "platform/store/server/protocol.h"

namespace kvtree {

namespace {

using wire::Reader;
using wire::Writer;

constexpr std::size_t kOctetsOfChange = 32;  // about, besides the path and the value that are set

constexpr std::uint8_t kNotEffective = 0;
constexpr std::uint8_t kOwnEffective = 1;
constexpr std::uint8_t kOtherEffective = 2;

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
  const std::uint8_t what = reader->u8();
  if (what == kNotEffective) return reader->ok();
  change->is_effective = true;
  if (!read_owned(reader, &change->owner_before, &change->before)) return false;
  if (what == kOtherEffective)
    return read_owned(reader, &change->owner_after, &change->after) && reader->ok();
  change->owner_after = static_cast<std::uint8_t>(owner);
  change->after = change->value;
  return what == kOwnEffective && change->after != nullptr && reader->ok();
}

// *is_set: whether there is a value.
bool skip_owned(Reader* reader, bool* is_set) {
  static_cast<void>(reader->u8());
  return skip_optional_value(reader, is_set);
}

// *is_effective: the effective value changes; *is_set: there is one after the change.
bool skip_change(Reader* reader, bool* is_effective, bool* is_set) {
  static_cast<void>(reader->text());
  if (!skip_optional_value(reader, is_set)) return false;
  const std::uint8_t what = reader->u8();
  *is_effective = what != kNotEffective;
  if (!*is_effective) return reader->ok();
  bool was_set = false;
  if (what > kOtherEffective || !skip_owned(reader, &was_set)) return false;
  return what == kOwnEffective ? *is_set : skip_owned(reader, is_set);
}

}  // namespace

void write_commit(const CommitPlan& plan, wire::Octets* octets) {
  octets->reserve(plan.set_octets + plan.changes.size() * kOctetsOfChange);
  Writer writer(octets);
  for (const PlannedChange& change : plan.changes) {
    const bool own = change.owner_after == plan.owner;
    writer.text(change.path);
    write_shared(&writer, change.value);
    writer.u8(!change.is_effective ? kNotEffective : own ? kOwnEffective : kOtherEffective);
    if (!change.is_effective) continue;
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

bool find_effective_changes(wire::OctetSpan octets, std::vector<ChangePlace>* places) {
  std::vector<ChangePlace> sets;
  Reader reader(octets);
  while (reader.left() > 0) {
    const std::size_t start = octets.size() - reader.left();
    bool is_effective = false;
    bool is_set = false;
    if (!skip_change(&reader, &is_effective, &is_set)) return false;
    if (!is_effective) continue;
    const std::size_t size = octets.size() - reader.left() - start;
    (is_set ? sets : *places)
        .push_back({static_cast<std::uint32_t>(start), static_cast<std::uint32_t>(size)});
  }
  places->insert(places->end(), sets.begin(), sets.end());
  return true;
}

}  // namespace kvtree
