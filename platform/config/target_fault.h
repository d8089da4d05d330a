// What is wrong with a word that is to be a route target or a route distinguisher.
#pragma once

#include <string>
#include <string_view>

namespace vrf_config {

// `what` it is to be, such as "a route target". REQUIRES: parse_target(word) is null.
std::string target_fault(const std::string& word, std::string_view what);

}  // namespace vrf_config
