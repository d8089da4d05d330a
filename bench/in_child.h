// Measurements in processes of their own: neither memory nor process-wide state is shared with another one.
#pragma once

#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <exception>
#include <fstream>
#include <stdexcept>
#include <type_traits>

// Returns the result of `measure()` in a child process; throws if the child fails, which prints the reason.
// The child ends without the caller's destructors: `measure` cleans up what it makes.
template <typename Measure>
std::invoke_result_t<Measure> in_child(const Measure& measure) {
  using Value = std::invoke_result_t<Measure>;
  int ends[2];
  if (pipe(ends) != 0) throw std::runtime_error("pipe");
  const pid_t child = fork();
  if (child == 0) {
    try {
      const Value value = measure();
      _exit(write(ends[1], &value, sizeof value) == static_cast<ssize_t>(sizeof value) ? 0 : 1);
    } catch (const std::exception& failure) {
      std::fprintf(stderr, "%s\n", failure.what());
      _exit(1);
    }
  }
  close(ends[1]);
  Value value{};
  const ssize_t got = child < 0 ? -1 : read(ends[0], &value, sizeof value);
  close(ends[0]);
  int status = 0;
  if (child > 0) waitpid(child, &status, 0);
  if (got != static_cast<ssize_t>(sizeof value) || status != 0)
    throw std::runtime_error("a measurement failed");
  return value;
}

// Of this process.
inline double resident_octets() {
  std::ifstream statm("/proc/self/statm");
  std::size_t size = 0;
  std::size_t resident = 0;
  statm >> size >> resident;
  return static_cast<double>(resident) * static_cast<double>(sysconf(_SC_PAGESIZE));
}
