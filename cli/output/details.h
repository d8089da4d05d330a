// Details of one row: a label and a text on each line.
#pragma once

#include <ostream>

#include "cli/output/columns.h"

namespace cli {

struct DetailsLayout {
  std::size_t indent;
  std::size_t label_width;  // with the indentation
};

// Prints lines below each other, the label on the first; "-" for no line. Words fill lines.
void print_detail(std::ostream& out, const DetailsLayout& layout, const char* label, const Lines& lines,
                  bool are_words);

template <typename Row>
void print_details(std::ostream& out, const DetailsLayout& layout, std::span<const Column<Row>> columns,
                   const Row& row) {
  for (const Column<Row>* column : by_place(columns, &Column<Row>::line_place)) {
    print_detail(out, layout, column->label, column->lines(row), column->are_words);
  }
}

}  // namespace cli
