// The words of a command line before CLI11 parses them: abbreviated commands and options are written out,
// "help COMMAND" becomes "COMMAND --help", and wrong words are named with the closest right one.
//
// CLI11 takes a word that is the name of a command or begins with '-' for such, wherever it appears. The
// words of a command therefore carry a mark, which unmark_words() makes every positional option remove.
#pragma once

#include <string>
#include <vector>

#include "cli/commands.h"

namespace CLI {
class App;
class Option;
}  // namespace CLI

namespace cli {

// The words for CLI::App::parse in their order. Failure(kExitUsage) for words that make no command.
std::vector<std::string> resolve_words(const CLI::App& app, const std::vector<std::string>& words);

// Call it once, when all commands are described.
void unmark_words(CLI::App* app);

// The word of resolve_words() as the user typed it.
std::string unmarked(const std::string& word);

// The commands below this one that --help lists.
std::vector<const CLI::App*> subcommands_of(const CLI::App& command);

// The command of this name below it, also a hidden one; null when there is none.
const CLI::App* find_command(const CLI::App& command, const std::string& name);

// The option "--name" of the command or of one above it; null when there is none.
const CLI::Option* find_option(const CLI::App& command, const std::string& name);

// The long names with "--" of the options that the command knows, those of the commands above it included.
std::vector<std::string> option_names(const CLI::App& command);

// The "mplsvpn show vrf" of this command.
std::string full_name(const CLI::App& command);

}  // namespace cli
