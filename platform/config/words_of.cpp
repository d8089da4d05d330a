// Nodes to words. The words are read again: only when they give this very path is the node one that words
// can express.
#include <algorithm>

#include "platform/config/grammar.h"
#include "platform/config/paths.h"
#include "platform/config/vrf_config.h"

namespace vrf_config {

namespace {

void append_words(const Elements& elements, const Fields& fields, Words* words) {
  for (const Element& element : elements) {
    words->push_back(element.type == nullptr ? std::string(element.literal) : element.type->write(fields));
  }
}

Words words_from(const Syntax& syntax, const Fields& fields) {
  Words words;
  append_words(syntax.required, fields, &words);
  for (const Elements& elements : syntax.optional) {
    if (!elements.back().type->write(fields).empty()) append_words(elements, fields, &words);
  }
  return words;
}

bool has_zero_octet(const std::string& word) {
  return word.find('\0') != std::string::npos;
}

// A line cannot have a zero octet, not even escaped.
bool give_this_node(const Words& words, const KvConfigNode& node) {
  if (std::ranges::any_of(words, has_zero_octet)) return false;
  const auto parsed = parse_words(words);
  const auto* nodes = std::get_if<std::vector<KvConfigNode>>(&parsed);
  return nodes != nullptr && nodes->size() == 1 && nodes->front().path == node.path;
}

}  // namespace

std::optional<Words> word_list_of(const KvConfigNode& node) {
  const std::optional<ParsedPath> path = parse_path(node.path);
  if (!path) return std::nullopt;
  std::optional<Fields> fields = fields_of(*path);
  if (!fields || !read_value(*path->item, node.value, &*fields)) return std::nullopt;
  Words words = words_from(syntax_of(*path->item), *fields);
  return give_this_node(words, node) ? std::optional(std::move(words)) : std::nullopt;
}

std::optional<std::string> words_of(const KvConfigNode& node) {
  const std::optional<Words> words = word_list_of(node);
  return words ? std::optional(join_words(*words)) : std::nullopt;
}

}  // namespace vrf_config
