// Texts as parts of paths.
#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

#include "platform/core/base/test_fault.h"
#include "platform/store/tree/kvtree.h"

namespace {

TEST(KeyText, EverythingButTheNamedOctetsIsEscaped) {
  EXPECT_EQ(kvtree_encode_text("AZaz09_.:-"), "AZaz09_.:-");
  EXPECT_EQ(kvtree_encode_text("a/b c%"), "a%2Fb%20c%25");
  EXPECT_EQ(kvtree_encode_text("\xff"), "%FF");
  EXPECT_EQ(kvtree_encode_text(""), "");
  EXPECT_EQ(kvtree_encode_text("-"), "%2D");
  EXPECT_EQ(kvtree_encode_text("--"), "--");
}

TEST(KeyText, EveryTextIsDecodedToItself) {
  std::string text;
  for (int octet = 1; octet < 256; ++octet) text.push_back(static_cast<char>(octet));
  for (const std::string& each : {text, std::string("-"), std::string(), std::string("red")}) {
    char* encoded = nullptr;
    char* decoded = nullptr;
    ASSERT_EQ(kvtree_string_encode(each.c_str(), &encoded), kStatusOk);
    ASSERT_EQ(kvtree_string_decode(encoded, &decoded), kStatusOk);
    EXPECT_EQ(decoded, each);
    std::free(encoded);
    std::free(decoded);
  }
}

TEST(KeyText, MalformedEscapesAreBadKeys) {
  for (const char* encoded : {"%", "%4", "%4x", "a%00b"}) {
    char* decoded = nullptr;
    EXPECT_EQ(kvtree_string_decode(encoded, &decoded), kStatusBadKey) << encoded;
    std::free(decoded);
  }
}

TEST(KeyText, LowerCaseEscapesAreRead) {
  char* decoded = nullptr;
  ASSERT_EQ(kvtree_string_decode("%2f", &decoded), kStatusOk);
  EXPECT_STREQ(decoded, "/");
  std::free(decoded);
}

TEST(KeyText, MissingArgumentsAndFaultPointsFail) {
  char* out = nullptr;
  EXPECT_EQ(kvtree_string_encode(nullptr, &out), kStatusInvalid);
  EXPECT_EQ(kvtree_string_decode(nullptr, &out), kStatusInvalid);
  EXPECT_EQ(kvtree_string_encode("a", nullptr), kStatusInvalid);
  EXPECT_EQ(kvtree_string_decode("a", nullptr), kStatusInvalid);
  ExpectFault("kvtree_string_encode", [&] { return kvtree_string_encode("a", &out); });
  ExpectFault("kvtree_string_decode", [&] { return kvtree_string_decode("a", &out); });
  EXPECT_EQ(out, nullptr);
}

}  // namespace
