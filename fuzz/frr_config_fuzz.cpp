// Texts into the reader of the routing suite's answers and the parser of its running configuration.
//
// The input is a configuration. Its items must become nodes that the tree accepts: below a scope, within the
// length of a path for words of ordinary length, of one program only, in order. The input within the output
// of the shell must be read as the same configuration or refused. As an answer to the commands that show what
// the suite derives, it must become such nodes as well or be refused.
#include <algorithm>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "fuzz/support.h"
#include "sources/frr/config_nodes.h"
#include "sources/frr/conversation.h"
#include "sources/frr/derived.h"

namespace {

using fuzz::require;

bool is_in_order(const frr::Nodes& nodes) {
  return std::adjacent_find(nodes.begin(), nodes.end(),
                            [](const KvConfigNode& left, const KvConfigNode& right) {
                              return left.path >= right.path;
                            }) == nodes.end();
}

const router::Router& sample_router() {
  static const router::Router* const sample = [] {
    auto* const made = new router::Router;
    router::Vrf vrf;
    vrf.name = "red";
    vrf.id = 10;
    require(made->create_vrf(vrf) == kStatusOk);
    router::Interface interface;
    interface.name = "red1";
    interface.vrf = "red";
    interface.index = 3;
    router::Address address;
    require(router::parse_address("10.0.0.1/24", &address));
    interface.addresses.push_back(address);
    require(made->add_interface(interface) == kStatusOk);
    return made;
  }();
  return *sample;
}

// The management program prints what others print in earlier versions.
bool may_share(const frr::Program& one, const frr::Program& other) {
  return one.name == frr::kManagementProgram || other.name == frr::kManagementProgram;
}

void check_nodes(std::string_view text) {
  const frr::RunningConfig config = frr::parse_running_config(text);
  for (const frr::LineError& error : config.errors) require(error.line > 0 && !error.what.empty());
  for (const frr::Program& program : frr::kPrograms) {
    const frr::Nodes nodes = program.nodes(config, sample_router());
    require(is_in_order(nodes));
    for (const KvConfigNode& node : nodes) {
      require(frr::owns(program, node.path));
      for (const frr::Program& other : frr::kPrograms) {
        if (frr::owns(other, node.path)) require(&other == &program || may_share(program, other));
      }
    }
  }
}

void check_derived(const std::string& text) {
  static const frr::RunningConfig config = frr::parse_running_config(
      "router bgp 1\n advertise-all-vni\n import vrf red\nrouter bgp 1 vrf red\n address-family ipv4 "
      "unicast\n"
      "  rd vpn export 1:1\n  rt vpn export 10.0.0.1:1\n");
  const std::vector<std::string> texts(frr::derived_commands(config, true).size(), text);
  const auto derived = frr::derive(config, true, texts, {});
  if (derived) require(is_in_order(derived->nodes));
}

void check_answer(const std::string& text) {
  (void)frr::read_shell_output(text, "bgpd");
  const std::string printed =
      "show running-config\nCurrent configuration:\n" + text + "\nend\nvm# show daemons\n bgpd\nvm# ";
  const frr::Answer answer = frr::read_shell_output(printed, "bgpd");
  require(answer.whole == answer.reason.empty());
  if (answer.whole &&
      printed.find("\nCurrent configuration:\n") == printed.rfind("\nCurrent configuration:\n")) {
    require((text + "\n").compare(0, answer.configuration.size(), answer.configuration) == 0);
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string text(reinterpret_cast<const char*>(data), size);
  check_nodes(text);
  check_derived(text);
  check_answer(text);
  return 0;
}
