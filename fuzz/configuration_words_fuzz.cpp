// Lines of configuration words and paths of configuration nodes.
//
// The input is a line; after a line break, a path with the value of a node. Words that are split, joined and
// split again are the same. Nodes that words configure, and words that nodes have, lead back to each other.
// Every error has a text.
#include <algorithm>

#include "fuzz/support.h"
#include "platform/config/items.h"

namespace {

using fuzz::require;
using vrf_config::WordError;
using vrf_config::Words;

std::vector<KvConfigNode> nodes_of(const Words& words) {
  const auto result = vrf_config::parse_words(words);
  if (const auto* error = std::get_if<WordError>(&result)) {
    require(!error->text.empty());
    return {};
  }
  return std::get<std::vector<KvConfigNode>>(result);
}

// What the words of a node configure is this node alone.
bool has_words(const KvConfigNode& node) {
  const std::optional<Words> words = vrf_config::word_list_of(node);
  if (!words) return false;
  require(nodes_of(*words) == std::vector<KvConfigNode>{node});
  const auto again = vrf_config::split_words(*vrf_config::words_of(node));
  require(std::holds_alternative<Words>(again) && std::get<Words>(again) == *words);
  return true;
}

void check_line(std::string_view line) {
  const auto split = vrf_config::split_words(line);
  if (const auto* error = std::get_if<WordError>(&split)) return require(!error->text.empty());
  const auto& words = std::get<Words>(split);
  const auto again = vrf_config::split_words(vrf_config::join_words(words));
  require(std::holds_alternative<Words>(again) && std::get<Words>(again) == words);
  const std::vector<KvConfigNode> nodes = nodes_of(words);
  require(std::ranges::all_of(nodes, has_words));
  for (const std::string& next : vrf_config::words_after(words)) require(!next.empty());
}

KvValue value_of(fuzz::Input input) {
  KvValue value;
  switch (fuzz::take_octet(&input) % 4) {
    case 0:
      value.type = KvValueType::kText;
      value.text = fuzz::text_of(input);
      break;
    case 1:
      value.type = KvValueType::kNumber;
      value.number = static_cast<std::int32_t>(fuzz::take_number(&input, 4));
      break;
    case 2:
      value.type = KvValueType::kTuple;
      while (input.size() >= 4) value.tuple.push_back(fuzz::take_number(&input, 4));
      break;
    default:
      break;
  }
  return value;
}

void check_path(const KvConfigNode& node) {
  (void)has_words(node);
  (void)vrf_config::vrf_of(node.path);
  (void)vrf_config::interface_of(node.path);
  const auto target = vrf_config::target_path_of(node.path);
  require(!target || vrf_config::kind_of(node.path).has_value());
  if (!target || !target->direction) return;
  require(vrf_config::route_target_of(node.path) == target->target);
  require(vrf_config::parse_target(vrf_config::target_text(target->target)).has_value());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const fuzz::Input input(data, size);
  const std::string text = fuzz::text_of(input);
  const std::size_t line_end = std::min(text.find('\n'), size);
  check_line(std::string_view(text).substr(0, line_end));
  if (line_end == size) return 0;
  const std::size_t path_end = std::min(text.find('\n', line_end + 1), size);
  const std::string path = text.substr(line_end + 1, path_end - line_end - 1);
  check_path({path, value_of(input.subspan(std::min(path_end + 1, size)))});
  return 0;
}
