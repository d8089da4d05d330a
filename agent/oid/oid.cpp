// Each function runs at least once per variable of a request: plain loops over contiguous numbers, no
// allocation except in to_text(), which is for messages.
#include "agent/oid/oid.h"

#include <algorithm>
#include <cstring>

namespace oid {

Oid::Oid(std::initializer_list<std::uint32_t> values) : Oid(View(values.begin(), values.size())) {}

Oid::Oid(View values) {
  if (values.size() > kMaxSubIdentifiers) values = values.first(kMaxSubIdentifiers);
  append(values);
}

bool Oid::append(View values) {
  if (values.size() > kMaxSubIdentifiers - count_) return false;
  std::copy(values.begin(), values.end(), values_.begin() + static_cast<std::ptrdiff_t>(count_));
  count_ += values.size();
  return true;
}

std::strong_ordering compare(View left, View right) {
  const std::size_t common = std::min(left.size(), right.size());
  for (std::size_t i = 0; i < common; ++i) {
    if (left[i] != right[i]) return left[i] <=> right[i];
  }
  return left.size() <=> right.size();
}

std::strong_ordering compare(View head, View tail, View right) {
  if (right.size() <= head.size()) {
    const std::strong_ordering order = compare(head, right);
    return order == std::strong_ordering::equal && !tail.empty() ? std::strong_ordering::greater : order;
  }
  const std::strong_ordering order = compare(head, right.first(head.size()));
  return order == std::strong_ordering::equal ? compare(tail, right.subspan(head.size())) : order;
}

bool equal(View left, View right) {
  return left.size() == right.size() && std::memcmp(left.data(), right.data(), left.size_bytes()) == 0;
}

bool starts_with(View whole, View prefix) {
  return whole.size() >= prefix.size() && equal(whole.first(prefix.size()), prefix);
}

std::string to_text(View value) {
  std::string text;
  for (const std::uint32_t number : value) {
    if (!text.empty()) text += '.';
    text += std::to_string(number);
  }
  return text;
}

}  // namespace oid
