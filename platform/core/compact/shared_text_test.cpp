// Texts and blocks that copies share.
#include "platform/core/compact/shared_text.h"

#include <gtest/gtest.h>

#include <cstring>
#include <map>
#include <sstream>
#include <thread>

namespace {

TEST(SharedText, HasTheSizeOfAPointer) {
  EXPECT_EQ(sizeof(SharedText), sizeof(void*));
}

TEST(SharedText, CopiesShareTheirBlockAndLaterValuesDoNotChangeThem) {
  SharedText first = "red";
  const SharedText copy = first;
  EXPECT_TRUE(copy.is_same(first));
  first = "blue";
  EXPECT_EQ(copy, "red");
  EXPECT_EQ(first, "blue");
  EXPECT_FALSE(SharedText("red").is_same(copy));
  EXPECT_EQ(SharedText("red"), copy);
}

TEST(SharedText, EmptyTextIsATextToo) {
  const SharedText none;
  EXPECT_STREQ(none.c_str(), "");
  EXPECT_TRUE(none.empty());
  EXPECT_EQ(none, SharedText(""));
  EXPECT_TRUE(none.is_same(SharedText(std::string())));
  EXPECT_LT(none, SharedText("a"));
}

TEST(SharedText, ConvertsFromTextsAndToThem) {
  const SharedText text = std::string("ge0.100");
  EXPECT_EQ(std::strlen(text.c_str()), text.size());
  const std::string copy = text;
  const std::string_view view = text;
  EXPECT_EQ(copy, view);
  EXPECT_EQ("interface " + text + " is up", "interface ge0.100 is up");
  std::ostringstream out;
  out << text;
  EXPECT_EQ(out.str(), copy);
}

TEST(SharedText, OctetsAfterANulBelongToIt) {
  const SharedText text = std::string_view("a\0b", 3);
  EXPECT_EQ(text.size(), 3U);
  EXPECT_NE(text, SharedText("a"));
}

TEST(SharedText, IsOrderedAndFoundLikeItsOctets) {
  const std::map<SharedText, int, std::less<>> numbers = {{"b", 2}, {"a", 1}, {"ab", 3}};
  EXPECT_EQ(numbers.begin()->first, "a");
  EXPECT_EQ(numbers.find(std::string_view("ab"))->second, 3);
  EXPECT_EQ(numbers.find("c"), numbers.end());
}

TEST(SharedText, CopiesMayBeInSeveralThreads) {
  const SharedText text = "shared by two threads";
  const auto copy_often = [text] {
    for (int n = 0; n < 10'000; ++n) SharedText(text).empty();
  };
  std::thread other(copy_often);
  copy_often();
  other.join();
  EXPECT_EQ(text, "shared by two threads");
}

TEST(SharedBlock, ComparesElements) {
  const SharedBlock<int> numbers = std::vector<int>{1, 2};
  EXPECT_EQ(numbers, SharedBlock<int>(std::vector<int>{1, 2}));
  EXPECT_FALSE(numbers == SharedBlock<int>(std::vector<int>{1, 3}));
  EXPECT_FALSE(numbers == SharedBlock<int>());
  EXPECT_EQ(std::vector<int>(numbers.begin(), numbers.end()), (std::vector<int>{1, 2}));
}

TEST(SharedBlock, ReturnsAsTheSameBlockFromItsNumber) {
  SharedBlock<int> numbers = std::vector<int>{1, 2};
  const SharedBlock<int> copy = numbers;
  const std::uintptr_t number = numbers.release();
  EXPECT_EQ(number % 2, 0U);
  EXPECT_TRUE(numbers.empty());
  EXPECT_TRUE(SharedBlock<int>::adopt(number).is_same(copy));
  EXPECT_EQ(SharedBlock<int>().release(), 0U);
}

}  // namespace
