// Runs another program of this machine to its end and collects its output.
#pragma once

#include <chrono>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace cli {

struct Ran {
  int status = -1;      // the exit status; -1 if it did not run, was ended by a signal or took too long
  std::string output;   // of both streams
  std::string problem;  // with -1: why
};

// The first word is a path, or a name that PATH finds. The standard input is empty. It is killed after this
// time, or when it prints more than `limit` octets. The program runs with LC_ALL=C and without a pager.
Ran run_program(const std::vector<std::string>& words, std::chrono::milliseconds patience,
                std::size_t limit = std::size_t{64} << 20);

// Takes a part of the output; what it returns, unless empty, ends the program as the problem. It must not
// throw.
using OutputTaker = std::function<std::string(std::string_view part)>;

// The same for a program whose output is used as it arrives. `output` of the result is empty.
Ran run_program(const std::vector<std::string>& words, std::chrono::milliseconds patience,
                const OutputTaker& take);

// The last line of the output that is not empty: warnings of programs precede what they say of the request.
std::string last_line(std::string output);

// The words of a command as a user writes it; quotes as in a shell are not known.
std::vector<std::string> command_words(const std::string& command);

// The path of the program of that name: beside this one, in a folder of system programs, which the PATH of
// users lacks, or in one of PATH. Empty if it is not installed.
std::string installed_program(const std::string& name);
bool is_installed(const std::string& name);

// The word as a shell reads it back, for commands that users copy; quoted only if it has to be.
std::string shell_word(const std::string& word);

}  // namespace cli
