// A private directory for tests and benchmarks in TMPDIR (/tmp if unset), removed with the object: programs
// that run side by side place their sockets, databases and settings there.
#pragma once

#include <string>

class TemporaryDirectory {
 public:
  // Throws std::runtime_error with the name and the reason if the directory cannot be created.
  TemporaryDirectory();
  // Removes the directory and its content. A failure is logged, and the rest remains.
  ~TemporaryDirectory();
  TemporaryDirectory(const TemporaryDirectory&) = delete;
  TemporaryDirectory& operator=(const TemporaryDirectory&) = delete;

  const std::string& path() const { return path_; }  // absolute

 private:
  std::string path_;
};
