// Printing of the fields of an encoded record by a schema text.
#pragma once

#include <string>
#include <string_view>

#include "platform/core/base/status.h"
#include "platform/core/parcel/cursor.h"

namespace parcel_detail {

// The fields from where the cursor stands, behind the prefix, to the end. kStatusBadDescription for a text
// that is no schema, kStatusBadEncoding, kStatusMessageTooLarge; *json is set on success alone.
[[nodiscard]] Status print_record(std::string_view annotated_schema, Cursor in, std::string* json);

}  // namespace parcel_detail
