#include "platform/router/bgp_vpn/asn_format.h"
#include "platform/router/bgp_vpn/bgp_vpn.h"

namespace bgp_vpn {

std::string format_target(const vrf_config::Target& target, BgpAsnFormat format) {
  const bool has_two_forms =
      target.type == vrf_config::Target::Type::kFourOctetAs && target.administrator > UINT16_MAX;
  if (!has_two_forms || format == BgpAsnFormat::kAsplain) return vrf_config::target_text(target);
  return std::to_string(target.administrator >> 16) + '.' +
         std::to_string(target.administrator & UINT16_MAX) + ':' + std::to_string(target.assigned);
}

}  // namespace bgp_vpn

std::string bgp_util_format_rd(std::string_view rd, BgpAsnFormat format) {
  const std::optional<vrf_config::Target> target = vrf_config::parse_target(rd);
  return target ? bgp_vpn::format_target(*target, format) : std::string(rd);
}
