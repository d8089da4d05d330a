// The checks of "mplsvpn doctor". One table (checks.cpp) lists them; their ids never change, because
// documents and scripts name them.
//
// A check returns what it found wrong; nothing: all is well. It throws a Failure, or NotPossible, if it lacks
// what it compares: then it was not possible, with that reason.
#pragma once

#include <span>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace cli::doctor {

class Facts;

enum class Level { kOk, kNotPossible, kWarning, kError };  // in this order: the worst decides

struct Finding {
  Level level;
  std::string text;  // what is wrong, where
  std::string fix;   // the command, or what to change
};
using Findings = std::vector<Finding>;

class NotPossible : public std::runtime_error {
 public:
  explicit NotPossible(const std::string& reason, std::string fix = "")
      : std::runtime_error(reason), fix_(std::move(fix)) {}
  const std::string& fix() const { return fix_; }

 private:
  std::string fix_;
};

struct Check {
  const char* id;
  const char* group;
  const char* title;  // what is so if all is well
  Findings (*run)(Facts& facts);
};

// In the order of their numbers, which begin at 1; a group is contiguous.
std::span<const Check> checks();

}  // namespace cli::doctor
