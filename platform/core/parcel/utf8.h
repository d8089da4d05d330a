// Texts of any octets as JSON strings.
#pragma once

#include <string>
#include <string_view>

namespace parcel_detail {

// Appends the text in quotes. Quotes, backslashes and control characters are escaped; octets that are no
// UTF-8 (RFC 3629) appear as U+FFFD, one for each, because JSON text is Unicode whatever a router was told.
void append_json_text(std::string_view text, std::string* out);

}  // namespace parcel_detail
