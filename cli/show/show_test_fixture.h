// mplsvpn against a provider of this process that answers VRFs, route targets and routes as the daemon does:
// in its orders, with its lists that continue after a name, and with the results of its walk rules.
#pragma once

#include <compare>
#include <cstdint>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "cli/served_test_fixture.h"
#include "mpls/vpn/mib/src/records/layouts.h"

namespace cli {

struct FakeTable {
  std::uint32_t afi = 1;
  std::uint32_t safi = 1;
  std::vector<std::pair<std::uint32_t, std::string>> targets;  // type, value
  std::string import_policy;
  std::string export_policy;
};

struct FakeVrf {
  std::string description;
  std::string rd;
  std::uint32_t created = 0;
  std::uint32_t changed = 0;
  std::uint32_t active = 0;
  std::uint32_t routes = 0;
  std::uint32_t mid_threshold = 0;
  std::vector<std::string> interfaces;
  std::vector<FakeTable> tables;
  bool is_big = false;
};

struct FakeRouteTarget {
  std::int32_t type = 1;
  std::string value;
  std::string family;
};

struct FakeRoute {
  std::int32_t if_index = 0;
  std::int32_t type = 4;
  std::int32_t protocol = 14;
  std::uint32_t age = 0;
  std::int32_t metric = -1;
  std::vector<std::uint8_t> cross_connect = {0};
};

struct FakeInterface {
  std::string name;
  std::uint8_t protocol = 0;
};

struct FakeName : std::string {  // shorter first
  using std::string::string;
  FakeName(const std::string& text) : std::string(text) {}
  std::strong_ordering operator<=>(const FakeName& other) const {
    return size() != other.size() ? size() <=> other.size() : compare(other) <=> 0;
  }
};

// VRF, address type, destination (hexadecimal), length, next hop (hexadecimal; zeros for none).
struct FakeRouteKey {
  FakeName vrf;
  std::int32_t type = 1;
  std::string destination;
  std::uint32_t length = 0;
  std::string next_hop;
  bool operator<(const FakeRouteKey& other) const;
};

struct FakeDaemon {
  mpls_vpn_mib_scalars scalars{};
  std::map<FakeName, FakeVrf> vrfs;
  std::map<FakeName, std::vector<std::string>> invalid;
  std::map<std::pair<FakeName, std::uint32_t>, FakeRouteTarget> targets;  // by VRF and index
  std::map<std::pair<FakeName, std::uint32_t>, FakeInterface> interfaces;
  std::map<FakeRouteKey, FakeRoute> routes;

  Status failure = kStatusOk;             // of every get
  std::string hidden_row;                 // this VRF's MIB row is deleted
  unsigned gets_until_failure = 0;        // the last of them fails; 0: none
  bool repeats = false;                   // lists and rows repeat what they answered before
  bool answers_traps = false;             // instead of the scalars
  std::uint32_t most_items = UINT32_MAX;  // a longer datalist is too large a message
  // What was asked.
  unsigned requests = 0;
  unsigned datalists = 0;
  std::uint32_t largest_page = 0;
  std::uint32_t last_form = 0;
};
extern FakeDaemon fake;

class ShowCommand : public ServedCommandLine {
 protected:
  void SetUp() override;
  void TearDown() override;

  std::vector<std::string> NamesOf(const Json& list) const;
  void AddRoute(const std::string& vrf, const std::string& destination, std::uint32_t length,
                const std::string& next_hop, FakeRoute route = {});
};

}  // namespace cli
