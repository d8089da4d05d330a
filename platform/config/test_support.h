// For tests of configuration: nodes as texts, words that are parsed or rejected, and the contents of the data
// store in words.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <variant>
#include <vector>

#include "platform/config/vrf_config.h"
#include "platform/store/configuration/configuration.h"

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
  if (const auto* error = std::get_if<WordError>(&result)) {
    ADD_FAILURE() << line << ": " << error->text;
    return {};
  }
  return std::get<Words>(result);
}

inline std::vector<KvConfigNode> read(std::string_view line) {
  const auto result = parse_words(split(line));
  if (const auto* error = std::get_if<WordError>(&result)) {
    ADD_FAILURE() << line << ": " << error->text;
    return {};
  }
  return std::get<std::vector<KvConfigNode>>(result);
}

// The error in the line; empty for none.
inline std::string error_in(std::string_view line) {
  const auto result = parse_words(split(line));
  const auto* error = std::get_if<WordError>(&result);
  return error == nullptr ? "" : error->text;
}

inline std::string split_error(std::string_view line) {
  const auto result = split_words(line);
  const auto* error = std::get_if<WordError>(&result);
  return error == nullptr ? "" : error->text;
}

// The words of a node; its path if words cannot express it.
inline std::string words_or_path(const KvConfigNode& node) {
  return words_of(node).value_or(node.path);
}

inline std::vector<std::string> words_in_force() {
  std::vector<std::string> all;
  kvtree_config_effective("/cfg/", [&](const KvConfigNode& node) { all.push_back(words_or_path(node)); });
  return all;
}

inline std::vector<std::string> words_owned(std::string_view owner) {
  std::vector<std::string> all;
  kvtree_config_owned(owner, [&](const KvConfigNode& node) { all.push_back(words_or_path(node)); });
  return all;
}

// The number of commits in the history, up to a hundred.
inline std::size_t commit_count() {
  std::vector<KvConfigCommit> commits;
  EXPECT_EQ(kvtree_config_history(100, {}, &commits), kStatusOk);
  return commits.size();
}

}  // namespace vrf_config
