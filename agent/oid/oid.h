// Object identifiers as the sub-agent handles them: a bounded array of sub-identifiers and views into such
// arrays.
//
// An Oid is 516 octets on the stack and never allocates; a View does not own its numbers. RFC 2578 section
// 3.5: at most 128 sub-identifiers, each an unsigned 32-bit number.
#pragma once

#include <array>
#include <compare>
#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <span>
#include <string>

namespace oid {

inline constexpr std::size_t kMaxSubIdentifiers = 128;

using View = std::span<const std::uint32_t>;

inline constexpr std::array<std::uint32_t, 4> kInternet = {1, 3, 6, 1};

class Oid {
 public:
  Oid() {}  // leaves the unused sub-identifiers unset: Oids are made for every variable of every request
  // REQUIRES: at most kMaxSubIdentifiers.
  Oid(std::initializer_list<std::uint32_t> values);
  explicit Oid(View values);

  View view() const { return {values_.data(), count_}; }
  std::size_t size() const { return count_; }
  bool empty() const { return count_ == 0; }
  std::uint32_t operator[](std::size_t position) const { return values_[position]; }
  std::uint32_t& operator[](std::size_t position) { return values_[position]; }

  void clear() { count_ = 0; }
  // REQUIRES: length <= size().
  void truncate(std::size_t length) { count_ = length; }
  // False, and nothing appended, when it would exceed kMaxSubIdentifiers.
  bool append(std::uint32_t value) {
    if (count_ == kMaxSubIdentifiers) return false;
    values_[count_++] = value;
    return true;
  }
  bool append(View values);
  // Appends so many unset ones. REQUIRES: at most kMaxSubIdentifiers - size().
  std::span<std::uint32_t> grow(std::size_t count) {
    count_ += count;
    return std::span(values_).subspan(count_ - count, count);
  }

 private:
  std::size_t count_ = 0;
  std::array<std::uint32_t, kMaxSubIdentifiers> values_;
};

// Lexicographic order of whole identifiers (RFC 3416 section 4.2.2).
std::strong_ordering compare(View left, View right);
// The same for the concatenation of head and tail, without building it.
std::strong_ordering compare(View head, View tail, View right);
bool equal(View left, View right);
bool starts_with(View whole, View prefix);
// "1.3.6.1"; "" for none.
std::string to_text(View value);

}  // namespace oid
