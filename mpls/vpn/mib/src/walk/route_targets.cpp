// The walk rule of route targets.
//
// A row's key is (VRF, number, type), and a "next" read answers the first entry whose number and type are not
// smaller. No entry has type 3, so (VRF, number, 3) is the key between a row and the one that follows it,
// which may be the first of another VRF.
//
// Numbers continue past a VRF's last entry. A read of a number that the VRF does not have (any more)
// therefore answers an entry somewhere in the following VRFs, under a number that is not its own, or none: it
// is redirected to the start of the VRFs that follow the one it named.
#include "mpls/vpn/mib/src/walk/internal.h"
#include "mpls/vpn/mib/src/walk/walk.h"

namespace {

constexpr std::size_t kRtComponents = 4;  // rt-next, VRF, number, type
constexpr char kStart[] = "0";            // the number of a read of the VRF's first entry
constexpr char kAfterEveryType[] = "3";

std::string rt_next_path(const std::string& vrf_name, const std::string& number, const char* type) {
  return "rt-next/" + kvtree_encode_text(vrf_name) + "/" + number + "/" + type;
}

// False for a row that cannot be decoded: the answer is accepted, and the walk fails with it instead of
// skipping the rest of the VRF.
bool is_of_another_vrf(const KvReply* row, const std::string& vrf_name) {
  DecodedRow<mpls_vpn_mib_rt> decoded(&kMibRtParcel);
  return decoded.decode(row, &mpls_vpn_mib_rt::vrfName) == kStatusOk && vrf_name != decoded.row.vrfName;
}

}  // namespace

Status rt_following_path(const KvReply* row, std::string* path) {
  DecodedRow<mpls_vpn_mib_rt> decoded(&kMibRtParcel);
  if (const Status rc = decoded.decode(row, &mpls_vpn_mib_rt::vrfName)) return rc;
  *path = rt_next_path(decoded.row.vrfName, std::to_string(decoded.row.index), kAfterEveryType);
  return kStatusOk;
}

bool rt_redirect(std::string_view asked, const KvReply* row, std::string* path) {
  std::string_view components[kRtComponents];
  std::string vrf_name;
  if (!split_path(asked, components, kRtComponents) || !decode_vrf_name(components[1], &vrf_name))
    return false;
  if (components[2] == kStart) return false;  // a start is counted in the VRF where it is found
  if (row != nullptr && !is_of_another_vrf(row, vrf_name)) return false;
  const std::string following = following_vrf_name(vrf_name);
  if (following.empty()) return false;
  *path = rt_next_path(following, kStart, kStart);
  return true;
}
