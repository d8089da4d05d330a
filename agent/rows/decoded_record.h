// Decoding of the daemon's records, shared by the row sets.
#pragma once

#include <cstdint>
#include <span>
#include <string_view>

#include "agent/rows/row_set.h"
#include "platform/core/parcel/parcel.h"

namespace tables {

// A record decoded with the daemon's own description; the destructor releases its texts.
template <typename Record>
class Decoded {
 public:
  Decoded(const ParcelDescription& description, const kvtree::Octets& octets) : description_(&description) {
    good_ = parcel_decode(description_, octets.data(), octets.size(), &record_) == kStatusOk;
  }
  ~Decoded() {
    if (!good_) return;
    [[maybe_unused]] const Status released = parcel_free_indirections(description_, &record_);
  }
  Decoded(const Decoded&) = delete;
  Decoded& operator=(const Decoded&) = delete;

  bool good() const { return good_; }
  const Record& operator*() const { return record_; }
  const Record* operator->() const { return &record_; }

 private:
  const ParcelDescription* description_;
  bool good_ = false;
  Record record_{};
};

inline std::string_view text_or_empty(const char* text) {
  return text == nullptr ? std::string_view() : text;
}

inline constexpr std::size_t kDescriptionMax = 255;    // SnmpAdminString (RFC 3411 section 5)
inline constexpr std::size_t kDistinguisherMax = 256;  // MplsL3VpnRouteDistinguisher (RFC 4382)

// A text for people: on one line, because managers truncate or refuse more (control characters become
// blanks), and of at most `most` octets, truncated between characters of UTF-8. Null becomes the empty text.
void add_text(Window* window, const char* text, std::size_t most);

}  // namespace tables
