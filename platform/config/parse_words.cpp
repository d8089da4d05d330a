// Words to nodes. The first words choose the syntax; a word that does not fit ends the reading with an
// exception that does not leave this file.
#include <algorithm>
#include <stdexcept>

#include "platform/config/grammar.h"
#include "platform/config/paths.h"
#include "platform/config/vrf_config.h"
#include "platform/core/text/words.h"

namespace vrf_config {

namespace {

using Nodes = std::vector<KvConfigNode>;
using Texts = std::vector<std::string>;

class BadWord : public std::runtime_error {
 public:
  explicit BadWord(const std::string& text, bool is_incomplete = false)
      : std::runtime_error(text), is_incomplete_(is_incomplete) {}
  WordError error() const { return {what(), is_incomplete_}; }

 private:
  bool is_incomplete_;
};

void add_new(Texts* texts, std::string text) {
  if (std::find(texts->begin(), texts->end(), text) == texts->end()) texts->push_back(std::move(text));
}

bool is_free(const Element& element) {
  return element.type != nullptr && !element.type->what.empty();
}

// Whether a word may be this element. The values of a free one are checked when it is read.
bool may_be(const Element& element, const std::string& word) {
  if (element.type == nullptr) return element.literal == word;
  const Texts& choices = element.choices;
  return is_free(element) || std::find(choices.begin(), choices.end(), word) != choices.end();
}

// Literals and choices; of free elements what `name` answers of their type.
Texts texts_of(const std::vector<const Element*>& elements, std::string_view WordType::*name) {
  Texts texts;
  for (const Element* element : elements) {
    if (is_free(*element)) {
      add_new(&texts, std::string(element->type->*name));
    } else if (element->type == nullptr) {
      add_new(&texts, std::string(element->literal));
    } else {
      for (const std::string& choice : element->choices) add_new(&texts, choice);
    }
  }
  return texts;
}

// Those that are not of the user's choice.
std::vector<const Element*> fixed_words(std::vector<const Element*> elements) {
  std::erase_if(elements, [](const Element* element) { return is_free(*element); });
  return elements;
}

class WordReader {
 public:
  explicit WordReader(Words words, bool may_abbreviate = false)
      : words_(std::move(words)), may_abbreviate_(may_abbreviate) {}

  Nodes read();
  // The words that may follow, once all were read without an error other than that words are missing.
  Texts following() const { return texts_of(expected_, &WordType::name); }
  const Words& words() const { return words_; }

 private:
  bool is_done() const { return at_ == words_.size(); }
  const Syntax& read_required();
  void read_place(std::vector<const Syntax*>* candidates, std::size_t place);
  void read_optional(const Syntax& syntax);
  void read_element(const Element& element);
  void write_out();
  void take(const Element& element);
  std::string take_text(const Element& element);
  std::string expected_names() const { return text::alternatives(texts_of(expected_, &WordType::what)); }
  [[noreturn]] void fail_unknown() const;
  void require_word() const;

