// The configuration of VRFs, one VRF after the other.
//
// Nodes are read ahead, since a request for each VRF would take longer than all other requests for it. The
// configuration has an order of its own: the window grows while it contains the requested VRFs, and is small
// again when it does not. Memory is bounded by a window and the nodes of one VRF.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "cli/session.h"

namespace cli {

class VrfNodes {
 public:
  // Both must outlive it.
  VrfNodes(const Session& session, kvtree::Client& client) : session_(session), client_(client) {}

  // The effective nodes of this VRF, in the order of their paths; valid until the next call. Throws Failure.
  std::span<const kvtree::Node> of(const std::string& vrf);

 private:
  void move_to(const std::string& first);
  void read_more();

  const Session& session_;
  kvtree::Client& client_;
  std::vector<kvtree::Node> window_;  // every node after from_ up to until_
  std::string from_;
  std::string until_;
  bool is_end_ = false;     // no node follows until_
  std::uint32_t page_ = 0;  // nodes that the next read asks for
  std::uint32_t hits_ = 0;  // VRFs found in this window
};

}  // namespace cli
