#include "cli/vrf/vrf_nodes.h"

#include <algorithm>
#include <iterator>

#include "platform/config/vrf_config.h"
#include "platform/store/tree/kvtree.h"

namespace cli {

namespace {

constexpr std::uint32_t kFirstNodes = 64;

std::string nodes_of_vrfs() {
  return std::string(vrf_config::kVrfScope) + "vrf/";
}

bool is_before(const kvtree::Node& node, const std::string& path) {
  return node.path < path;
}

}  // namespace

std::span<const kvtree::Node> VrfNodes::of(const std::string& vrf) {
  const std::string first = nodes_of_vrfs() + kvtree_encode_text(vrf) + "/";
  std::string end = first;
  ++end.back();
  if (page_ == 0 || first < from_ || (first > until_ && !is_end_)) move_to(first);
  if (!is_end_ && until_ < end) {
    window_.erase(window_.begin(), std::lower_bound(window_.begin(), window_.end(), first, is_before));
    from_ = first;
    if (hits_ == 0) page_ = kFirstNodes;
    hits_ = 0;
    while (!is_end_ && until_ < end) read_more();
  } else {
    ++hits_;
  }
  const auto begin = std::lower_bound(window_.begin(), window_.end(), first, is_before);
  return {begin, std::lower_bound(begin, window_.end(), end, is_before)};
}

void VrfNodes::move_to(const std::string& first) {
  window_.clear();
  from_ = until_ = first;
  is_end_ = false;
}

void VrfNodes::read_more() {
  kvtree::NodesResult page = client_.nodes(nodes_of_vrfs(), page_, until_);
  if (page.status) throw request_failure(session_, page.status);
  is_end_ = page.nodes.empty();
  if (!is_end_) until_ = page.nodes.back().path;
  std::move(page.nodes.begin(), page.nodes.end(), std::back_inserter(window_));
  page_ = std::min(2 * page_, kKvMaxListItems);
}

}  // namespace cli
