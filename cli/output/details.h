// Details of one row: a label and a text on each line.
#pragma once

#include <cstddef>
#include <ostream>
#include <string>
#include <vector>

namespace cli {

using Lines = std::vector<std::string>;

class Details {
 public:
  // `label_width`: with the indentation. `width`: of the terminal, 0 for lines of any length.
  Details(std::ostream& out, std::size_t indent, std::size_t label_width, std::size_t width = 0)
      : out_(out), indent_(indent), label_width_(label_width), width_(width) {}

  void line(const char* label, const std::string& text) { lines(label, {text}); }
  // Below each other, the label on the first; "-" for none. Texts that are wider than the terminal are broken
  // at their blanks, and begin below the label if there is too little room beside it.
  void lines(const char* label, const Lines& texts);
  // Words fill lines.
  void words(const char* label, const Lines& words);

 private:
  std::size_t room(std::size_t column) const;  // of the terminal from this column on

  std::ostream& out_;
  const std::size_t indent_;
  const std::size_t label_width_;
  const std::size_t width_;
};

}  // namespace cli
