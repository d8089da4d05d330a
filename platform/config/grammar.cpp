#include "platform/config/grammar.h"

#include <algorithm>

#include "platform/core/text/words.h"

namespace vrf_config {

namespace {

Elements elements_of(std::string_view words) {
  Elements elements;
  for (const std::string_view word : text::split(words, ' ')) {
    const WordType* type = find_word_type(word);
    elements.push_back({word, type, type == nullptr ? std::vector<std::string>() : choices_of(*type)});
  }
  return elements;
}

Syntax syntax_from(const Item& item) {
  Syntax syntax{item.words, {&item}, {}, {}};
  const std::size_t bracket = std::min(item.words.find(" ["), item.words.size());
  syntax.required = elements_of(item.words.substr(0, bracket));
  for (std::string_view rest = item.words.substr(bracket); !rest.empty();) {
    const std::size_t end = rest.find(']');
    syntax.optional.push_back(elements_of(rest.substr(2, end - 2)));
    rest.remove_prefix(end + 1);
  }
  return syntax;
}

constexpr std::size_t kHelpColumn = 50;
constexpr std::size_t kHelpWidth = 48;

// One line, or two when the words leave no space for the help.
std::string help_line(const Item& item) {
  std::string line = "  " + std::string(item.words);
  if (item.help.empty()) return line + '\n';
  if (line.size() > kHelpColumn) line += '\n' + std::string(kHelpColumn + 2, ' ');
  if (line.size() < kHelpColumn + 2) line.resize(kHelpColumn + 2, ' ');
  return line.append(item.help) + '\n';
}

// What ITEM is, in lines of at most kHelpWidth beyond the column of the help.
std::string choices_help(const std::vector<std::string>& choices) {
  std::string lines;
  std::string line;
  for (const std::string& choice : choices) {
    const std::string text = choice + (&choice == &choices.back() ? "" : ", ");
    if (line.size() + text.size() > kHelpWidth) {
      lines += std::string(kHelpColumn + 2, ' ') + line.substr(0, line.find_last_not_of(' ') + 1) + '\n';
      line.clear();
    }
    line += text;
  }
  return lines + std::string(kHelpColumn + 2, ' ') + line + '\n';
}

// Types whose name does not list their choices.
bool needs_choices(const Element& element) {
  return !element.choices.empty() && element.literal.find('|') == std::string_view::npos;
}

auto with_words(std::string_view words) {
  return [=](const Syntax& syntax) { return syntax.words == words; };
}

}  // namespace

const std::vector<Syntax>& all_syntaxes() {
  static const std::vector<Syntax> all = [] {
    std::vector<Syntax> made;
    for (const Item& item : all_items()) {
      const auto same = std::find_if(made.begin(), made.end(), with_words(item.words));
      if (same == made.end()) {
        made.push_back(syntax_from(item));
      } else {
        same->items.push_back(&item);
      }
    }
    return made;
  }();
  return all;
}

const Syntax& syntax_of(const Item& item) {
  return *std::find_if(all_syntaxes().begin(), all_syntaxes().end(), with_words(item.words));
}

std::string words_help() {
  std::string help;
  for (const Syntax& syntax : all_syntaxes()) {
    help += help_line(*syntax.items.front());
    for (const Element& element : syntax.required) {
      if (needs_choices(element)) help += choices_help(element.choices);
    }
  }
  return help;
}

}  // namespace vrf_config
