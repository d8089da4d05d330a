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

bool is_choice(const Element& element, const std::string& word) {
  const Texts choices = choices_of(*element.type);
  return std::find(choices.begin(), choices.end(), word) != choices.end();
}

bool is_free(const Element& element) {
  return element.type != nullptr && !element.type->what.empty();
}

// The words at a place, as they are typed and as messages name them.
struct Expected {
  Texts words;
  Texts names;

  void add(const Element& element) {
    if (is_free(element)) {
      add_new(&words, std::string(element.type->name));
      add_new(&names, std::string(element.type->what));
      return;
    }
    for (const std::string& word :
         element.type == nullptr ? Texts{std::string(element.literal)} : choices_of(*element.type)) {
      add_new(&words, word);
      add_new(&names, word);
    }
  }
};

class WordReader {
 public:
  explicit WordReader(const Words& words) : words_(words) {}

  Nodes read();
  // The words that may follow, once all were read without an error other than that words are missing.
  const Texts& following() const { return expected_.words; }

 private:
  bool is_done() const { return at_ == words_.size(); }
  const Syntax& read_required();
  void read_place(std::vector<const Syntax*>* candidates, std::size_t place);
  void read_optional(const Syntax& syntax);
  void read_element(const Element& element);
  std::string take_text(const Element& element);
  [[noreturn]] void fail_unknown() const;
  void require_word() const;

  const Words& words_;
  std::size_t at_ = 0;
  Expected expected_;  // at this place
  Draft draft_;
};

void WordReader::fail_unknown() const {
  throw BadWord("unknown word " + text::quoted(words_[at_]) + "; expected " +
                text::alternatives(expected_.names));
}

void WordReader::require_word() const {
  if (!is_done()) return;
  const std::string after = at_ == 0 ? "" : " after " + text::quoted(words_[at_ - 1]);
  throw BadWord(text::alternatives(expected_.names) + " is missing" + after, true);
}

std::string WordReader::take_text(const Element& element) {
  std::string text = words_[at_++];
  while (element.type->takes_rest && !is_done()) text += ' ' + words_[at_++];
  return text;
}

void WordReader::read_element(const Element& element) {
  expected_ = {};
  expected_.add(element);
  require_word();
  if (element.type == nullptr ? words_[at_] != element.literal
                              : !is_free(element) && !is_choice(element, words_[at_])) {
    fail_unknown();
  }
  expected_ = {};
  if (element.type == nullptr) {
    ++at_;
  } else if (const auto fault = element.type->read(*element.type, take_text(element), &draft_)) {
    throw BadWord(*fault);
  }
}

// Of the candidates those stay whose word at this place is the next one: a literal before any other.
void WordReader::read_place(std::vector<const Syntax*>* candidates, std::size_t place) {
  expected_ = {};
  for (const Syntax* syntax : *candidates) expected_.add(syntax->required[place]);
  require_word();
  std::vector<const Syntax*> literal;
  std::vector<const Syntax*> typed;
  for (const Syntax* syntax : *candidates) {
    const Element& element = syntax->required[place];
    if (element.type != nullptr) {
      if (is_free(element) || is_choice(element, words_[at_])) typed.push_back(syntax);
    } else if (element.literal == words_[at_]) {
      literal.push_back(syntax);
    }
  }
  if (literal.empty() && typed.empty()) fail_unknown();
  *candidates = literal.empty() ? typed : literal;
  read_element(candidates->front()->required[place]);
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
    expected_.add(first);
    const bool is_there = !is_done() && (first.type != nullptr || first.literal == words_[at_]);
    if (!is_there) continue;
    for (const Element& element : elements) read_element(element);
  }
  if (is_done()) return;
  if (!expected_.names.empty()) fail_unknown();
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

}  // namespace vrf_config
