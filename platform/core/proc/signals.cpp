#include "platform/core/proc/signals.h"

#include <signal.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <cstring>

namespace {

sigset_t set_of(std::initializer_list<int> signals) {
  sigset_t set;
  sigemptyset(&set);
  for (const int signal : signals) sigaddset(&set, signal);
  return set;
}

std::string describe_signal(const signalfd_siginfo& info) {
  const char* const name = sigabbrev_np(static_cast<int>(info.ssi_signo));
  const std::string text = name == nullptr ? std::to_string(info.ssi_signo) : std::string("SIG") + name;
  // The kernel sends those of the terminal; 0 is a process that cannot be seen from here.
  return info.ssi_pid == 0 ? text : text + " from process " + std::to_string(info.ssi_pid);
}

}  // namespace

void proc_block_signals(std::initializer_list<int> signals) {
  for (const int number : signals) signal(number, SIG_DFL);
  const sigset_t set = set_of(signals);
  pthread_sigmask(SIG_BLOCK, &set, nullptr);
}

void proc_unblock_signals(std::initializer_list<int> signals) {
  const sigset_t set = set_of(signals);
  pthread_sigmask(SIG_UNBLOCK, &set, nullptr);
}

int proc_open_signals(std::initializer_list<int> signals) {
  const sigset_t set = set_of(signals);
  return signalfd(-1, &set, SFD_NONBLOCK | SFD_CLOEXEC);
}

std::optional<ProcSignal> proc_read_signal(int fd) {
  signalfd_siginfo info{};
  if (read(fd, &info, sizeof info) != static_cast<ssize_t>(sizeof info)) return std::nullopt;
  return ProcSignal{static_cast<int>(info.ssi_signo), describe_signal(info)};
}
