// The layout of lists and datalists, for the server that puts them on the wire. Not for other folders.
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <string>
#include <vector>

struct KvListItem {
  std::string key;
  std::uint32_t kind;
  std::uint32_t flags;
};

struct KvDatalistItem : KvListItem {
  std::vector<std::uint8_t> value;
};

struct KvList {
  std::deque<KvListItem> items;
};

struct KvDatalist {
  std::deque<KvDatalistItem> items;
  std::size_t next = 0;  // of kvtree_datalist_next
};
