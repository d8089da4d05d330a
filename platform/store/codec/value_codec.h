// Configuration values in octets: for the wire and for the history's records. Only for the data store.
//
// A value is a type u8, with a flag if it is suppressed, then nothing, a text, a number of 64 bits, or a
// count u16 and as many such numbers (protocol.h). Reading is for untrusted octets.
#pragma once

#include <optional>

#include "platform/core/wire/wire.h"
#include "platform/store/tree/kvtree.h"

namespace kvtree {

// Returns false and writes nothing for a value that the configuration cannot have (a record, an overlong
// tuple).
bool write_value(wire::Writer* writer, const KvValue& value);
// The same, with an encoding for no value.
bool write_optional_value(wire::Writer* writer, const std::optional<KvValue>& value);
// Returns false for octets that are not a value; *value is then unspecified.
bool read_value(wire::Reader* reader, KvValue* value);
bool read_optional_value(wire::Reader* reader, std::optional<KvValue>* value);
// Reads past a value or none.
enum class SkippedValue : std::uint8_t { kNone, kSuppressed, kSeen };
bool skip_optional_value(wire::Reader* reader, SkippedValue* skipped);

}  // namespace kvtree
