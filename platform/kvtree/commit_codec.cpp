// See commit_codec.h.
#include "platform/kvtree/commit_codec.h"

#include <utility>

#include "platform/kvtree/protocol.h"
#include "platform/kvtree/value_codec.h"

namespace kvtree {

namespace {

using wire::Reader;
using wire::Writer;

// A plan has only values that a configuration may have, so nothing can be refused here.
void write_shared(Writer* writer, const SharedValue& value) {
  if (value == nullptr) {
    writer->u8(kNoValue);
  } else {
    static_cast<void>(write_value(writer, *value));
  }
}

bool read_shared(Reader* reader, SharedValue* shared) {
  std::optional<KvValue> value;
  if (!read_optional_value(reader, &value)) return false;
  if (value) *shared = std::make_shared<const KvValue>(std::move(*value));
  return true;
}

// An owner stands beside a value, and only there.
bool read_owned(Reader* reader, std::size_t* owner, SharedValue* shared) {
  *owner = reader->u8();
  if (!read_shared(reader, shared) || *owner > kNoOwner) return false;
  return (*owner == kNoOwner) == (*shared == nullptr);
}

bool read_change(Reader* reader, PlannedChange* change) {
  change->path = reader->text();
  if (!read_shared(reader, &change->value)) return false;
  const std::uint8_t tells = reader->u8();
  change->tells = tells == 1;
  if (tells == 0) return reader->ok();
  return tells == 1 && read_owned(reader, &change->owner_before, &change->before) &&
         read_owned(reader, &change->owner_after, &change->after) && reader->ok();
}

}  // namespace

void write_commit(const CommitPlan& plan, wire::Octets* octets) {
  Writer writer(octets);
  for (const PlannedChange& change : plan.changes) {
    writer.text(change.path);
    write_shared(&writer, change.value);
    writer.u8(change.tells ? 1 : 0);
    if (!change.tells) continue;
    writer.u8(static_cast<std::uint8_t>(change.owner_before));
    write_shared(&writer, change.before);
    writer.u8(static_cast<std::uint8_t>(change.owner_after));
    write_shared(&writer, change.after);
  }
}

bool read_commit(wire::OctetSpan octets, const std::function<void(PlannedChange)>& visit) {
  Reader reader(octets);
  while (reader.left() > 0) {
    PlannedChange change;
    if (!read_change(&reader, &change)) return false;
    visit(std::move(change));
  }
  return true;
}

}  // namespace kvtree
