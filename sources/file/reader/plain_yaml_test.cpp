// The events of the reader of plain YAML are those of yaml-cpp's parser.
#include "sources/file/reader/plain_yaml.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <yaml-cpp/exceptions.h>
#include <yaml-cpp/parser.h>

#include <optional>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "sources/large_configuration_test_support.h"

namespace router_file {
namespace {

class Recorder : public YAML::EventHandler {
 public:
  std::vector<std::string> events;

  void OnDocumentStart(const YAML::Mark&) override { events.emplace_back("document"); }
  void OnDocumentEnd() override { events.emplace_back("end of document"); }
  void OnNull(const YAML::Mark& mark, YAML::anchor_t) override { Add("null", mark); }
  void OnAlias(const YAML::Mark& mark, YAML::anchor_t) override { Add("alias", mark); }
  void OnScalar(const YAML::Mark& mark, const std::string& tag, YAML::anchor_t anchor,
                const std::string& value) override {
    Add((tag == "!" ? "quoted " : "scalar ") + std::to_string(anchor) + " " + value, mark);
  }
  void OnSequenceStart(const YAML::Mark& mark, const std::string&, YAML::anchor_t anchor,
                       YAML::EmitterStyle::value style) override {
    Add("sequence " + std::to_string(anchor) + " " + std::to_string(style), mark);
  }
  void OnSequenceEnd() override { events.emplace_back("end of sequence"); }
  void OnMapStart(const YAML::Mark& mark, const std::string&, YAML::anchor_t anchor,
                  YAML::EmitterStyle::value style) override {
    Add("map " + std::to_string(anchor) + " " + std::to_string(style), mark);
  }
  void OnMapEnd() override { events.emplace_back("end of map"); }

 private:
  void Add(const std::string& what, const YAML::Mark& mark) {
    events.push_back(std::to_string(mark.line) + ":" + std::to_string(mark.column) + ":" +
                     std::to_string(mark.pos) + " " + what);
  }
};

using Events = std::optional<std::vector<std::string>>;  // none for a text that is not read

Events PlainEvents(const std::string& text) {
  Recorder recorder;
  if (!read_plain_yaml(text, &recorder)) return std::nullopt;
  return recorder.events;
}

Events LibraryEvents(const std::string& text) {
  Recorder recorder;
  std::istringstream stream(text);
  try {
    YAML::Parser parser(stream);
    while (parser.HandleNextDocument(recorder)) {
    }
  } catch (const YAML::Exception&) {
    return std::nullopt;
  }
  return recorder.events;
}

void ExpectPlain(const std::string& text) {
  const Events events = PlainEvents(text);
  ASSERT_TRUE(events.has_value()) << text;
  EXPECT_EQ(events, LibraryEvents(text)) << text;
}

TEST(PlainYaml, BlocksFlowsQuotesAndCommentsAreReadAsTheLibraryReadsThem) {
  for (const char* text : {
           "a: b\n",
           "a: b",
           "# first\n\na: b c,d e # last\n   # indented\nb2: 'x # y'\n",
           "vrfs:\n- name: red\n  id: 7\n- {name: blue, id: 8}\ninterfaces: []\n",
           "vrfs:\n  - name: red\n    both: [65000:1, \"a: b\", 192.0.2.1/24]\n\n  -   name: x\n      id: "
           "1\nz: 2\n",
           "a:\n  b:\n    c: [ x , y ]\n    d: {e: f, g: {h: [i, j]}}\n  k: 2001:db8::1/64\n",
           "a:\n  - b\n  - c d\n",
           "a:\n   - b: c\n     d:\n     - e\n     - f\n   - g: h\ni: j",
       })
    ExpectPlain(text);
}

TEST(PlainYaml, LargeRouterFilesArePlain) {
  ExpectPlain(router_file_text(20));
  ExpectPlain("generate: {vrfs: 10, interfaces_per_vrf: 10}\n");
}

TEST(PlainYaml, AnythingElseIsLeftToTheLibrary) {
  for (const char* text : {"",
                           "- a\n",
                           "{a: b}\n",
                           "a: &x b\nc: *x\n",
                           "a: |\n  b\n",
                           "a:\nb: c\n",
                           "a: ~\n",
                           "a: null\n",
                           "a: b\n c\n",
                           "a: [b,\n c]\n",
                           "a: [b, ]\n",
                           "a: \"b\\n\"\n",
                           "a: 'it''s'\n",
                           "a: b: c\n",
                           "a: b\n---\nc: d\n",
                           "a: !t b\n",
                           "\"a\": b\n",
                           "a:\tb\n",
                           "a: \xc3\xa4\n",
                           "a: b\r\n",
                           "a: {}\n",
                           "a: [b: c]\n",
                           "a: - b\n",
                           "%YAML 1.2\n---\na: b\n",
                           "a:\n    b: c\n  d: e\n",
                           "- a\nb: c\n",
                           "a: b\n- c\n",
                           "a: {b: c\n",
                           "a: [b}\n",
                           "a: 'b\n",
                           "a: b #c\n d\n"})
    EXPECT_EQ(PlainEvents(text), std::nullopt) << text;
}

// Texts of tokens that matter, in any order: what is read plainly is read as by the library.
TEST(PlainYaml, NoTextHasOtherEventsThanTheLibrarys) {
  constexpr const char* kTokens[] = {
      "a", "b1",  ": ",     ":",    "\n",     "\n  ",      "\n    ", "- ",    "-",   "{",      "}",
      "[", "]",   ", ",     ",",    " ",      " #x",       "#",      "\"q\"", "'q'", "::1/",   "null",
      ".", "a: ", "\na: b", "\n- ", "\n  - ", "a: [b, c]", "{a: b}", "...",   "---", "\n a: b"};
  std::mt19937 random(4);  // NOLINT(cert-msc51-cpp,cert-msc32-c): the same texts in every run
  unsigned plain = 0;
  for (unsigned round = 0; round < 60000; ++round) {
    std::string text = random() % 2 == 0 ? "a: " : "a:\n";
    for (auto tokens = random() % 9; tokens > 0; --tokens) text += kTokens[random() % std::size(kTokens)];
    const Events events = PlainEvents(text);
    if (!events) continue;
    ++plain;
    ASSERT_EQ(events, LibraryEvents(text)) << text;
  }
  EXPECT_GT(plain, 1000U);
}

}  // namespace
}  // namespace router_file
