// The device precedes the VRF: a daemon that reads the kernel has the VRFs of its devices. The next hop
// precedes the best path: BGP selects no path whose next hop the core does not reach.
#include "cli/explain/address_link.h"
#include "cli/explain/chain.h"
#include "cli/explain/route_links.h"
#include "cli/explain/vrf_links.h"

namespace cli::explain {

namespace {

constexpr Link kLinks[] = {
    {"device", Subject::kBoth, false, judge_device},
    {"vrf", Subject::kBoth, false, judge_vrf},
    {"address", Subject::kAddress, false, judge_address},
    {"rd", Subject::kVrf, false, judge_rd},
    {"sessions", Subject::kVrf, false, judge_sessions},
    {"imports", Subject::kVrf, false, judge_imports},
    {"exports", Subject::kVrf, false, judge_exports},
    {"vpn-label", Subject::kVrf, true, judge_vpn_label},
    {"source", Subject::kPrefix, false, judge_source},
    {"targets", Subject::kPrefix, false, judge_targets},
    {"next-hop", Subject::kPrefix, false, judge_next_hop},
    {"best-path", Subject::kPrefix, true, judge_best_path},
    {"label", Subject::kPrefix, false, judge_label},
    {"kernel", Subject::kPrefix, true, judge_kernel},
    {"row", Subject::kPrefix, true, judge_row},
};

}  // namespace

std::span<const Link> links() {
  return kLinks;
}

}  // namespace cli::explain
