// The path matcher: tables of paths compiled into node trees, and a path matched against one.
//
// A node is a literal component or a key of some kind, with its first child (the next component) and its
// sibling (an alternative at the same depth). Siblings are in the order in which they are tried: literals
// first, each group in the order of the table. A node that ends a pattern names its row.
#pragma once

#include <array>
#include <cstdint>
#include <string_view>
#include <vector>

#include "platform/store/tree/kvtree.h"

namespace kvtree {

inline constexpr std::size_t kMaxComponents = 32;

enum class NodeKind : std::uint8_t { kLiteral, kText, kNumber, kInterface, kIpv4, kAddress, kAny, kPassed };

inline constexpr int kNoNode = -1;

struct PatternNode {
  NodeKind kind = NodeKind::kLiteral;
  std::string_view literal;
  int child = kNoNode;
  int sibling = kNoNode;
  int row = kNoNode;  // the pattern that ends here
};

struct CompiledTable {
  std::vector<PatternNode> nodes;   // node 0 is above the first components
  std::vector<unsigned> key_count;  // by row
  bool valid = false;               // false: a pattern is malformed, nothing matches
};

CompiledTable compile_table(const KvPathTable& table);

// The outcome of a match. Texts and numbers of the arguments point into it, so it stays where it is.
struct PathMatch {
  PathMatch() { args.absent_mask = args.form = args.count = 0; }
  PathMatch(const PathMatch&) = delete;
  PathMatch& operator=(const PathMatch&) = delete;

  int row = kNoNode;
  RequestArgs args;  // the arguments are valid after a match
  std::array<std::uint32_t, kKvMaxArguments> numbers;
  std::array<char, kKvMaxPath + kKvMaxArguments> texts;  // each key at most its component, and a NUL
};

// kStatusOk with match->row and arguments (all but the form), kStatusUnknownPath or kStatusBadKey.
// REQUIRES path.size() <= kKvMaxPath. Text keys stay encoded when `encoded` is set.
Status match_path(const CompiledTable& table, std::string_view path, bool encoded, PathMatch* match);

}  // namespace kvtree
