// "router": hands its words to the daemon's action of this name and shows the answer.
#include "cli/commands.h"
#include "cli/output/json_list.h"

namespace cli {

void router(const Session& session, const std::vector<std::string>& words) {
  if (words.empty()) {
    throw Failure(kExitUsage, "router needs a command; \"mplsvpn router help\" lists them");
  }
  std::vector<std::string> action = {"router"};
  action.insert(action.end(), words.begin(), words.end());
  const kvtree::ActionResult result = connect_to_daemon(session)->action(action);
  if (result.status == kStatusUnknownPath) {
    throw Failure(kExitFailed, "the daemon's source is not a router file, so there are no router commands");
  }
  if (result.status) throw request_failure(session, "router " + words[0], result.status, result.text);
  if (session.json) {
    session.out << json_line({{"text", result.text}}) << '\n';
  } else {
    session.out << result.text << '\n';
  }
}

}  // namespace cli
