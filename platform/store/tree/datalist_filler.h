// What a service may do with a datalist that it has returned: invalidate values that are no longer true. A
// reader uses its list as long as it needs it. An invalidated item remains in the list, without a value, so
// that the reader detects the stale list when it reaches the item. Main thread.
#pragma once

#include <functional>

#include "platform/store/tree/kvtree.h"

// Calls the function once, right before the list is freed. REQUIRES: `list` has no such function yet.
void kvtree_datalist_on_free(KvDatalist* list, std::function<void(KvDatalist*)> function);

// Clears the value of the first item with this key; nothing happens when there is none.
void kvtree_datalist_clear_value(KvDatalist* list, const char* key);
// Clears the value of every item.
void kvtree_datalist_clear_values(KvDatalist* list);
