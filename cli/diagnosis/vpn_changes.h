// Changes of effective route distinguishers and route targets, as "watch" shows them.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <utility>

#include "cli/session.h"

namespace cli {

// Prints the changes of notifications one after the other, a line each.
class VpnChangePrinter {
 public:
  // Those of one VRF; of all if the name is empty.
  VpnChangePrinter(const Session& session, std::string vrf) : session_(session), vrf_(std::move(vrf)) {}
  // At most so many; how many it printed. Failure for a record of another kind.
  std::uint64_t print(const kvtree::NotificationResult& notification, std::uint64_t most);

 private:
  const Session& session_;
  const std::string vrf_;
  std::optional<std::uint32_t> next_;  // the number of the change that follows
};

}  // namespace cli
