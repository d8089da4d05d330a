#include "cli/output/pager.h"

#include <signal.h>
#include <sys/ioctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdlib>
#include <iostream>
#include <string>
#include <string_view>

#include "platform/core/text/numbers.h"
#include "platform/core/text/words.h"

namespace cli {

namespace {

constexpr char kUsualPager[] = "less";

std::string environment(const char* name, const char* otherwise = "") {
  const char* value = std::getenv(name);
  return value == nullptr ? otherwise : value;
}

std::size_t terminal_width() {
  winsize size{};
  if (ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0) return size.ws_col;
  return text::parse_number<std::size_t>(environment("COLUMNS")).value_or(0);
}

// $PAGER is a command of the shell; what follows its first word are options.
bool is_pager_installed(const std::string& pager) {
  const std::string program = pager.substr(0, pager.find(' '));
  if (program.find('/') != std::string::npos) return access(program.c_str(), X_OK) == 0;
  const std::string path = environment("PATH");
  std::string_view folders = path;
  while (!folders.empty()) {
    const std::string folder(text::take_until(&folders, ':'));
    if (access((folder + '/' + program).c_str(), X_OK) == 0) return true;
  }
  return false;
}

[[noreturn]] void run_pager(const std::string& pager, int output) {
  dup2(output, STDIN_FILENO);
  setenv("LESS", "FRX", 0);  // ends after a short text, shows colors, leaves the text on the screen
  execl("/bin/sh", "sh", "-c", pager.c_str(), nullptr);
  _exit(127);
}

}  // namespace

void Pager::start() {
  const std::string pager = environment("PAGER", kUsualPager);
  std::array<int, 2> ends{};
  if (!is_pager_installed(pager) || pipe(ends.data()) != 0) return;
  process_ = fork();
  if (process_ == 0) {
    close(ends[1]);
    run_pager(pager, ends[0]);
  }
  if (process_ > 0) {
    dup2(ends[1], STDOUT_FILENO);
    if (isatty(STDERR_FILENO) != 0) {
      error_ = dup(STDERR_FILENO);
      dup2(ends[1], STDERR_FILENO);
    }
    signal(SIGINT, SIG_IGN);  // Ctrl-C is for the pager, which keeps the terminal
  }
  close(ends[0]);
  close(ends[1]);
}

Pager::~Pager() {
  if (process_ <= 0) return;
  std::cout.flush();
  close(STDOUT_FILENO);
  if (error_ >= 0) dup2(error_, STDERR_FILENO);
  while (waitpid(process_, nullptr, 0) < 0 && errno == EINTR) {
  }
}

Terminal terminal_of_output(Pager* pager) {
  if (isatty(STDOUT_FILENO) == 0) return {};
  Terminal terminal;
  terminal.width = terminal_width();
  terminal.has_colors = environment("NO_COLOR").empty() && environment("TERM", "dumb") != "dumb";
  const std::string program = environment("PAGER", kUsualPager);
  if (!program.empty() && program != "cat") terminal.start_pager = [pager] { pager->start(); };
  return terminal;
}

}  // namespace cli
