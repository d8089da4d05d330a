// $PAGER, or less, between standard output and the terminal.
#pragma once

#include <sys/types.h>

#include "cli/output/terminal.h"

namespace cli {

class Pager {
 public:
  Pager() = default;
  Pager(const Pager&) = delete;
  Pager& operator=(const Pager&) = delete;
  ~Pager();  // closes standard output and waits until the user has left the pager

  // Connects standard output to the pager, if one can be started.
  void start();

 private:
  pid_t process_ = -1;
};

// Of standard output. NO_COLOR and a TERM of "dumb" switch colors off, an empty PAGER or "cat" the pager. The
// pager must outlive the result.
Terminal terminal_of_output(Pager* pager);

}  // namespace cli
