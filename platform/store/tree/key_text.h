// Paths and the key texts in them.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include "platform/core/base/status.h"

namespace kvtree {

// kStatusOk for a complete path that requests and nodes may have: it begins with '/', is within kKvMaxPath
// (kStatusMessageTooLarge) and has no NUL (kStatusBadKey).
Status check_path(std::string_view path);

// Decodes into out, which has room for encoded.size() octets; no NUL is added. kStatusBadKey for a malformed
// escape or a NUL (*length is then left as it was).
Status decode_text(std::string_view encoded, char* out, std::size_t* length);

// The text of a component of a path; empty for the absent key "-". kStatusBadKey as above.
Status decode_key(std::string_view key, std::string* text);

}  // namespace kvtree
