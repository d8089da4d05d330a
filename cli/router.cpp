// "router": hands its words to the daemon's action of this name and shows the answer.
#include <algorithm>
#include <chrono>

#include "cli/commands.h"
#include "cli/output/json_list.h"
#include "cli/output/table.h"
#include "platform/core/text/words.h"

namespace cli {

namespace {

// A reload is answered when the file has been loaded.
constexpr std::chrono::seconds kReloadTime{60};

// Names in the text cannot control the terminal.
void print_lines(std::ostream& out, std::string_view text) {
  do {
    out << printable(text::take_until(&text, '\n'), Backslashes::kUnchanged) << '\n';
  } while (!text.empty());
}

Session with_time_for(const Session& session, const std::string& command) {
  Session patient = session;
  if (command == "reload")
    patient.timeout = std::max<std::chrono::milliseconds>(session.timeout, kReloadTime);
  return patient;
}

}  // namespace

void router(const Session& session, const std::vector<std::string>& words) {
  if (words.empty()) {
    throw Failure(kExitUsage, "router needs a command; \"mplsvpn router help\" lists them");
  }
  std::vector<std::string> action = {"router"};
  action.insert(action.end(), words.begin(), words.end());
  const Session patient = with_time_for(session, words[0]);
  const kvtree::ActionResult result = connect_to_daemon(patient)->action(action);
  if (result.status == kStatusUnknownPath) {
    throw Failure(kExitFailed, "the daemon's source is not a router file, so there are no router commands");
  }
  if (result.status == kStatusAccess) throw no_right("change the router");
  if (result.status) throw request_failure(patient, "router " + words[0], result.status, result.text);
  if (session.json) {
    session.out << json_line({{"text", result.text}}) << '\n';
  } else {
    print_lines(session.out, result.text);
  }
}

}  // namespace cli
