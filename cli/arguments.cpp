#include "cli/arguments.h"

#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <algorithm>

#include "cli/output/table.h"
#include "cli/words/known_words.h"
#include "platform/core/text/words.h"

namespace cli {

namespace {

constexpr char kMark = '\x1f';
constexpr char kHelpWord[] = "help";

using Commands = std::vector<const CLI::App*>;

std::vector<std::string> names_of(const Commands& commands) {
  std::vector<std::string> names;
  for (const CLI::App* command : commands) names.push_back(command->get_name());
  return names;
}

Failure usage_failure(const std::string& what, const CLI::App& command) {
  return {kExitUsage, fmt::format("{} ({} --help)", what, full_name(command))};
}

// Failure(kExitUsage) that names the help of the command.
std::string whole_word(const char* kind, const std::string& word, const std::vector<std::string>& known,
                       const CLI::App& command) {
  const KnownWord found = find_known(kind, word, known);
  if (!found.error.empty()) throw usage_failure(found.error, command);
  return found.word;
}

std::size_t most_words(const CLI::App& command) {
  std::size_t most = 0;
  for (const CLI::Option* option : command.get_options()) {
    if (option->get_positional()) most += static_cast<std::size_t>(option->get_items_expected_max());
  }
  return most;
}

class Resolver {
 public:
  explicit Resolver(const CLI::App& app) : app_(app), command_(&app) {}

  std::vector<std::string> resolve(const std::vector<std::string>& words) {
    for (const std::string& word : words) take(word);
    if (is_value_) throw missing_value();
    if (is_help_) resolved_.emplace_back("--help");
    if (!is_help_ && !is_version_ && !subcommands_of(*command_).empty()) throw missing_word();
    return std::move(resolved_);
  }

 private:
  Failure missing_word() const {
    return usage_failure(
        fmt::format("a word is missing after {}; expected {}", text::quoted(full_name(*command_)),
                    text::alternatives(names_of(subcommands_of(*command_)))),
        *command_);
  }

  Failure missing_value() const {
    return usage_failure(fmt::format("a value is missing after {}", text::quoted(resolved_.back())),
                         *command_);
  }

  void take(const std::string& word) {
    const bool ends_options = word == "--" && command_->get_prefix_command() && words_ == 0;
    if (ends_options && resolved_.back() == command_->get_name()) return;
    if (is_value_ || command_->get_prefix_command()) {
      resolved_.push_back(word);
      is_value_ = false;
    } else if (is_plain_ || !word.starts_with('-') || word == "-") {
      take_word(word);
    } else if (word == "--") {
      is_plain_ = true;
    } else {
      take_option(word);
    }
  }

  void take_word(const std::string& word) {
    const Commands commands = subcommands_of(*command_);
    if (!commands.empty()) return take_command(word, commands);
    if (is_help_) return;  // the help of "show vrf red" is that of "show vrf"
    if (++words_ > most_words(*command_))
      throw usage_failure(fmt::format("unexpected word {}", text::quoted(printable(word))), *command_);
    resolved_.push_back(kMark + word);
  }

  void take_command(const std::string& word, const Commands& commands) {
    const CLI::App* named = find_command(*command_, word);  // a hidden one is not in the list
    if (named == nullptr)
      named = find_command(*command_, whole_word("word", word, names_of(commands), *command_));
    if (command_ == &app_ && named->get_name() == kHelpWord) {
      is_help_ = true;
      return;
    }
    resolved_.push_back(named->get_name());
    command_ = named;
  }

  void take_option(const std::string& word) {
    const std::size_t length = word.find('=');
    std::string name = word.substr(0, length);
    if (find_option(*command_, name) == nullptr)
      name = whole_word("option", name, option_names(*command_), *command_);
    const CLI::Option* option = find_option(*command_, name);
    is_value_ = length == std::string::npos && option->get_items_expected_max() > 0;
    is_version_ = is_version_ || option->check_lname("version");
    if (option->check_lname("help")) return take_help_option();
    resolved_.push_back(length == std::string::npos ? name : name + word.substr(length));
  }

  void take_help_option() {
    if (is_help_ && command_ == &app_) resolved_.emplace_back(kHelpWord);  // the help of "help"
    is_help_ = true;
  }

  const CLI::App& app_;
  const CLI::App* command_;  // of the words so far
  std::vector<std::string> resolved_;
  std::size_t words_ = 0;  // of the command
  bool is_value_ = false;  // the next word is the value of an option
  bool is_plain_ = false;  // no word is an option, after "--"
  bool is_help_ = false;
  bool is_version_ = false;
};

}  // namespace

const CLI::Option* find_option(const CLI::App& command, const std::string& name) {
  for (const CLI::App* app = &command; app != nullptr; app = app->get_parent()) {
    if (const CLI::Option* option = app->get_option_no_throw(name)) return option;
  }
  return nullptr;
}

const CLI::App* find_command(const CLI::App& command, const std::string& name) {
  const Commands found =
      command.get_subcommands([&](const CLI::App* below) { return below->get_name() == name; });
  return found.empty() ? nullptr : found[0];
}

std::vector<const CLI::App*> subcommands_of(const CLI::App& command) {
  return command.get_subcommands(
      [](const CLI::App* below) { return !below->get_name().empty() && !below->get_group().empty(); });
}

std::vector<std::string> option_names(const CLI::App& command) {
  std::vector<std::string> names;
  for (const CLI::App* app = &command; app != nullptr; app = app->get_parent()) {
    for (const CLI::Option* option : app->get_options()) {
      for (const std::string& name : option->get_lnames()) {
        const std::string whole = "--" + name;
        if (std::find(names.begin(), names.end(), whole) == names.end()) names.push_back(whole);
      }
    }
  }
  return names;
}

std::string full_name(const CLI::App& command) {
  if (command.get_parent() == nullptr) return command.get_name();
  return full_name(*command.get_parent()) + " " + command.get_name();
}

std::vector<std::string> resolve_words(const CLI::App& app, const std::vector<std::string>& words) {
  return Resolver(app).resolve(words);
}

std::string unmarked(const std::string& word) {
  return word.starts_with(kMark) ? word.substr(1) : word;
}

void unmark_words(CLI::App* app) {
  const auto unmark = [](std::string& word) {
    word = unmarked(word);
    return std::string();
  };
  for (CLI::Option* option : app->get_options([](const CLI::Option* any) { return any->get_positional(); }))
    option->transform(CLI::Validator(unmark, ""));
  for (CLI::App* below : app->get_subcommands([](const CLI::App*) { return true; })) unmark_words(below);
}

}  // namespace cli
