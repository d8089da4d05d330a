// A multiset in blocks of many elements: 12 octets for a pointer, where a node of std::multiset needs 48. It
// grows without a pause, unlike a hash table. A change invalidates iterators.
#pragma once

#include <absl/container/btree_set.h>

template <typename Element, typename Less>
using OrderedMultiset = absl::btree_multiset<Element, Less>;
