// Compiling and matching of path patterns; see matcher.h.
//
// Matching descends the tree and returns where a branch fails (at most one level per component, so
// kMaxComponents bounds the recursion). After the end of the path it descends only keys, each absent. Nothing
// is allocated: key texts are decoded into the match's own buffer, whose use is rolled back with the branch.
#include "platform/store/tree/matcher.h"

#include <algorithm>
#include <cstring>

#include "platform/core/address/address.h"
#include "platform/core/base/log.h"
#include "platform/core/text/numbers.h"
#include "platform/store/tree/key_text.h"

namespace kvtree {

namespace {

struct KindName {
  std::string_view name;
  NodeKind kind;
};

constexpr KindName kKindNames[] = {
    {"<s>", NodeKind::kText},   {"<n>", NodeKind::kNumber},   {"<i>", NodeKind::kInterface},
    {"<ip4>", NodeKind::kIpv4}, {"<ad>", NodeKind::kAddress}, {"<x>", NodeKind::kAny},
    {"<*>", NodeKind::kPassed},
};

constexpr std::string_view kAbsentKey = "-";

// Takes the first component off `rest`; false when there is none. `more` is false after the last one.
bool take_component(std::string_view* rest, bool* more, std::string_view* component) {
  if (!*more) return false;
  const std::size_t slash = rest->find('/');
  *component = rest->substr(0, slash);
  *more = slash != std::string_view::npos;
  *rest = *more ? rest->substr(slash + 1) : std::string_view{};
  return true;
}

// --- Compiling

// False for a key of an unknown kind.
bool parse_component(std::string_view text, PatternNode* node) {
  if (!text.starts_with('<')) {
    node->literal = text;
    return !text.empty();
  }
  for (const KindName& known : kKindNames) {
    if (known.name == text) {
      node->kind = known.kind;
      return true;
    }
  }
  return false;
}

// Returns the child of `parent` that equals `wanted`, inserting it after the last sibling that precedes it.
int child_like(std::vector<PatternNode>* nodes, int parent, const PatternNode& wanted) {
  const auto at = [nodes](int index) -> PatternNode& { return (*nodes)[static_cast<std::size_t>(index)]; };
  int before = kNoNode;
  for (int child = at(parent).child; child != kNoNode; child = at(child).sibling) {
    if (at(child).kind == wanted.kind && at(child).literal == wanted.literal) return child;
    if (wanted.kind != NodeKind::kLiteral || at(child).kind == NodeKind::kLiteral) before = child;
  }
  const int made = static_cast<int>(nodes->size());
  nodes->push_back(wanted);
  int& link = before == kNoNode ? at(parent).child : at(before).sibling;
  at(made).sibling = link;
  link = made;
  return made;
}

bool add_pattern(CompiledTable* compiled, std::string_view pattern, int row) {
  int node = 0;
  unsigned keys = 0;
  std::size_t components = 0;
  std::string_view rest = pattern;
  std::string_view component;
  for (bool more = true; take_component(&rest, &more, &component);) {
    PatternNode wanted;
    if (++components > kMaxComponents || !parse_component(component, &wanted)) return false;
    const bool is_argument = wanted.kind != NodeKind::kLiteral && wanted.kind != NodeKind::kPassed;
    if (is_argument && ++keys > kKvMaxArguments) return false;
    node = child_like(&compiled->nodes, node, wanted);
  }
  compiled->key_count.push_back(keys);
  PatternNode& last = compiled->nodes[static_cast<std::size_t>(node)];
  if (last.row == kNoNode) last.row = row;  // of two equal patterns the first counts
  return true;
}

// --- Matching

class Matching {
 public:
  Matching(const CompiledTable& table, bool encoded, PathMatch* match)
      : nodes_(table.nodes), encoded_(encoded), match_(match) {}

  // False when the path has more components than any pattern may have.
  bool split(std::string_view path) {
    if (path.empty()) return true;
    for (std::size_t start = 0;;) {
      const std::size_t slash = path.find('/', start);
      const std::size_t end = std::min(slash, path.size());
      if (count_ == parts_.size()) return false;
      parts_[count_++] = {path.data() + start, end - start};
      if (slash == std::string_view::npos) return true;
      start = slash + 1;
    }
  }

  // The row that matches from the children of `parent` on, or kNoNode.
  int find(int parent, std::size_t component, unsigned keys) {
    for (int child = node(parent).child; child != kNoNode; child = node(child).sibling) {
      const int row = try_node(child, component, keys);
      if (row != kNoNode) return row;
    }
    return kNoNode;
  }

  bool bad_key() const { return bad_key_; }

 private:
  // A component of the path. Unlike views, they need not be initialized.
  struct Part {
    const char* octets;
    std::size_t size;
  };

  const PatternNode& node(int index) const { return nodes_[static_cast<std::size_t>(index)]; }
  std::string_view part(std::size_t component) const {
    return {parts_[component].octets, parts_[component].size};
  }

