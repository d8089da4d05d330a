// What the row sets share for taking the daemon's records apart.
#pragma once

#include <cstdint>
#include <span>
#include <string_view>

#include "agent/rows/row_set.h"
#include "platform/core/parcel/parcel.h"

namespace tables {

// A record decoded with the daemon's own description, whose texts are released with it.
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
  const Record* operator->() const { return &record_; }

 private:
  const ParcelDescription* description_;
  bool good_ = false;
  Record record_{};
};

inline std::string_view text_or_empty(const char* text) {
  return text == nullptr ? std::string_view() : text;
}

// Integer32 values as their 32 bits.
inline void add_signed(Window* window, std::int32_t number) {
  window->add_number(static_cast<std::uint32_t>(number));
}

inline constexpr std::size_t kDescriptionMax = 255;    // SnmpAdminString (RFC 3411 section 5)
inline constexpr std::size_t kDistinguisherMax = 256;  // MplsL3VpnRouteDistinguisher (RFC 4382)

// A text that people read: on one line, because managers cut or refuse more (control characters become
// blanks), and of at most `most` octets, cut between characters of UTF-8. Absent is empty.
void add_text(Window* window, const char* text, std::size_t most);

}  // namespace tables
