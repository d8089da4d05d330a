// A text that its copies share, in the size of a pointer: for the names that many records have, and for texts
// that are mostly empty. The copies may be in several threads.
#pragma once

#include <compare>
#include <concepts>
#include <ostream>
#include <string>
#include <string_view>

#include "platform/core/compact/shared_block.h"

class SharedText {
 public:
  SharedText() = default;
  template <std::convertible_to<std::string_view> Text>
  requires(!std::same_as<Text, SharedText>)
      SharedText(const Text& text) {  // NOLINT: converts as std::string does
    const std::string_view octets = text;
    if (!octets.empty()) octets_ = SharedBlock<char>::closed_by(octets, '\0');
  }

  const char* c_str() const { return empty() ? "" : octets_.data(); }
  std::size_t size() const { return empty() ? 0 : octets_.size() - 1; }
  bool empty() const { return octets_.empty(); }
  std::string_view view() const { return {c_str(), size()}; }
  bool is_same(const SharedText& other) const { return octets_.is_same(other.octets_); }  // not only equal

  operator std::string_view() const { return view(); }          // NOLINT
  operator std::string() const { return std::string(view()); }  // NOLINT

  // With any text, also another one of this type.
  template <std::convertible_to<std::string_view> Text>
  friend bool operator==(const SharedText& left, const Text& right) {
    return left.view() == std::string_view(right);
  }
  template <std::convertible_to<std::string_view> Text>
  friend auto operator<=>(const SharedText& left, const Text& right) {
    return left.view() <=> std::string_view(right);
  }
  template <std::convertible_to<std::string_view> Text>
  friend std::string operator+(const SharedText& left, const Text& right) {
    return std::string(left.view()).append(std::string_view(right));
  }
  template <std::convertible_to<std::string_view> Text>
  requires(!std::same_as<Text, SharedText>) friend std::string operator+(const Text& left,
                                                                         const SharedText& right) {
    return std::string(std::string_view(left)).append(right.view());
  }
  friend std::ostream& operator<<(std::ostream& out, const SharedText& text) { return out << text.view(); }

 private:
  SharedBlock<char> octets_;  // and a NUL
};
