// "router": hands its words to the daemon's action of this name and shows the answer.
#include <algorithm>
#include <chrono>
#include <utility>

#include "cli/commands.h"
#include "cli/output/json_list.h"
#include "cli/output/notices.h"
#include "cli/output/table.h"
#include "platform/core/text/words.h"
#include "platform/store/tree/action_warning.h"

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

// The daemon refuses what several commands begin with.
bool abbreviates(const std::string& word, std::string_view command) {
  return !word.empty() && command.starts_with(word);
}

Session with_time_for(const Session& session, const std::string& command) {
  Session patient = session;
  if (abbreviates(command, "reload"))
    patient.timeout = std::max<std::chrono::milliseconds>(session.timeout, kReloadTime);
  return patient;
}

bool is_json_word_in(const std::vector<std::string>& words) {
  return std::find(words.begin(), words.end(), "--json") != words.end();
}

// The daemon makes the object that "show" prints.
std::vector<std::string> action_words(const std::vector<std::string>& words, bool is_object) {
  std::vector<std::string> action = {"router"};
  action.insert(action.end(), words.begin(), words.end());
  if (is_object && !is_json_word_in(words)) action.emplace_back("--json");
  return action;
}

// The last line of the answer to a change may be a warning.
std::pair<std::string, std::string> with_warning(const std::string& command, const std::string& text) {
  const std::size_t at = text.rfind(kKvActionWarning);
  const bool is_last = at != std::string::npos && text.find('\n', at + 1) == std::string::npos;
  if (abbreviates(command, "show") || !is_last) return {text, ""};
  return {text.substr(0, at), text.substr(at + kKvActionWarning.size())};
}

}  // namespace

void router(const Session& session, const std::vector<std::string>& words) {
  if (words.empty()) {
    throw Failure(kExitUsage, "router needs a command; \"mplsvpn router help\" lists them");
  }
  const bool is_object = abbreviates(words[0], "show") && (session.json || is_json_word_in(words));
  const Session patient = with_time_for(session, words[0]);
  const kvtree::ActionResult result = connect_to_daemon(patient)->action(action_words(words, is_object));
  if (result.status == kStatusUnknownPath) {
    throw Failure(kExitFailed, "the daemon's source is not a router file, so there are no router commands");
  }
  if (result.status == kStatusAccess) throw no_right("change the router");
  if (result.status)
    throw request_failure(patient, "router " + words[0], result.status,
                          printable(result.text, Backslashes::kUnchanged));
  if (is_object) {
    session.out << result.text << '\n';
    return;
  }
  const auto [answer, warning] = with_warning(words[0], result.text);
  if (session.json) {
    session.out << json_line({{"text", answer}}) << '\n';
  } else {
    print_lines(session.out, answer);
  }
  session.out.flush();
  if (!warning.empty()) warn(session, printable(warning, Backslashes::kUnchanged));
}

}  // namespace cli
