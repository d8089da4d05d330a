// Where the configured items of a VRF come from, and the value of the one that no record has: the VNI.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <span>
#include <string>

#include "cli/session.h"
#include "platform/config/vrf_config.h"

namespace cli {

// Origins are the words of vrf_config::origin(); empty for an item that is not there.
class VrfOrigins {
 public:
  // `nodes`: the effective ones of this VRF.
  VrfOrigins(const std::string& vrf, std::span<const kvtree::Node> nodes);

  std::string of_description() const;
  // Of the RD that is shown, which the router file has where none is configured.
  std::string of_rd(const std::string& rd) const;
  std::string of_target(std::uint32_t afi, vrf_config::Direction direction, const std::string& target) const;
  std::string of_policy(std::uint32_t afi, vrf_config::Direction direction) const;
  std::string of_threshold(std::uint32_t afi) const;
  std::string of_vni() const;

  std::optional<std::int64_t> vni() const { return vni_; }
  bool has_evpn_targets() const { return has_evpn_targets_; }

 private:
  std::string of(const KvConfigNode& item) const;

  std::string vrf_;
  std::map<std::string, std::string> owners_;  // by path
  std::optional<std::int64_t> vni_{};
  bool has_evpn_targets_ = false;
};

// "VALUE (ORIGIN)", or the value alone without an origin.
std::string with_origin(const std::string& value, const std::string& origin);

}  // namespace cli
