#include "cli/doctor/snmp/oid.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <charconv>

#include "platform/core/text/words.h"

namespace cli::doctor {

Oid parse_oid(const std::string& text) {
  Oid oid;
  std::string_view rest = text;
  if (rest.starts_with('.')) rest.remove_prefix(1);
  for (const std::string_view part : text::split(rest, '.')) {
    std::uint32_t number = 0;
    const auto [end, error] = std::from_chars(part.data(), part.data() + part.size(), number);
    if (error != std::errc() || end != part.data() + part.size()) return {};
    oid.push_back(number);
  }
  return oid;
}

std::string oid_text(const Oid& oid) {
  return fmt::format(".{}", fmt::join(oid, "."));
}

bool is_below(const Oid& oid, const Oid& subtree) {
  return oid.size() >= subtree.size() && std::equal(subtree.begin(), subtree.end(), oid.begin());
}

}  // namespace cli::doctor
