// See session.h.
#include "cli/session.h"

#include <fmt/format.h>

namespace cli {

std::unique_ptr<kvtree::Client> connect_to_daemon(const Session& session) {
  auto client = std::make_unique<kvtree::Client>(session.socket, session.timeout);
  if (const Status status = client->connect()) throw no_daemon(session.socket, status);
  return client;
}

Failure no_daemon(const std::string& socket, Status status) {
  if (status == kStatusAccess) {
    return {kExitNoDaemon, socket + " is closed to you: it is for root and the daemon's group"};
  }
  return {kExitNoDaemon,
          fmt::format("the daemon is not there: nobody answers on {} ({}). Is mpls_vpn_mib running? "
                      "--run-dir or MPLS_VPN_MIB_RUN_DIR says where to look.",
                      socket, err_text(status))};
}

Failure request_failure(const Session& session, const std::string& what, Status status,
                        const std::string& reason) {
  if (status == kStatusNotConnected) return {kExitNoDaemon, what + ": the daemon went away"};
  if (status == kStatusTimedOut) {
    return {kExitFailed, fmt::format("{}: no answer within {} ms", what, session.timeout.count())};
  }
  if (!reason.empty()) return {kExitFailed, reason};
  if (status == kStatusNoSuchRow) return {kExitFailed, what + ": no such row"};
  return {kExitFailed, fmt::format("{}: {} ({:#x})", what, err_text(status), status)};
}

}  // namespace cli
