// Checks what all commands have in common (known, permitted, number of arguments) and calls the command.
#include "sources/file/commands/router_action.h"

#include <algorithm>
#include <utility>

#include "platform/core/text/words.h"
#include "platform/store/tree/actions.h"
#include "sources/file/commands/router_commands.h"

namespace {

std::vector<std::string> command_words() {
  std::vector<std::string> words;
  for (const RouterCommand& command : router_commands()) words.emplace_back(command.word);
  return words;
}

// Also of an unambiguous abbreviation.
const RouterCommand* find_command(const std::string& word) {
  const std::vector<std::string> meant = text::candidates(word, command_words());
  if (meant.size() != 1) return nullptr;
  const auto& commands = router_commands();
  return &*std::find_if(commands.begin(), commands.end(),
                        [&](const RouterCommand& command) { return meant[0] == command.word; });
}

std::string unknown_command(const std::string& name) {
  const std::vector<std::string> words = command_words();
  const std::vector<std::string> meant = text::candidates(name, words);
  if (meant.size() > 1) return text::quoted(name) + " is ambiguous: " + text::alternatives(meant);
  return text::continued("unknown command " + text::quoted(name),
                         text::hint(name, words, "\"router help\" lists the commands"));
}

std::string usage(const RouterCommand& command) {
  std::string text = std::string("router ") + command.word;
  if (*command.arguments != '\0') text += std::string(" ") + command.arguments;
  return text;
}

bool is_help(const std::string& word) {
  return word == "--help" || word == "-h";
}

std::string help_of(const RouterCommand& command) {
  return "usage: " + usage(command) + "\n  " + command.help;
}

std::string help() {
  std::string text =
      "The router is read from a file. These commands change it until the file is loaded again.\n";
  for (const RouterCommand& command : router_commands()) {
    text += "\n  " + usage(command) + "\n      " + command.help;
  }
  return text;
}

}  // namespace

RouterAction::RouterAction(router::Router* model, Reload reload)
    : model_(model), reload_(std::move(reload)) {}

Status RouterAction::run(const KvActionContext& context, const std::vector<std::string>& words,
                         std::string* text) {
  text->clear();
  const bool is_help_word = words.size() > 1 && (words[1] == "help" || is_help(words[1]));
  if (words.size() < 2 || (is_help_word && words.size() == 2)) {
    *text = help();
    return kStatusOk;
  }
  const std::string& name = words[is_help_word ? 2 : 1];
  const RouterCommand* command = find_command(name);
  if (command == nullptr) {
    *text = unknown_command(name);
    return kStatusInvalid;
  }
  if (is_help_word || (words.size() > 2 && is_help(words[2]))) {
    *text = help_of(*command);
    return kStatusOk;
  }
  if (command->changes && !context.may_change) {
    *text = "changing the router is for root and the administrators' group";
    return kStatusAccess;
  }
  const std::vector<std::string> arguments(words.begin() + 2, words.end());
  if (arguments.size() < command->least_arguments || arguments.size() > command->most_arguments) {
    *text = "usage: " + usage(*command);
    return kStatusInvalid;
  }
  return command->run({model_, reload_, context.end, arguments, context.steps, text});
}
