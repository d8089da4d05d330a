// Changes of effective route distinguishers and route targets, as "watch" shows them.
#pragma once

#include <cstdint>
#include <optional>

#include "cli/session.h"

namespace cli {

// Prints the changes of notifications one after the other, a line each.
class VpnChangePrinter {
 public:
  explicit VpnChangePrinter(const Session& session) : session_(session) {}
  // At most so many; how many there were. Failure for a record of another kind.
  std::uint64_t print(const kvtree::NotificationResult& notification, std::uint64_t most);

 private:
  const Session& session_;
  std::optional<std::uint32_t> next_;  // the number of the change that follows
};

}  // namespace cli
