// What is known of the terminal that shows the output; nothing when the output is a file or a pipe.
#pragma once

#include <cstddef>
#include <functional>

namespace cli {

struct Terminal {
  std::size_t width = 0;  // columns; 0: lines have any length
  bool has_colors = false;
  std::function<void()> start_pager;  // sends the output through a pager; empty: there is none
};

}  // namespace cli
