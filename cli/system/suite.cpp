#include "cli/system/suite.h"

#include <fmt/format.h>
#include <fmt/ranges.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <thread>

#include "cli/session.h"
#include "cli/system/json_objects.h"
#include "cli/system/program.h"
#include "sources/frr/shell/folders.h"

namespace cli {

namespace {

constexpr std::size_t kMostOctets = std::size_t{64} << 20;  // of an answer

constexpr std::chrono::milliseconds kNextLook{300};  // for a program that the shell does not reach

// Whether a process serves the socket. One with a full queue does.
bool listens(const std::string& path) {
  sockaddr_un address{AF_UNIX, {}};
  if (path.size() >= sizeof address.sun_path) return false;
  path.copy(address.sun_path, path.size());
  const int descriptor = socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
  if (descriptor < 0) return false;
  const bool is_served =
      connect(descriptor, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0 ||
      errno == EAGAIN;
  close(descriptor);
  return is_served;
}

}  // namespace

Suite::Suite(const std::string& shell, std::chrono::milliseconds patience)
    : shell_(command_words(shell)), patience_(patience) {
  if (shell_.empty()) throw Failure(kExitUsage, "the shell of the routing suite is empty");
}

std::string Suite::ask(const std::string& command) const {
  std::vector<std::string> words = shell_;
  words.insert(words.end(), {"-c", command});
  const Ran ran = run_program(words, patience_);
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

Suite::Answers Suite::ask_each(const std::vector<std::string>& commands, std::chrono::milliseconds patience,
                               const std::function<void(std::size_t, const Json&)>& take) const {
  std::vector<std::string> words = shell_;
  for (const std::string& command : commands) words.insert(words.end(), {"-c", command});
  JsonObjects objects;
  std::size_t count = 0;
  const auto take_object = [&](const std::string& text) {
    if (count < commands.size()) take(count++, Json::parse(text, nullptr, false));
  };
  const Ran ran = run_program(words, patience, [&](std::string_view part) {
    objects.add(part, take_object);
    return objects.octets() <= kMostOctets ? ""
                                           : fmt::format("an answer has more than {} octets", kMostOctets);
  });
  if (count == commands.size()) return {count, ""};
  if (!ran.problem.empty()) return {count, ran.problem};
  const std::string said = last_line(objects.rest());
  return {count, said.empty() ? fmt::format("no answer to \"{}\"", commands[count]) : said};
}

// Warnings of the shell, which name programs too, precede the list.
std::set<std::string> Suite::programs() const {
  const std::vector<std::string> names = command_words(last_line(ask("show daemons")));
  return {names.begin(), names.end()};
}

// The shell leaves out a program that it does not reach, also one that is busy or starts. A shell whose
// sockets are elsewhere, such as a script, is only asked a second time.
bool Suite::runs(const std::string& program) const {
  const auto deadline = std::chrono::steady_clock::now() + patience_;
  for (bool is_first = true;; is_first = false) {
    if (programs().contains(program)) return true;
    const bool is_there = listens(socket_folder() + "/" + program + ".vty");
    if (!is_first && !is_there) return false;
    if (std::chrono::steady_clock::now() >= deadline)
      throw Failure(kExitFailed, fmt::format("{} runs, but {} has not reached it within {} ms", program,
                                             words(), patience_.count()));
    std::this_thread::sleep_for(kNextLook);
  }
}

std::string Suite::socket_folder() const {
  return frr::socket_folder(shell_);
}

std::string Suite::configuration_folder() const {
  return frr::configuration_folder(shell_);
}

std::string Suite::words() const {
  std::vector<std::string> quoted;
  for (const std::string& word : shell_) quoted.push_back(shell_word(word));
  return fmt::format("{}", fmt::join(quoted, " "));
}

}  // namespace cli
