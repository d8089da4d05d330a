// For tests: a client that commits over the wire.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <string_view>
#include <vector>

#include "platform/store/configuration/test_configuration.h"
#include "platform/store/server/test_served_store.h"

class ClientCommit : public ServedStore {
 protected:
  ~ClientCommit() override { kv_config_limits = {}; }
  void OwnerCommits(std::string_view owner, const std::vector<KvConfigChange>& changes) {
    ASSERT_FALSE(thread.joinable());
    ASSERT_EQ(kvtree_config_commit(owner, changes, ""), kStatusOk);
  }
  // "path=value (owner)".
  std::vector<std::string> Nodes(std::string_view path = "/", std::string_view owner = {}) {
    std::vector<std::string> all;
    const kvtree::NodesResult result = client.nodes(path, 1000, {}, owner);
    EXPECT_EQ(result.status, kStatusOk);
    for (const kvtree::Node& node : result.nodes)
      all.push_back(node.path + "=" + Describe(node.value) + " (" + node.owner + ")");
    return all;
  }
  static std::vector<KvConfigChange> Many(std::size_t count) {
    std::vector<KvConfigChange> changes;
    for (std::size_t i = 0; i < count; ++i) changes.push_back(SetTo("/cfg/" + std::to_string(i), "x"));
    return changes;
  }
};
