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
  // `label_width`: with the indentation.
  Details(std::ostream& out, std::size_t indent, std::size_t label_width)
      : out_(out), indent_(indent), label_width_(label_width) {}

  void line(const char* label, const std::string& text) { lines(label, {text}); }
  // Below each other, the label on the first; "-" for none.
  void lines(const char* label, const Lines& texts);
  // Words fill lines.
  void words(const char* label, const Lines& words);

 private:
  std::ostream& out_;
  const std::size_t indent_;
  const std::size_t label_width_;
};

}  // namespace cli
