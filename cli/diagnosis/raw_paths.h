// The paths of the data store that "get", "list" and "datalist" read: one table for their help, the manual
// page and the list that they print without a path.
#pragma once

#include <span>
#include <string>

namespace cli {

struct RawPath {
  const char* path;  // below kMplsVpnPath unless it begins with '/'; keys are in upper case
  bool is_read;      // by "get"
  bool is_listed;    // by "list"
  bool has_records;  // by "datalist"
  const char* contents;
};

std::span<const RawPath> raw_paths();

// All of them, for a help text.
std::string raw_paths_help();

}  // namespace cli
