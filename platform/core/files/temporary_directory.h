// A directory of one's own for tests and benchmarks, in TMPDIR (/tmp where it is unset), that goes with the
// object: sockets, databases and settings of programs that run side by side.
#pragma once

#include <string>

class TemporaryDirectory {
 public:
  // Throws std::runtime_error, with the name and the reason, when there can be none.
  TemporaryDirectory();
  // Removes it with what is in it; a failure goes to the log, and what is left stays.
  ~TemporaryDirectory();
  TemporaryDirectory(const TemporaryDirectory&) = delete;
  TemporaryDirectory& operator=(const TemporaryDirectory&) = delete;

  const std::string& path() const { return path_; }  // absolute

 private:
  std::string path_;
};
