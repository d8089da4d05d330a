#include "platform/store/codec/value_codec.h"

#include "platform/store/configuration/configuration.h"
#include "platform/store/server/protocol.h"

namespace kvtree {

namespace {

using wire::Reader;
using wire::Writer;

bool read_tuple(Reader* reader, KvValue* value) {
  const std::size_t count = reader->u16();
  if (count > kMaxConfigTuple) return false;
  for (std::size_t i = 0; i < count && reader->ok(); ++i)
    value->tuple.push_back(static_cast<std::int64_t>(reader->u64()));
  return reader->ok();
}

bool read_typed(Reader* reader, std::uint8_t type, KvValue* value) {
  *value = {};
  value->is_suppressed = (type & kSuppressedFlag) != 0;
  switch (type & ~kSuppressedFlag) {
    case kNothingValue:
      return reader->ok();
    case kTextValue:
      value->type = KvValueType::kText;
      value->text = reader->text();
      return reader->ok();
    case kNumberValue:
      value->type = KvValueType::kNumber;
      value->number = static_cast<std::int64_t>(reader->u64());
      return reader->ok();
    case kTupleValue:
      value->type = KvValueType::kTuple;
      return read_tuple(reader, value);
    default:
      return false;
  }
}

}  // namespace

bool write_value(Writer* writer, const KvValue& value) {
  const std::uint8_t flag = value.is_suppressed ? kSuppressedFlag : std::uint8_t{0};
  switch (value.type) {
    case KvValueType::kNone:
      writer->u8(kNothingValue | flag);
      return true;
    case KvValueType::kText:
      writer->u8(kTextValue | flag);
      writer->text(value.text);
      return true;
    case KvValueType::kNumber:
      writer->u8(kNumberValue | flag);
      writer->u64(static_cast<std::uint64_t>(value.number));
      return true;
    case KvValueType::kTuple:
      if (value.tuple.size() > kMaxConfigTuple) return false;
      writer->u8(kTupleValue | flag);
      writer->u16(static_cast<std::uint16_t>(value.tuple.size()));
      for (const std::int64_t number : value.tuple) writer->u64(static_cast<std::uint64_t>(number));
      return true;
    case KvValueType::kRecord:
      break;
  }
  return false;
}

bool write_optional_value(Writer* writer, const std::optional<KvValue>& value) {
  if (value) return write_value(writer, *value);
  writer->u8(kNoValue);
  return true;
}

bool read_value(Reader* reader, KvValue* value) {
  return read_typed(reader, reader->u8(), value);
}

bool read_optional_value(Reader* reader, std::optional<KvValue>* value) {
  const std::uint8_t type = reader->u8();
  if (type == kNoValue) {
    value->reset();
    return reader->ok();
  }
  return read_typed(reader, type, &value->emplace());
}

bool skip_optional_value(Reader* reader, SkippedValue* skipped) {
  const std::uint8_t type = reader->u8();
  *skipped = SkippedValue::kSeen;
  if ((type & kSuppressedFlag) != 0) *skipped = SkippedValue::kSuppressed;
  if (type == kNoValue) *skipped = SkippedValue::kNone;
  if (type != kNoValue && (type & ~kSuppressedFlag) == kTextValue) {
    static_cast<void>(reader->text());
    return reader->ok();
  }
  if (type == kNoValue) return reader->ok();
  KvValue value;  // without a text, nothing is allocated except for a tuple
  return read_typed(reader, type, &value);
}

}  // namespace kvtree
