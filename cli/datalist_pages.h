// Reads a datalist in pages, so that memory does not grow with the list. Each page begins after the last key
// of the previous one.
#pragma once

#include <string>
#include <vector>

#include "cli/session.h"

namespace cli {

class DatalistPages {
 public:
  // The key of `path` is absent in the first page. The session and the client must outlive this.
  DatalistPages(const Session& session, kvtree::Client& client, std::string path, bool structured);
  // The next items; empty at the end. Throws Failure.
  std::vector<kvtree::ListItem> next();

 private:
  kvtree::ListResult fetch();

  const Session& session_;
  kvtree::Client& client_;
  const std::string path_;
  const bool structured_;
  std::string last_key_;  // encoded for a path
  std::uint32_t page_;    // items asked for
  bool is_over_ = false;
};

}  // namespace cli
