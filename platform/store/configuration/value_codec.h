// Configuration values in octets: for the wire and for the history's records. Not for other folders.
//
// A value is a type u8, then nothing, a text, a number of 64 bits, or a count u16 and as many such numbers
// (protocol.h). Reading is for untrusted octets.
#pragma once

#include <optional>

#include "platform/core/wire/wire.h"
#include "platform/store/tree/kvtree.h"

namespace kvtree {

// False, with nothing written, for a value that no configuration has (a record, a tuple that is too long).
bool write_value(wire::Writer* writer, const KvValue& value);
// The same, with none as a value of its own.
bool write_optional_value(wire::Writer* writer, const std::optional<KvValue>& value);
// False for octets that are no value; what was read is then of no use.
bool read_value(wire::Reader* reader, KvValue* value);
bool read_optional_value(wire::Reader* reader, std::optional<KvValue>* value);

}  // namespace kvtree
