// $PAGER, or less, between the terminal and standard output, with the notes on standard error where they
// belong.
#pragma once

#include <sys/types.h>

#include "cli/output/terminal.h"

namespace cli {

class Pager {
 public:
  Pager() = default;
  Pager(const Pager&) = delete;
  Pager& operator=(const Pager&) = delete;
  ~Pager();  // closes standard output, restores standard error and waits until the user has left the pager

  // Connects standard output to the pager, and standard error if that is a terminal, if one can be started.
  void start();

 private:
  pid_t process_ = -1;
  int error_ = -1;  // standard error as it was
};

// Of standard output. NO_COLOR and a TERM of "dumb" switch colors off, an empty PAGER or "cat" the pager. The
// pager must outlive the result.
Terminal terminal_of_output(Pager* pager);

}  // namespace cli
