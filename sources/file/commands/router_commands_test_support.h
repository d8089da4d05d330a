// For tests of the action "router": its commands as lines, on a model.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <sstream>
#include <string>
#include <vector>

#include "platform/core/base/fault.h"
#include "platform/store/tree/actions.h"
#include "sources/file/commands/router_action.h"

class RouterCommands : public ::testing::Test {
 protected:
  // Splits at blanks; '_' inside a word becomes a blank.
  Status Say(const std::string& line, bool may_change = true, KvSteps* steps = nullptr) {
    std::vector<std::string> words = {"router"};
    std::istringstream stream(line);
    for (std::string word; stream >> word;) {
      std::replace(word.begin(), word.end(), '_', ' ');
      words.push_back(word);
    }
    return action_.run({may_change, nullptr, steps}, words, &text_);
  }
  void Do(const std::string& line) { ASSERT_EQ(Say(line), kStatusOk) << line << ": " << text_; }

  router::Router router_;
  int reloads_ = 0;
  RouterAction action_{&router_, [this](const KvActionEnd&) { ++reloads_; }};
  std::string text_;
};
