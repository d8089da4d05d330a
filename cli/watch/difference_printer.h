// Differences between rows of a watched table, a line each.
#pragma once

#include "cli/session.h"
#include "cli/watch/known_rows.h"
#include "cli/watch/watched_table.h"

namespace cli {

// The texts of the fields as the value of a row. No text has the octet 0.
std::string joined_fields(const Texts& fields);

class DifferencePrinter {
 public:
  // Both must outlive it.
  DifferencePrinter(const Session& session, const WatchedTable& table) : session_(session), table_(table) {}
  // As RowDifference.
  void print(const KnownRow* before, const KnownRow* now) const;

 private:
  const Session& session_;
  const WatchedTable& table_;
};

}  // namespace cli
