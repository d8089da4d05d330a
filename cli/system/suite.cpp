#include "cli/system/suite.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>

#include "cli/session.h"
#include "cli/system/program.h"

namespace cli {

namespace {

constexpr std::chrono::seconds kPatience{10};

std::string with_path_space(const std::string& folder, const std::string& path_space) {
  return path_space.empty() ? folder : folder + "/" + path_space;
}

}  // namespace

Suite::Suite(const std::string& shell) : shell_(command_words(shell)) {
  if (shell_.empty()) throw Failure(kExitUsage, "the shell of the routing suite is empty");
}

std::string Suite::ask(const std::string& command) const {
  std::vector<std::string> words = shell_;
  words.insert(words.end(), {"-c", command});
  const Ran ran = run_program(words, kPatience);
  if (ran.status == 0) return ran.output;
  const std::string reason = ran.problem.empty() ? last_line(ran.output) : ran.problem;
  throw Failure(kExitFailed, fmt::format("{} does not answer: {}", this->words(), reason));
}

Json Suite::ask_json(const std::string& command) const {
  Json answer = Json::parse(ask(command), nullptr, false);
  if (answer.is_discarded())
    throw Failure(kExitFailed, fmt::format("{}: the answer to \"{}\" is not JSON", words(), command));
  return answer;
}

std::set<std::string> Suite::programs() const {
  const std::vector<std::string> names = command_words(ask("show daemons"));
  return {names.begin(), names.end()};
}

std::string Suite::option(const char* name) const {
  const auto found = std::ranges::find(shell_, name);
  return found == shell_.end() || found + 1 == shell_.end() ? "" : *(found + 1);
}

std::string Suite::socket_folder() const {
  const std::string folder = option("--vty_socket");
  return with_path_space(folder.empty() ? "/var/run/frr" : folder, option("-N"));
}

std::string Suite::configuration_folder() const {
  const std::string folder = option("--config_dir");
  return with_path_space(folder.empty() ? "/etc/frr" : folder, option("-N"));
}

std::string Suite::words() const {
  std::vector<std::string> quoted;
  for (const std::string& word : shell_) quoted.push_back(shell_word(word));
  return fmt::format("{}", fmt::join(quoted, " "));
}

}  // namespace cli
