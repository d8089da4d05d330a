#include "cli/system/program.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <sstream>
#include <string_view>

#include "platform/core/text/words.h"

namespace cli {

namespace {

using Clock = std::chrono::steady_clock;

// Owns what posix_spawn() needs: no input, and one pipe for both outputs.
struct Streams {
  explicit Streams(int output) {
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_adddup2(&actions, output, STDOUT_FILENO);
    posix_spawn_file_actions_adddup2(&actions, output, STDERR_FILENO);
  }
  ~Streams() { posix_spawn_file_actions_destroy(&actions); }
  Streams(const Streams&) = delete;
  Streams& operator=(const Streams&) = delete;
  posix_spawn_file_actions_t actions{};
};

std::vector<char*> pointers(const std::vector<std::string>& words) {
  std::vector<char*> list;
  for (const std::string& word : words) list.push_back(const_cast<char*>(word.c_str()));
  list.push_back(nullptr);
  return list;
}

std::vector<std::string> environment() {
  std::vector<std::string> all = {"LC_ALL=C", "TERM=dumb", "VTYSH_PAGER=cat"};
  for (char** entry = environ; *entry != nullptr; ++entry) {
    const std::string text = *entry;
    if (!text.starts_with("LC_ALL=") && !text.starts_with("TERM=") && !text.starts_with("VTYSH_PAGER="))
      all.push_back(text);
  }
  return all;
}

// The errno of a program that cannot be started.
int start(const std::vector<std::string>& words, int output, pid_t* process) {
  const Streams streams(output);
  const std::vector<std::string> variables = environment();
  return posix_spawnp(process, words[0].c_str(), &streams.actions, nullptr, pointers(words).data(),
                      pointers(variables).data());
}

// False when the output has not ended in time, or was refused; *problem says which.
bool collect(int input, std::chrono::milliseconds patience, const OutputTaker& take, Ran* ran) {
  const Clock::time_point deadline = Clock::now() + patience;
  std::array<char, 65536> octets;
  for (;;) {
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now());
    pollfd waiting{input, POLLIN, 0};
    const int ready = left.count() > 0 ? poll(&waiting, 1, static_cast<int>(left.count())) : 0;
    if (ready < 0 && errno == EINTR) continue;
    if (ready <= 0) ran->problem = fmt::format("it did not end within {} ms", patience.count());
    if (ready <= 0) return false;
    const ssize_t length = read(input, octets.data(), octets.size());
    if (length < 0 && errno == EINTR) continue;
    if (length < 0) ran->problem = fmt::format("its output cannot be read: {}", std::strerror(errno));
    if (length <= 0) return length == 0;
    ran->problem = take({octets.data(), static_cast<std::size_t>(length)});
    if (!ran->problem.empty()) return false;
  }
}

void wait_for(pid_t process, bool is_killed, Ran* ran) {
  if (is_killed) kill(process, SIGKILL);
  int status = 0;
  while (waitpid(process, &status, 0) < 0 && errno == EINTR) {
  }
  if (is_killed) return;
  if (WIFEXITED(status)) ran->status = WEXITSTATUS(status);
  if (WIFSIGNALED(status)) ran->problem = fmt::format("it was ended by signal {}", WTERMSIG(status));
}

}  // namespace

Ran run_program(const std::vector<std::string>& words, std::chrono::milliseconds patience,
                std::size_t limit) {
  std::string output;
  Ran ran = run_program(words, patience, [&output, limit](std::string_view part) {
    output += part;
    return output.size() <= limit ? "" : fmt::format("it printed more than {} octets", limit);
  });
  ran.output = std::move(output);
  return ran;
}

Ran run_program(const std::vector<std::string>& words, std::chrono::milliseconds patience,
                const OutputTaker& take) {
  Ran ran;
  std::array<int, 2> ends{-1, -1};
  if (pipe2(ends.data(), O_CLOEXEC) != 0) {
    ran.problem = std::strerror(errno);
    return ran;
  }
  pid_t process = -1;
  const int error = start(words, ends[1], &process);
  close(ends[1]);
  if (error == 0) {
    const bool has_ended = collect(ends[0], patience, take, &ran);
    wait_for(process, !has_ended, &ran);
  } else {
    ran.problem = std::strerror(error);
  }
  close(ends[0]);
  return ran;
}

std::string last_line(std::string output) {
  while (!output.empty() && (output.back() == '\n' || output.back() == '\r')) output.pop_back();
  return output.substr(output.rfind('\n') + 1);
}

std::vector<std::string> command_words(const std::string& command) {
  std::istringstream text(command);
  std::vector<std::string> words;
  for (std::string word; text >> word;) words.push_back(word);
  return words;
}

std::string installed_program(const std::string& name) {
  std::error_code ignored;  // then the folder is empty
  const std::filesystem::path own = std::filesystem::read_symlink("/proc/self/exe", ignored).parent_path();
  std::vector<std::filesystem::path> folders = {own, own.parent_path() / "sbin", "/usr/sbin", "/sbin",
                                                "/usr/local/sbin"};
  const char* const path = getenv("PATH");
  for (const std::string_view folder : text::split(path == nullptr ? "" : path, ':'))
    folders.emplace_back(folder);
  const auto found = std::ranges::find_if(folders, [&name](const std::filesystem::path& folder) {
    return !folder.empty() && access((folder / name).c_str(), X_OK) == 0;
  });
  return found == folders.end() ? "" : (*found / name).string();
}

bool is_installed(const std::string& name) {
  return !installed_program(name).empty();
}

std::string shell_word(const std::string& word) {
  constexpr std::string_view kPlain =
      "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789_@%+=:,./-";
  if (!word.empty() && word.find_first_not_of(kPlain) == std::string::npos) return word;
  std::string text = "'";
  for (const char octet : word) text += octet == '\'' ? "'\\''" : std::string(1, octet);
  return text + "'";
}

}  // namespace cli
