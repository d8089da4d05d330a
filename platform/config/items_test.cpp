// Each row of the table is complete: its keys and words are known, and its words give its own node.
#include "platform/config/items.h"

#include <gmock/gmock.h>

#include <fstream>
#include <iterator>
#include <set>

#include "platform/config/grammar.h"
#include "platform/config/owners.h"
#include "platform/config/path_keys.h"
#include "platform/config/paths.h"
#include "platform/config/test_support.h"
#include "platform/config/word_types.h"
#include "platform/store/configuration/config_tree.h"

namespace vrf_config {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::SizeIs;

// The first of these words that the type accepts.
std::string example_word(const WordType& type) {
  for (const char* word : {"name", "65000:1", "10.0.0.0/8", "192.0.2.1", "7"}) {
    Draft draft;
    draft.fields.number = 7;  // the maximum that a mid threshold may have
    if (!type.read(type, word, &draft)) return word;
  }
  ADD_FAILURE() << type.name << " accepts none of the examples: add one";
  return {};
}

Words example_words(const Elements& elements) {
  Words words;
  for (const Element& element : elements) {
    if (element.type == nullptr) {
      words.emplace_back(element.literal);
    } else {
      words.push_back(element.choices.empty() ? example_word(*element.type) : element.choices.front());
    }
  }
  return words;
}

// The words of an item, with those of its optional words or without.
Words example_of(const Syntax& syntax, bool with_optional) {
  Words words = example_words(syntax.required);
  for (const Elements& elements : syntax.optional) {
    const Words more = example_words(elements);
    if (with_optional) words.insert(words.end(), more.begin(), more.end());
  }
  return words;
}

TEST(Items, HaveKindsOfTheirOwn) {
  std::set<Kind> kinds;
  for (const Item& item : all_items()) EXPECT_TRUE(kinds.insert(item.kind).second) << item.words;
  for (const Kind kind : kinds) EXPECT_EQ(item_of(kind).kind, kind);
}

TEST(Items, HaveKeysThatAreKnown) {
  for (const Item& item : all_items()) {
    for (std::size_t at = item.path.find('<'); at != std::string_view::npos;
         at = item.path.find('<', at + 1)) {
      const std::string_view name = item.path.substr(at + 1, item.path.find('>', at) - at - 1);
      EXPECT_TRUE(name.starts_with('=') || find_key(name) != nullptr) << item.path << ": " << name;
    }
  }
}

// Words in upper case are not literals.
TEST(Items, HaveWordsThatAreKnown) {
  for (const Syntax& syntax : all_syntaxes()) {
    for (const Element& element : syntax.required) {
      const bool is_literal =
          element.literal.find_first_of("ABCDEFGHIJKLMNOPQRSTUVWXYZ|") == std::string_view::npos;
      EXPECT_EQ(element.type == nullptr, is_literal) << syntax.words << ": " << element.literal;
    }
  }
}

TEST(Items, AreReadFromTheirWordsAndWrittenAsThem) {
  std::set<Kind> seen;
  for (const Syntax& syntax : all_syntaxes()) {
    for (const bool with_optional : {false, true}) {
      const Words words = example_of(syntax, with_optional);
      const auto nodes = read(join_words(words));
      ASSERT_FALSE(nodes.empty()) << join_words(words);
      const std::optional<ParsedPath> path = parse_path(nodes.front().path);
      ASSERT_TRUE(path.has_value()) << nodes.front().path;
      EXPECT_EQ(syntax_of(*path->item).words, syntax.words) << nodes.front().path;
      EXPECT_TRUE(exact_fields_of(nodes.front().path).has_value()) << nodes.front().path;
      if (with_optional) {
        EXPECT_EQ(word_list_of(nodes.front()), words);
      }
      seen.insert(path->item->kind);
    }
  }
  EXPECT_TRUE(seen.contains(Kind::kImportTarget));
  EXPECT_EQ(seen.size(), all_syntaxes().size());
}

TEST(Items, AreAllInTheHelp) {
  const std::string help = words_help();
  for (const Item& item : all_items()) EXPECT_THAT(help, HasSubstr("  " + std::string(item.words)));
  for (const std::string_view trap : kTrapItems) EXPECT_THAT(help, HasSubstr(std::string(trap)));
}

// The documentation escapes the bars of alternatives, which separate cells.
TEST(Items, AreAllInTheDocumentation) {
  std::ifstream file("docs/configuration.md");
  const std::string text((std::istreambuf_iterator<char>(file)), {});
  ASSERT_FALSE(text.empty()) << "run the test in the source folder";
  for (const Item& item : all_items()) {
    std::string words(item.words);
    for (std::size_t at = 0; (at = words.find('|', at)) != std::string::npos; at += 2) words.insert(at, "\\");
    EXPECT_THAT(text, HasSubstr("`" + words + "`"));
  }
}

// --- Owners

TEST(Owners, HaveOrigins) {
  std::vector<std::string> origins;
  for (const std::string_view owner : kConfigOwners) origins.emplace_back(origin(owner));
  EXPECT_THAT(origins, ElementsAre("operator", "router file", "configured", "derived", "kernel"));
  EXPECT_EQ(origin(""), "");
}

class RegisteredOwners : public ::testing::Test {
 protected:
  void SetUp() override {
    kvtree_reset();
    ASSERT_EQ(register_configuration(), kStatusOk);
  }
};

// Databases of earlier releases have these numbers.
TEST_F(RegisteredOwners, HaveTheirNumbersInTheHistory) {
  std::vector<int> numbers;
  for (const std::string_view owner : kConfigOwners)
    numbers.push_back(kvtree::owner_number(kvtree::find_owner(owner)));
  EXPECT_THAT(numbers, ElementsAre(0, 1, 2, 4, 3));
}

TEST_F(RegisteredOwners, CommandLineMakesTheCommitsOfClients) {
  EXPECT_EQ(kvtree::client_owner(), kConfigOwnerCli);
}

TEST_F(RegisteredOwners, RoutingProtocolsAreCounted) {
  EXPECT_THAT(counted_scopes(), SizeIs(5));
  for (const std::string_view scope : counted_scopes()) EXPECT_TRUE(kvtree::is_counted(scope)) << scope;
  EXPECT_FALSE(kvtree::is_counted(kVrfScope));
  EXPECT_FALSE(kvtree::is_counted(kTrapScope));
}

}  // namespace
}  // namespace vrf_config
