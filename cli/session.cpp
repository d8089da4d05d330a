#include "cli/session.h"

#include <fmt/format.h>
#include <grp.h>
#include <sys/stat.h>

#include <array>
#include <filesystem>

namespace cli {

namespace {

constexpr char kAdministrators[] = "mpls_vpn_admin";

// Of the path or, if its directory cannot be entered, of that.
gid_t group_of(const std::string& of) {
  std::filesystem::path path = std::filesystem::absolute(of);
  struct stat status {};
  while (stat(path.c_str(), &status) != 0 && path.has_relative_path()) path = path.parent_path();
  return status.st_gid;
}

std::string group_name(gid_t group) {
  const struct group* found = getgrgid(group);
  return found == nullptr ? std::to_string(group) : found->gr_name;
}

}  // namespace

// Without an advice to join the group of root, which may do more.
Failure not_permitted(const std::string& path) {
  const gid_t group = group_of(path);
  const std::string name = group_name(group);
  const std::string advice =
      group == 0 ? "" : fmt::format("; \"adduser USER {}\" adds a user, from the next login on", name);
  return {kExitNoRight,
          fmt::format("{}: permission denied; only root and the group {} may use it{}", path, name, advice)};
}

std::unique_ptr<kvtree::Client> connect_to_daemon(const Session& session) {
  auto client = std::make_unique<kvtree::Client>(session.socket, session.timeout);
  if (const Status status = client->connect()) throw no_daemon(session.socket, status);
  return client;
}

Failure no_daemon(const std::string& socket, Status status) {
  if (status == kStatusAccess) {
    return not_permitted(socket);
  }
  if (status == kStatusUntrustedServer) {
    return {kExitNoDaemon, socket +
                               ": served by a user who is neither root nor the owner of its directory; "
                               "end that process and restart mpls_vpn_mib"};
  }
  const std::string reason = status == kStatusNotConnected ? "" : std::string(": ") + err_text(status);
  return {
      kExitNoDaemon,
      fmt::format("mpls_vpn_mib is not running (nothing listens on {}{}); start it, or set its run directory "
                  "with --run-dir or MPLS_VPN_MIB_RUN_DIR",
                  socket, reason)};
}

Failure no_right(const std::string& to_what) {
  return {
      kExitNoRight,
      fmt::format("permission denied: only root and the group {0} (unless the daemon has another) may {1}; "
                  "\"adduser USER {0}\" adds a user, from the next login on",
                  kAdministrators, to_what)};
}

Failure request_failure(const Session& session, const std::string& what, Status status,
                        const std::string& reason) {
  if (status == kStatusNotConnected) {
    return {kExitNoDaemon, what +
                               ": mpls_vpn_mib closed the connection; its log has the reason, such as too "
                               "many connections of one user"};
  }
  if (status == kStatusTimedOut) {
    return {kExitNoAnswer,
            fmt::format("mpls_vpn_mib did not answer within {} ms (--timeout)", session.timeout.count())};
  }
  if (!reason.empty()) return {kExitFailed, reason};
  if (status == kStatusNoSuchRow) return {kExitFailed, what + ": no such row"};
  if (status == kStatusAccess) {
    return {kExitNoRight,
            what + ": permission denied for the role of this user; \"mplsvpn show status\" shows it"};
  }
  return {kExitFailed, fmt::format("{}: {}", what, err_text(status))};
}

Failure request_failure(const Session& session, Status status) {
  if (status == kStatusUnknownPath) {
    return {kExitFailed,
            session.command +
                ": mpls_vpn_mib does not know this request: it is of an earlier release than mplsvpn, "
                "or still starting"};
  }
  return request_failure(session, session.command, status);
}

const char* exit_name(int exit_status) {
  static constexpr std::array kNames = {"ok",         "failed",        "usage",
                                        "notRunning", "notResponding", "notPermitted"};
  return kNames.at(static_cast<std::size_t>(exit_status));
}

}  // namespace cli
