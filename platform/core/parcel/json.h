// Printing of the fields of an encoded record by a schema text.
#pragma once

#include <string>
#include <string_view>

#include "platform/core/base/status.h"
#include "platform/core/parcel/cursor.h"

namespace parcel_detail {

// Prints the fields from the cursor, which is after the prefix, to the end. kStatusBadDescription for a text
// that is not a schema, kStatusBadEncoding, kStatusMessageTooLarge; *json is set only on success.
[[nodiscard]] Status print_record(std::string_view annotated_schema, Cursor in, std::string* json);

}  // namespace parcel_detail
