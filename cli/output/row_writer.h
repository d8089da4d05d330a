// Rows as a table or as a JSON array, whichever the session asks for.
#pragma once

#include "cli/output/columns.h"
#include "cli/session.h"

namespace cli {

template <typename Row>
class RowWriter {
 public:
  // The session and the columns must outlive it.
  RowWriter(const Session& session, std::span<const Column<Row>> columns)
      : is_json_(session.json),
        columns_(columns),
        cells_(by_place(columns, &Column<Row>::cell_place)),
        list_(session.out),
        table_(session.out, table_columns()) {}

  void add(const Row& row) { is_json_ ? list_.add(row_json(columns_, row)) : table_.add(cells_of(row)); }
  // Prints the rows of a batch, aligned.
  void flush() {
    if (!is_json_) table_.flush();
  }
  // Not called for output that is cut short.
  void end() { is_json_ ? list_.end() : table_.flush(); }

 private:
  std::vector<TableColumn> table_columns() const {
    std::vector<TableColumn> titles;
    for (const Column<Row>* column : cells_) titles.push_back(column->cell_column);
    return titles;
  }
  std::vector<std::string> cells_of(const Row& row) const {
    std::vector<std::string> cells;
    for (const Column<Row>* column : cells_) {
      cells.push_back(column->cell_text != nullptr
                          ? column->cell_text(row)
                          : text_of((column->name != nullptr ? column->name : column->value)(row)));
    }
    return cells;
  }

  const bool is_json_;
  const std::span<const Column<Row>> columns_;
  const std::vector<const Column<Row>*> cells_;
  JsonList list_;
  Table table_;
};

}  // namespace cli
