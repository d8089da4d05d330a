// A YAML document as a tree of small nodes, with bounds on what a file may cost.
//
// yaml-cpp's own tree takes half a kilobyte per node: a file of six megabytes of "a," took 1.5 GB. Its parser
// reports events, from which this tree is built; a node takes about a hundred octets.
#pragma once

#include <yaml-cpp/mark.h>

#include <cstddef>
#include <cstdint>
#include <deque>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace router_file {

// Nodes of a document, an alias counting as all that it refers to. 10,000 VRFs with route targets, policies,
// thresholds and neighbors and 100,000 interfaces with two addresses each have two million nodes; 1,000,000
// written routes with a prefix and a next hop have five.
inline constexpr std::size_t kNodesMax = 6'000'000;
// Levels of nesting: twice what the grammar needs.
inline constexpr std::size_t kDepthMax = 16;
// Characters that can start a token, in a piece of text for which the parser has to look ahead (a list in
// brackets in the place of a key). It keeps all of the piece's tokens, of up to 250 octets each.
inline constexpr std::size_t kLookAheadMax = 1'000'000;

// Where and why a text is not a router file; read_router.cpp turns it into a ParseError.
class Misreading : public std::runtime_error {
 public:
  Misreading(const YAML::Mark& mark, const std::string& what) : std::runtime_error(what), mark_(mark) {}
  const YAML::Mark& mark() const { return mark_; }

 private:
  YAML::Mark mark_;
};

[[noreturn]] void refuse(const YAML::Mark& mark, const std::string& what);

class Node {
 public:
  enum class Kind : std::uint8_t { kNull, kScalar, kSequence, kMap };
  Node(Kind kind, const YAML::Mark& mark, std::string scalar = {}, bool is_quoted = false)
      : kind_(kind), is_quoted_(is_quoted), mark_(mark), scalar_(std::move(scalar)) {}

  bool is_null() const { return kind_ == Kind::kNull; }
  bool is_scalar() const { return kind_ == Kind::kScalar; }
  bool is_sequence() const { return kind_ == Kind::kSequence; }
  bool is_map() const { return kind_ == Kind::kMap; }
  bool is_quoted() const { return is_quoted_; }  // written between quotation marks
  const std::string& scalar() const { return scalar_; }
  const YAML::Mark& mark() const { return mark_; }
  // Of a sequence; of a map keys and values in turn.
  const std::vector<const Node*>& items() const { return items_; }

 private:
  friend class DocumentBuilder;
  Kind kind_;
  bool is_quoted_;
  std::uint32_t size_ = 0;  // in nodes, aliases expanded; 0 until the node is complete
  YAML::Mark mark_;
  std::string scalar_;
  std::vector<const Node*> items_;
};

struct YamlDocument {
  const Node* root = nullptr;  // null for a text without a document
  std::deque<Node> nodes;
};

// The one document of the text. Throws Misreading for a second document and for a text beyond a bound, and
// YAML::Exception.
YamlDocument parse_yaml(std::string_view text);

}  // namespace router_file
