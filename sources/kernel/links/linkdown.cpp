#include "sources/kernel/links/linkdown.h"

#include <net/if.h>

#include <algorithm>
#include <array>
#include <fstream>
#include <string>

namespace kernel {
namespace {

constexpr std::array kFamilies{"ipv4", "ipv6"};

bool is_set_for(const std::string& device) {
  return std::any_of(kFamilies.begin(), kFamilies.end(), [&device](const char* family) {
    std::ifstream file(std::string("/proc/sys/net/") + family + "/conf/" + device +
                       "/ignore_routes_with_linkdown");
    int value = 0;
    return file >> value && value != 0;
  });
}

}  // namespace

bool all_links_ignore_linkdown() {
  return is_set_for("all");
}

bool ignores_linkdown(std::uint32_t link) {
  std::array<char, IF_NAMESIZE> name{};
  return if_indextoname(link, name.data()) != nullptr && is_set_for(name.data());
}

}  // namespace kernel
