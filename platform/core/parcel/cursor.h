// Bounded reading of an encoded record, and the prefix with which every record begins.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace parcel_detail {

// Every read returns false if too few octets are left; a failed read does not move the cursor.
class Cursor {
 public:
  Cursor(const std::uint8_t* data, std::size_t length) : at_(data), left_(length) {}

  std::size_t left() const { return left_; }

  bool octet(std::uint8_t* value) {
    if (left_ == 0) return false;
    *value = *at_;
    advance(1);
    return true;
  }

  bool u32(std::uint32_t* value) {
    if (left_ < 4) return false;
    *value = std::uint32_t{at_[0]} | std::uint32_t{at_[1]} << 8 | std::uint32_t{at_[2]} << 16 |
             std::uint32_t{at_[3]} << 24;
    advance(4);
    return true;
  }

  // Points into the record.
  bool octets(std::size_t count, const std::uint8_t** octets) {
    if (left_ < count) return false;
    *octets = at_;
    advance(count);
    return true;
  }

  // A text as it is encoded: *present is false for null, and then *text is empty. A text contains no NUL.
  bool text(bool* present, std::string_view* text);

 private:
  void advance(std::size_t count) {
    at_ += count;
    left_ -= count;
  }

  const std::uint8_t* at_;
  std::size_t left_;
};

struct Prefix {
  std::string_view type_name;
  std::uint32_t version = 0;
  std::uint32_t reader_version = 0;
  std::uint32_t hash = 0;
};

// False when the octets do not begin as a record does.
bool read_prefix(Cursor* cursor, Prefix* prefix);

}  // namespace parcel_detail
