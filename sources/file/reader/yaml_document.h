// A YAML document as a tree of small nodes, with bounds on what a file may cost. libyaml reports events, from
// which the tree is built.
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace router_file {

// Nodes of a document, an alias counting as all that it refers to. 10,000 VRFs with route targets, policies,
// thresholds and neighbors and 100,000 interfaces with two addresses each have two million nodes; 1,000,000
// written routes with a prefix and a next hop have five.
inline constexpr std::size_t kNodesMax = 6'000'000;
// Levels of nesting: twice what the grammar needs.
inline constexpr std::size_t kDepthMax = 16;

// A position in the text; both count from 1, columns in characters.
struct Mark {
  int line = 0;
  int column = 0;
  bool is_null() const { return line == 0; }
};

// Where and why a text is not accepted.
class Misreading : public std::runtime_error {
 public:
  Misreading(const Mark& mark, const std::string& what) : std::runtime_error(what), mark_(mark) {}
  const Mark& mark() const { return mark_; }

 private:
  Mark mark_;
};

[[noreturn]] void refuse(const Mark& mark, const std::string& what);

class Node {
 public:
  enum class Kind : std::uint8_t { kNull, kScalar, kSequence, kMap };
  Node(Kind kind, const Mark& mark, std::string scalar = {}, bool is_quoted = false)
      : kind_(kind), is_quoted_(is_quoted), mark_(mark), scalar_(std::move(scalar)) {}

  bool is_null() const { return kind_ == Kind::kNull; }
  bool is_scalar() const { return kind_ == Kind::kScalar; }
  bool is_sequence() const { return kind_ == Kind::kSequence; }
  bool is_map() const { return kind_ == Kind::kMap; }
  bool is_quoted() const { return is_quoted_; }  // written between quotation marks
  const std::string& scalar() const { return scalar_; }
  const Mark& mark() const { return mark_; }
  // Of a sequence; of a map keys and values in turn.
  const std::vector<const Node*>& items() const { return items_; }

 private:
  friend class DocumentBuilder;
  Kind kind_;
  bool is_quoted_;
  std::uint32_t size_ = 0;  // in nodes, aliases expanded; 0 until the node is complete
  Mark mark_;
  std::string scalar_;
  std::vector<const Node*> items_;
};

struct YamlDocument {
  const Node* root = nullptr;  // null for a text without a document
  std::deque<Node> nodes;
};

// The one document of the text. Throws Misreading for a text that is not YAML, has a second document or is
// beyond a bound.
YamlDocument parse_yaml(std::string_view text);

}  // namespace router_file
