// Decoding of key texts into a caller's buffer; for the path matcher.
#pragma once

#include <cstddef>
#include <string_view>

#include "platform/base/status.h"

namespace kvtree {

// Decodes into out, which has room for encoded.size() octets; no NUL is added. kStatusBadKey for a malformed
// escape or a NUL (*length is then left as it was).
Status decode_text(std::string_view encoded, char* out, std::size_t* length);

}  // namespace kvtree
