// The origins of a VRF's configured items, and the VNI, which no record has.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <span>
#include <string>

#include "cli/session.h"
#include "platform/config/vrf_config.h"

namespace cli {

// The owner of the RDs in the router model; empty if its source sets none. Throws Failure.
std::string model_rd_owner(const Session& session, kvtree::Client& client);

// The same if this VRF has such an RD, with this value unless it is empty; empty also if that cannot be read.
std::string owner_of_model_rd(const Session& session, kvtree::Client& client, const std::string& vrf,
                              const std::string& rd);

// Origins as vrf_config::origin() names them; empty for an item that is not configured.
class VrfOrigins {
 public:
  // `nodes`: the effective ones of this VRF. `model_rd_owner`: of an RD that is not configured.
  VrfOrigins(const std::string& vrf, std::span<const kvtree::Node> nodes, const std::string& model_rd_owner);

  std::string of_description() const;
  std::string of_rd(const std::string& rd) const;
  std::string of_target(std::uint32_t afi, vrf_config::Direction direction, const std::string& target) const;
  std::string of_policy(std::uint32_t afi, vrf_config::Direction direction) const;
  std::string of_threshold(std::uint32_t afi) const;
  std::string of_vni() const;

  std::optional<std::int64_t> vni() const { return vni_; }
  bool has_evpn_targets() const { return has_evpn_targets_; }

 private:
  std::string of(const std::string& path) const;

  std::string vrf_;
  std::string model_rd_owner_;
  std::map<std::string, std::string> owners_;  // by path
  std::optional<std::int64_t> vni_{};
  bool has_evpn_targets_ = false;
};

// "VALUE (ORIGIN)", or the value alone without an origin.
std::string with_origin(const std::string& value, const std::string& origin);

}  // namespace cli
