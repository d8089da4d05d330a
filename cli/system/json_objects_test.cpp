#include "cli/system/json_objects.h"

#include <gmock/gmock.h>

#include <vector>

namespace cli {
namespace {

using ::testing::ElementsAre;

std::vector<std::string> Divided(JsonObjects* objects, std::string_view text, std::size_t length) {
  std::vector<std::string> found;
  for (std::size_t at = 0; at < text.size(); at += length)
    objects->add(text.substr(at, length), [&found](const std::string& object) { found.push_back(object); });
  return found;
}

TEST(JsonObjects, EndWhereTheirBracesEndInPartsOfAnyLength) {
  const std::string text = R"(warning: no } file
{}
{"a}\"{\\": {"b": "{"}}{"c": [{}]}
)";
  for (std::size_t length = 1; length <= text.size(); ++length) {
    JsonObjects objects;
    EXPECT_THAT(Divided(&objects, text, length),
                ElementsAre("{}", R"({"a}\"{\\": {"b": "{"}})", R"({"c": [{}]})"))
        << length;
    EXPECT_EQ(objects.rest(), "warning: no } file\n\n\n");
  }
}

TEST(JsonObjects, OneThatHasNotEndedIsCounted) {
  JsonObjects objects;
  EXPECT_THAT(Divided(&objects, R"({"a": 1} {"b")", 4), ElementsAre(R"({"a": 1})"));
  EXPECT_EQ(objects.octets(), 4U);
}

}  // namespace
}  // namespace cli
