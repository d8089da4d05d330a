// The layout of lists and datalists, for the server that puts them on the wire. Only for this folder.
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "platform/store/tree/kvtree.h"

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
  // Made by the first kvtree_datalist_find, for the first `indexed` items; the first item of a key counts.
  std::unordered_map<std::string_view, std::size_t> places;
  std::size_t indexed = 0;
  std::size_t first_without_value = SIZE_MAX;
  std::function<void(KvDatalist*)> on_free;
};
