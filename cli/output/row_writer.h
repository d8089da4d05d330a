// Rows as a table or as a JSON array, whichever the session asks for.
#pragma once

#include <vector>

#include "cli/output/columns.h"
#include "cli/session.h"

namespace cli {

template <typename Row>
class RowWriter {
 public:
  using ToJson = Json (*)(const Row&);

  // The session and the columns must outlive it. With `to_json` the columns are those of the table alone.
  RowWriter(const Session& session, std::span<const Column<Row>> columns, ToJson to_json = nullptr)
      : is_json_(session.json),
        columns_(columns),
        to_json_(to_json),
        list_(session.out),
        table_(session.out, table_columns(), &session.terminal) {}

  void add(const Row& row) {
    is_empty_ = false;
    if (!is_json_) return table_.add(cells_of(row));
    list_.add(to_json_ != nullptr ? to_json_(row) : row_json(columns_, row));
  }
  // The end of a batch.
  void flush() {
    if (!is_json_) table_.flush();
  }
  void end() { is_json_ ? list_.end() : table_.end(); }
  bool is_empty_table() const { return is_empty_ && !is_json_; }

 private:
  std::vector<TableColumn> table_columns() const {
    std::vector<TableColumn> cells;
    for (const Column<Row>& column : columns_) {
      if (column.cell.title != nullptr) cells.push_back(column.cell);
    }
    return cells;
  }
  std::vector<std::string> cells_of(const Row& row) const {
    std::vector<std::string> cells;
    for (const Column<Row>& column : columns_) {
      if (column.cell.title == nullptr) continue;
      cells.push_back(column.text != nullptr ? column.text(row) : text_of(column.value(row)));
    }
    return cells;
  }

  const bool is_json_;
  bool is_empty_ = true;
  const std::span<const Column<Row>> columns_;
  const ToJson to_json_;
  JsonList list_;
  Table table_;
};

}  // namespace cli
