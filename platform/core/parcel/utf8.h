// Texts of any octets as JSON strings.
#pragma once

#include <string>
#include <string_view>

namespace parcel_detail {

// Appends the text in quotes. Quotes, backslashes and control characters are escaped; each octet that is not
// UTF-8 (RFC 3629) becomes U+FFFD, because JSON text is Unicode whatever a router was configured with.
void append_json_text(std::string_view text, std::string* out);

}  // namespace parcel_detail
