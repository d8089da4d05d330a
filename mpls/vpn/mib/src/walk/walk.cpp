// Walk rules: from the row just read to the path of the following read.
//
// Most "next" paths answer the first row whose key is not smaller than the path's, so the following read must
// ask for the smallest key greater than the row's. For interfaces that is the index plus one, or, past the
// greatest index that an interface can have (2147483647, RFC 2863), the next name in the databases' order
// with index 0; for VRFs it is the next name. Route targets and routes have files of their own.
//
// No state; the row is the data store's. Main thread.
#include "mpls/vpn/mib/src/walk/walk.h"

#include <algorithm>
#include <cstdlib>
#include <iterator>
#include <optional>

#include "mpls/vpn/mib/src/walk/internal.h"
#include "platform/core/text/numbers.h"
#include "platform/router/vtab/vtab.h"

const KvWalkRule mpls_vpn_mib_walk_rules[] = {
    {"interface-next", interface_following_path},
    {"vrf-next", vrf_following_path},
    {"rt-next", rt_following_path, rt_redirect},
    {"route-next", route_following_path, route_redirect},
};
const std::size_t mpls_vpn_mib_walk_rule_count = std::size(mpls_vpn_mib_walk_rules);

namespace {

constexpr std::uint32_t kLastIfIndex = 0x7fffffff;
constexpr std::size_t kLongestVrfName = kVtabNameSize - 1;
constexpr std::uint32_t kRowsPerClock = 16;  // between two looks at the clock
constexpr char kFirstOctet = '\x01';
constexpr char kLastOctet = '\xff';

std::string interface_next_path(const std::string& vrf_name, std::uint32_t if_index) {
  return "interface-next/" + kvtree_encode_text(vrf_name) + "/" + std::to_string(if_index);
}

}  // namespace

bool split_path(std::string_view path, std::string_view* components, std::size_t count) {
  if (static_cast<std::size_t>(std::count(path.begin(), path.end(), '/')) + 1 != count) return false;
  for (std::size_t i = 0; i < count; ++i) {
    const std::size_t length = std::min(path.find('/'), path.size());
    components[i] = path.substr(0, length);
    path.remove_prefix(std::min(length + 1, path.size()));
  }
  return true;
}

bool is_step_over(const KvColumnBatch& batch) {
  return batch.steps != nullptr && batch.rows % kRowsPerClock == 0 && batch.steps->is_over();
}

bool decode_number(std::string_view component, std::uint32_t* number) {
  const std::optional<std::uint32_t> parsed = text::parse_number(component);
  *number = parsed.value_or(0);
  return parsed.has_value();
}

bool decode_vrf_name(std::string_view component, std::string* name) {
  char* decoded = nullptr;
  const Status rc = kvtree_string_decode(std::string(component).c_str(), &decoded);
  if (rc == kStatusOk) *name = decoded;
  std::free(decoded);
  return rc == kStatusOk;
}

std::string following_vrf_name(std::string name) {
  for (std::size_t i = name.size(); i-- > 0;) {
    if (name[i] != kLastOctet) {
      name[i] = static_cast<char>(static_cast<unsigned char>(name[i]) + 1);
      return name;
    }
    name[i] = kFirstOctet;
  }
  return name.size() < kLongestVrfName ? std::string(name.size() + 1, kFirstOctet) : std::string();
}

Status interface_following_path(const KvReply* row, std::string* path) {
  DecodedRow<mpls_vpn_mib_interface> decoded(&kMibInterfaceParcel);
  if (const Status rc = decoded.decode(row, &mpls_vpn_mib_interface::vrfName)) return rc;
  const std::string vrf_name = decoded.row.vrfName;
  const auto if_index = static_cast<std::uint32_t>(decoded.row.ifConfIndex);
  if (if_index < kLastIfIndex) {
    *path = interface_next_path(vrf_name, if_index + 1);
    return kStatusOk;
  }
  const std::string following = following_vrf_name(vrf_name);
  if (following.empty()) return kStatusEndOfList;
  *path = interface_next_path(following, 0);
  return kStatusOk;
}

Status vrf_following_path(const KvReply* row, std::string* path) {
  DecodedRow<mpls_vpn_mib_vrf> decoded(&kMibVrfParcel);
  if (const Status rc = decoded.decode(row, &mpls_vpn_mib_vrf::name)) return rc;
  const std::string following = following_vrf_name(decoded.row.name);
  if (following.empty()) return kStatusEndOfList;
  *path = "vrf-next/" + kvtree_encode_text(following);
  return kStatusOk;
}