  Words words_;
  const bool may_abbreviate_;
  std::size_t at_ = 0;
  std::vector<const Element*> expected_;  // at this place
  Draft draft_;
};

// The next word, if it abbreviates one of the expected ones.
void WordReader::write_out() {
  const std::vector<const Element*> fixed = fixed_words(expected_);
  if (!may_abbreviate_ || is_done() || fixed.size() != expected_.size()) return;
  const Texts meant = text::candidates(words_[at_], texts_of(fixed, &WordType::name));
  if (meant.size() == 1) words_[at_] = meant[0];
}

void WordReader::fail_unknown() const {
  const std::string& word = words_[at_];
  const Texts fixed = texts_of(fixed_words(expected_), &WordType::name);
  const Texts meant = text::candidates(word, fixed);
  if (meant.size() > 1) throw BadWord(text::quoted(word) + " is ambiguous: " + text::alternatives(meant));
  if (meant.size() == 1)
    throw BadWord(text::quoted(word) + " abbreviates " + text::quoted(meant[0]) +
                  "; lines of files have whole words");
  throw BadWord("unknown word " + text::quoted(word) + "; " +
                text::hint(word, fixed, "expected " + expected_names()));
}

void WordReader::require_word() const {
  if (!is_done()) return;
  const Words before(words_.begin(), words_.begin() + static_cast<std::ptrdiff_t>(at_));
  const std::string after = at_ == 0 ? "" : "after \"" + join_words(before) + "\": ";
  throw BadWord(after + "expected " + expected_names(), true);
}

std::string WordReader::take_text(const Element& element) {
  std::string text = words_[at_++];
  while (element.type->takes_rest && !is_done()) text += ' ' + words_[at_++];
  return text;
}

void WordReader::take(const Element& element) {
  expected_.clear();
  if (element.type == nullptr) {
    ++at_;
  } else if (const auto fault = element.type->read(*element.type, take_text(element), &draft_)) {
    throw BadWord(*fault);
  }
}

void WordReader::read_element(const Element& element) {
  expected_ = {&element};
  require_word();
  write_out();
  if (!may_be(element, words_[at_])) fail_unknown();
  take(element);
}

// Keeps the candidates that have the next word at this place: those with a literal, if there are any.
void WordReader::read_place(std::vector<const Syntax*>* candidates, std::size_t place) {
  expected_.clear();
  for (const Syntax* syntax : *candidates) expected_.push_back(&syntax->required[place]);
  require_word();
  write_out();
  std::erase_if(*candidates,
                [&](const Syntax* syntax) { return !may_be(syntax->required[place], words_[at_]); });
  if (candidates->empty()) fail_unknown();
  const auto is_typed = [=](const Syntax* syntax) { return syntax->required[place].type != nullptr; };
  if (!std::all_of(candidates->begin(), candidates->end(), is_typed)) std::erase_if(*candidates, is_typed);
  take(candidates->front()->required[place]);
}

const Syntax& WordReader::read_required() {
  std::vector<const Syntax*> candidates;
  for (const Syntax& syntax : all_syntaxes()) candidates.push_back(&syntax);
  for (std::size_t place = 0; place < candidates.front()->required.size(); ++place) {
    read_place(&candidates, place);
  }
  return *candidates.front();
}

void WordReader::read_optional(const Syntax& syntax) {
  for (const Elements& elements : syntax.optional) {
    const Element& first = elements.front();
    expected_.push_back(&first);
    write_out();
    const bool is_there = !is_done() && (first.type != nullptr || first.literal == words_[at_]);
    if (!is_there) continue;
    for (const Element& element : elements) read_element(element);
  }
  if (is_done()) return;
  if (!expected_.empty()) fail_unknown();
  throw BadWord(text::quoted(words_[at_]) + " is one word too many");
}

// The item of this syntax and direction.
const Item& item_with(const Syntax& syntax, std::optional<Direction> direction) {
  return **std::find_if(syntax.items.begin(), syntax.items.end(),
                        [=](const Item* item) { return item->direction == direction; });
}

Nodes nodes_of(const Syntax& syntax, Draft draft) {
  const auto defaults = syntax.items.front()->default_families;
  if (draft.families.empty()) draft.families.assign(defaults.begin(), defaults.end());
  if (draft.families.empty()) draft.families = {Family::kIpv4};  // the item has none
  std::vector<std::optional<Direction>> directions(draft.directions.begin(), draft.directions.end());
  if (directions.empty()) directions = {std::nullopt};
  Nodes nodes;
  for (const Family family : draft.families) {
    draft.fields.family = family;
    for (const auto direction : directions)
      nodes.push_back(node_of(item_with(syntax, direction), draft.fields));
  }
  return nodes;
}

Nodes WordReader::read() {
  const Syntax& syntax = read_required();
  read_optional(syntax);
  return nodes_of(syntax, draft_);
}

}  // namespace

std::variant<std::vector<KvConfigNode>, WordError> parse_words(const Words& words) {
  try {
    Nodes nodes = WordReader(words).read();
    for (const KvConfigNode& node : nodes) {
      if (node.path.size() > kKvMaxPath) return WordError{"the names are too long together"};
    }
    return nodes;
  } catch (const BadWord& bad) {
    return bad.error();
  }
}

std::vector<std::string> words_after(const Words& words) {
  WordReader reader(words);
  try {
    reader.read();
  } catch (const BadWord& bad) {
    if (!bad.error().is_incomplete) return {};
  }
  return reader.following();
}

Words whole_words(const Words& words) {
  WordReader reader(words, true);
  try {
    reader.read();
  } catch (const BadWord&) {  // the caller parses what is written out, and reports what is wrong
  }
  return reader.words();
}

}  // namespace vrf_config
