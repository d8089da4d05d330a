// A long datalist, a page after the other: each goes on behind the last key of the one before, so that memory
// does not grow with the list.
#pragma once

#include <string>
#include <vector>

#include "cli/session.h"

namespace cli {

class DatalistPages {
 public:
  // `path` has one key, which is left out for the first page. The session and the client must outlive it.
  DatalistPages(const Session& session, kvtree::Client& client, std::string path, bool structured);
  // The following items; empty behind the last. Throws Failure.
  std::vector<kvtree::ListItem> next();

 private:
  kvtree::ListResult fetch();

  const Session& session_;
  kvtree::Client& client_;
  const std::string path_;
  const bool structured_;
  std::string last_key_;  // as it stands in a path
  std::uint32_t page_;    // items asked for
  bool is_over_ = false;
};

}  // namespace cli