  int try_node(int index, std::size_t component, unsigned keys) {
    const PatternNode& here = node(index);
    const bool ended = component == count_;
    if (here.kind == NodeKind::kLiteral) {
      if (ended || here.literal != part(component)) return kNoNode;
      return below(index, component + 1, keys);
    }
    if (here.kind == NodeKind::kPassed) return below(index, ended ? component : component + 1, keys);
    const std::size_t texts_used = texts_used_;
    int row = kNoNode;
    if (ended || part(component) == kAbsentKey) {
      set_absent(keys);
      row = below(index, ended ? component : component + 1, keys + 1);
    } else if (decode_key(here.kind, part(component), keys)) {
      row = below(index, component + 1, keys + 1);
    } else if (below(index, component + 1, keys + 1) != kNoNode) {
      bad_key_ = true;
    }
    if (row == kNoNode) texts_used_ = texts_used;
    return row;
  }

  int below(int index, std::size_t component, unsigned keys) {
    if (component == count_ && node(index).row != kNoNode) return node(index).row;
    return find(index, component, keys);
  }

  void set_absent(unsigned key) {
    match_->args.absent_mask |= 1U << key;
    match_->args.arg[key] = {nullptr, nullptr};
  }

  bool decode_key(NodeKind kind, std::string_view text, unsigned key) {
    match_->args.absent_mask &= ~(1U << key);
    switch (kind) {
      case NodeKind::kNumber:
        return decode_number(text, key);
      case NodeKind::kIpv4:
        return decode_ipv4(text, key);
      case NodeKind::kAddress:
        return decode_address(text, key);
      case NodeKind::kAny:
        return keep_text(text, key);
      default:
        return encoded_ ? keep_text(text, key) : decode_escaped(text, key);
    }
  }

  bool decode_number(std::string_view text, unsigned key) {
    const std::optional<std::uint32_t> number = text::parse_number(text);
    match_->numbers[key] = number.value_or(0);
    match_->args.arg[key] = {nullptr, &match_->numbers[key]};
    return number.has_value();
  }

  bool decode_ipv4(std::string_view text, unsigned key) {
    keep_text(text, key);
    const std::optional<std::uint32_t> address = inet::parse_dotted_quad(text);
    match_->numbers[key] = address.value_or(0);
    match_->args.arg[key].number = &match_->numbers[key];
    return address.has_value();
  }

  bool decode_address(std::string_view text, unsigned key) {
    keep_text(text, key);
    return inet::parse_address(match_->args.arg[key].text).has_value();
  }

  bool keep_text(std::string_view text, unsigned key) {
    char* place = match_->texts.data() + texts_used_;
    std::memcpy(place, text.data(), text.size());
    return close_text(place, text.size(), key);
  }

  bool decode_escaped(std::string_view text, unsigned key) {
    char* place = match_->texts.data() + texts_used_;
    std::size_t length = 0;
    return decode_text(text, place, &length) == kStatusOk && close_text(place, length, key);
  }

  bool close_text(char* place, std::size_t length, unsigned key) {
    place[length] = '\0';
    texts_used_ += length + 1;
    match_->args.arg[key] = {place, nullptr};
    return true;
  }

  const std::vector<PatternNode>& nodes_;
  bool encoded_;
  PathMatch* match_;
  std::array<Part, kMaxComponents> parts_;
  std::size_t count_ = 0;
  std::size_t texts_used_ = 0;
  bool bad_key_ = false;
};

// After the last key every argument is absent, whatever abandoned branches left there.
void clear_unused_arguments(RequestArgs* args) {
  args->absent_mask |= ~0U << args->count;
  for (std::size_t i = args->count; i < kKvMaxArguments; ++i) args->arg[i] = {nullptr, nullptr};
}

}  // namespace

CompiledTable compile_table(const KvPathTable& table) {
  CompiledTable compiled;
  compiled.nodes.emplace_back();
  for (std::size_t i = 0; i < table.count; ++i) {
    const char* pattern = table.rows[i].pattern;
    if (pattern == nullptr || !add_pattern(&compiled, pattern, static_cast<int>(i))) {
      log_error("kvtree", "malformed path pattern \"%s\"", pattern == nullptr ? "(none)" : pattern);
      return compiled;
    }
  }
  compiled.valid = true;
  return compiled;
}

Status match_path(const CompiledTable& table, std::string_view path, bool encoded, PathMatch* match) {
  Matching matching(table, encoded, match);
  if (!matching.split(path)) return kStatusUnknownPath;
  match->row = matching.find(0, 0, 0);
  if (match->row == kNoNode) return matching.bad_key() ? kStatusBadKey : kStatusUnknownPath;
  match->args.count = table.key_count[static_cast<std::size_t>(match->row)];
  clear_unused_arguments(&match->args);
  return kStatusOk;
}

}  // namespace kvtree
