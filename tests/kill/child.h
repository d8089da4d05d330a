// A child process that is killed.
#pragma once

#include <fcntl.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <string>
#include <thread>
#include <utility>

namespace kill9 {

// Runs a function that does not return in a process of its own, whose error output is in the file.
class Child {
 public:
  template <typename Function>
  Child(const std::string& log, Function function) : id_(fork()) {
    if (id_ != 0) return;
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    const int fd = open(log.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
    dup2(fd, STDERR_FILENO);
    function();
    _exit(1);
  }
  ~Child() { kill_now(); }
  Child(const Child&) = delete;
  Child& operator=(const Child&) = delete;

  // Kills it later, while this thread does something else. Wait with kill_now().
  void kill_after(std::chrono::microseconds time) {
    killer_ = std::thread([id = id_, time] {
      std::this_thread::sleep_for(time);
      kill(id, SIGKILL);
    });
  }
  // Returns whether it lived until it was killed.
  bool kill_now() {
    if (killer_.joinable()) killer_.join();
    if (id_ <= 0) return ended_well_;
    kill(id_, SIGKILL);
    int status = 0;
    waitpid(std::exchange(id_, 0), &status, 0);
    ended_well_ = WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL;
    return ended_well_;
  }

 private:
  pid_t id_;
  bool ended_well_ = true;
  std::thread killer_;
};

}  // namespace kill9
