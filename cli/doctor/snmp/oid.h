#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace cli::doctor {

using Oid = std::vector<std::uint32_t>;

// "1.3.6.1" with or without a leading dot; empty if the text has anything but numbers.
Oid parse_oid(const std::string& text);
std::string oid_text(const Oid& oid);  // ".1.3.6.1"

bool is_below(const Oid& oid, const Oid& subtree);

}  // namespace cli::doctor
