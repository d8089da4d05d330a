// Operational output of the routing suite, in JSON, through the reader of what the suite derives.
//
// The input is the output of one command after the other, each but the last ended by a zero octet. What is
// derived must be nodes of the suite in order, each path once, and what is left out must have a reason.
#include <algorithm>

#include "fuzz/support.h"
#include "sources/frr/config_nodes.h"
#include "sources/frr/derived.h"

namespace {

using fuzz::require;

constexpr std::string_view kConfiguration =
    "router bgp 1\n advertise-all-vni\nrouter bgp 1 vrf red\n bgp router-id 10.0.0.1\n"
    " address-family ipv4 unicast\n  import vrf blue\n  rd vpn export 1:1\n  rt vpn export 10.0.0.1:2\n";

std::vector<std::string> outputs_of(const std::string& input, std::size_t count) {
  std::vector<std::string> texts(count);
  std::size_t start = 0;
  for (std::string& text : texts) {
    const std::size_t end = std::min(input.find('\0', start), input.size());
    text = input.substr(start, end - start);
    start = std::min(end + 1, input.size());
  }
  return texts;
}

bool is_of_the_suite(const KvConfigNode& node) {
  return std::ranges::any_of(frr::kPrograms,
                             [&](const frr::Program& program) { return frr::owns(program, node.path); });
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const frr::RunningConfig config = frr::parse_running_config(kConfiguration);
  static const std::size_t commands = frr::derived_commands(config, true).size();
  const std::string input = fuzz::text_of({data, size});
  const auto derived = frr::derive(config, true, outputs_of(input, commands), {});
  if (!derived) return 0;
  require(std::ranges::adjacent_find(derived->nodes, std::greater_equal<>{}, &KvConfigNode::path) ==
          derived->nodes.end());
  require(std::ranges::all_of(derived->nodes, is_of_the_suite));
  require(std::ranges::none_of(derived->errors, &std::string::empty));
  return 0;
}
