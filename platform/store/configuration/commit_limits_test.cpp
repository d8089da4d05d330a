// Tests of the limits of a commit and of the configuration.
#include "platform/store/configuration/test_configuration.h"

namespace {

class ConfigLimits : public ConfigTest {
 protected:
  ~ConfigLimits() override { kv_config_limits = {}; }
  std::string TooLarge(const std::vector<KvConfigChange>& changes) {
    return Refused("user", changes, kStatusMessageTooLarge);
  }
};

TEST_F(ConfigLimits, OctetsOfACommit) {
  kv_config_limits.commit_octets = 10;
  EXPECT_EQ(TooLarge({SetTo("/cfg/a", "1234"), SetTo("/cfg/b", "")}),
            "a commit sets at most 10 octets of paths and values");
  Make("user", {SetTo("/cfg/a", "1234")}, "");
  EXPECT_EQ(TooLarge({{"/cfg/b", TupleValue({1})}}), "a commit sets at most 10 octets of paths and values");
  Make("user", {Withdraw("/cfg/a")}, "");
}

TEST_F(ConfigLimits, NodesOfTheConfiguration) {
  kv_config_limits.nodes = 3;
  Make("script", {SetTo("/cfg/a", "x"), SetTo("/cfg/b", "x"), SetTo("/cfg/c", "x")}, "");
  Make("user", {SetTo("/cfg/a", "y"), SetTo("/cfg/b", "x")}, "");
  EXPECT_EQ(TooLarge({SetTo("/cfg/d", "x")}), "the configuration has at most 3 nodes");
  Make("script", {Withdraw("/cfg/c"), Withdraw("/cfg/b")}, "");
  Make("user", {SetTo("/cfg/d", "x")}, "");
  EXPECT_EQ(TooLarge({SetTo("/cfg/e", "x")}), "the configuration has at most 3 nodes");
  kv_config_limits.nodes = 1;
  Make("user", {Withdraw("/cfg/d")}, "");
}

TEST_F(ConfigLimits, OctetsOfTheConfiguration) {
  ASSERT_EQ(Keep(), kStatusOk);
  kv_config_limits.octets = 30;
  Make("script", {SetTo("/cfg/a", "1234")}, "");
  Make("user", {SetTo("/cfg/a", "1234")}, "");
  const std::string reason = "the configuration has at most 30 octets of paths and values";
  EXPECT_EQ(TooLarge({SetTo("/cfg/b", "12345")}), reason);
  Restart();
  EXPECT_EQ(TooLarge({SetTo("/cfg/b", "12345")}), reason);
  EXPECT_EQ(TooLarge({SetTo("/cfg/a", "1234567890123456")}), reason);
  Make("script", {Withdraw("/cfg/a")}, "");
  Make("user", {SetTo("/cfg/b", "12345")}, "");
}

}  // namespace
