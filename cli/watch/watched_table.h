// The tables that "watch" compares: what names a row, and which of its values count. Values that change by
// themselves, such as the age of a route, are left out.
#pragma once

#include <functional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "cli/commands.h"
#include "cli/session.h"

namespace cli {

using Texts = std::vector<std::string>;

enum class FieldForm {
  kText,
  kNumber,
  kWords,  // separated by blanks; a list in JSON
};

enum class FieldRole {
  kName,   // part of what names the row
  kTitle,  // shown with the name, but may change
  kValue,
};

struct WatchedField {
  const char* key;    // in JSON
  const char* label;  // in text
  FieldForm form;
  FieldRole role;
};

// Receives the rows in the order of their keys: the octets of a key are in the order of the daemon's rows.
// The texts are those of the fields. False: no more rows.
using TakeRow = std::function<bool(const std::string& key, const Texts& fields)>;

struct WatchedTable {
  const char* name;      // the word of the command, and what is watched
  const char* row_name;  // of one row
  std::span<const WatchedField> fields;
  std::string (*title)(const Texts& fields);  // the row's name for people
  // Reads the rows once. Throws Failure.
  void (*read)(const Session& session, kvtree::Client& client, const WatchRequest& request,
               const TakeRow& take);
};

// Null for another word.
const WatchedTable* find_watched_table(std::string_view name);
std::vector<std::string> watched_table_names();

// Prints the changes of the table, also those that a later start of the daemon made; how many, when there are
// enough of them or the time is over. Throws Failure.
std::uint64_t watch_table(const Session& session, const WatchRequest& request, const WatchedTable& table);

}  // namespace cli
