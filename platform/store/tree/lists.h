// The layout of lists and datalists, for the server that puts them on the wire. Only for this folder.
#pragma once

#include <absl/container/inlined_vector.h>

#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <string>
#include <vector>

#include "platform/store/tree/kvtree.h"

struct KvListItem {
  std::string key;
  std::uint32_t kind;
  std::uint32_t flags;
};

struct KvDatalistItem : KvListItem {
  absl::InlinedVector<std::uint8_t, 16> value;  // an index of an interface needs no block of its own
};

struct KvList {
  std::deque<KvListItem> items;
};

struct KvDatalist {
  std::deque<KvDatalistItem> items;
  std::size_t next = 0;               // of kvtree_datalist_next
  std::vector<std::uint32_t> by_key;  // places of the items, when the last look-up by key was made
  std::size_t first_without_value = SIZE_MAX;
  std::function<void(KvDatalist*)> on_free;
};
