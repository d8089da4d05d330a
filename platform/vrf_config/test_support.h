// For the tests of configuration: nodes as texts, and words read or refused.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <variant>
#include <vector>

#include "platform/vrf_config/vrf_config.h"

namespace vrf_config {

// "PATH = 1", "PATH = 'text'", "PATH = (100, 80)".
inline std::string shown(const KvConfigNode& node) {
  switch (node.value.type) {
    case KvValueType::kText:
      return node.path + " = '" + node.value.text + "'";
    case KvValueType::kNumber:
      return node.path + " = " + std::to_string(node.value.number);
    case KvValueType::kTuple: {
      std::string numbers;
      for (const std::int64_t number : node.value.tuple) {
        numbers += (numbers.empty() ? "" : ", ") + std::to_string(number);
      }
      return node.path + " = (" + numbers + ")";
    }
    default:
      return node.path;
  }
}

inline std::vector<std::string> shown(const std::vector<KvConfigNode>& nodes) {
  std::vector<std::string> texts;
  for (const KvConfigNode& node : nodes) texts.push_back(shown(node));
  return texts;
}

inline Words split(std::string_view line) {
  const auto result = split_words(line);
  if (const auto* mistake = std::get_if<Mistake>(&result)) {
    ADD_FAILURE() << line << ": " << mistake->text;
    return {};
  }
  return std::get<Words>(result);
}

inline std::vector<KvConfigNode> read(std::string_view line) {
  const auto result = parse_words(split(line));
  if (const auto* mistake = std::get_if<Mistake>(&result)) {
    ADD_FAILURE() << line << ": " << mistake->text;
    return {};
  }
  return std::get<std::vector<KvConfigNode>>(result);
}

// What is wrong with the line; empty when nothing is.
inline std::string mistake_in(std::string_view line) {
  const auto result = parse_words(split(line));
  const auto* mistake = std::get_if<Mistake>(&result);
  return mistake == nullptr ? "" : mistake->text;
}

inline std::string split_mistake(std::string_view line) {
  const auto result = split_words(line);
  const auto* mistake = std::get_if<Mistake>(&result);
  return mistake == nullptr ? "" : mistake->text;
}

}  // namespace vrf_config
