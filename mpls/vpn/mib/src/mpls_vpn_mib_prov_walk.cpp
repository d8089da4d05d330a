// Walk rules: from the row just read to the path of the following read.
//
// The "next" paths answer the first row whose key is not smaller than the path's, so the following read must
// ask for the smallest key greater than the row's: the index plus one, or, past the greatest index that an
// interface can have (2147483647, RFC 2863), the next name in the databases' order with index 0.
//
// No state; the row is the data store's. Main thread.
#include "mpls/vpn/mib/src/mpls_vpn_mib_prov_walk.h"

#include <memory>

#include "mpls/vpn/mib/src/mpls_vpn_parcel.h"
#include "mpls/vpn/mib/src/mpls_vpn_trace.h"
#include "platform/vtab/vtab.h"

const KvWalkRule mpls_vpn_mib_walk_rules[] = {
    {"interface-next", interface_following_path},
};
const std::size_t mpls_vpn_mib_walk_rule_count = std::size(mpls_vpn_mib_walk_rules);

namespace {

constexpr std::uint32_t kLastIfIndex = 0x7fffffff;
constexpr std::size_t kLongestVrfName = kVtabNameSize - 1;
constexpr char kFirstOctet = '\x01';
constexpr char kLastOctet = '\xff';

struct DecodedInterface {
  mpls_vpn_mib_interface row{};
  ~DecodedInterface() {
    const Status rc = parcel_free_indirections(&kMibInterfaceParcel, &row);
    if (rc != kStatusOk) mpls_vpn_error("interface_following_path", "parcel_free_indirections", rc);
  }
};

std::string interface_next_path(const std::string& vrf_name, std::uint32_t if_index) {
  return "interface-next/" + kvtree_encode_text(vrf_name) + "/" + std::to_string(if_index);
}

}  // namespace

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
  DecodedInterface decoded;
  const Status rc = parcel_decode(&kMibInterfaceParcel, row->data, row->length, &decoded.row);
  if (rc != kStatusOk) return rc;
  if (decoded.row.vrfName == nullptr) return kStatusBadEncoding;  // nothing to go on from
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
