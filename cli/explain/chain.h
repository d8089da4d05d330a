// The links of an explanation, from the VRF to the row of the MIB, in the order in which a route passes them:
// the first broken one is the cause of those after it. One table (links.cpp) lists them; their ids never
// change, because documents and scripts name them.
#pragma once

#include <span>
#include <string>

namespace cli::explain {

class Evidence;

enum class State { kOk, kBroken, kNotChecked };

struct Judgement {
  State state = State::kOk;
  std::string text{};  // what is so, or why it was not checked
  std::string fix{};   // the command, or what to change; only of a broken link
};

inline Judgement ok(const std::string& text) {
  return {State::kOk, text, ""};
}
inline Judgement broken(const std::string& text, const std::string& fix) {
  return {State::kBroken, text, fix};
}
inline Judgement not_checked(const std::string& reason) {
  return {State::kNotChecked, reason, ""};
}

enum class Subject { kVrf, kPrefix, kBoth };

struct Link {
  const char* id;
  Subject subject;  // of the explanations of which it is a part
  bool is_late;     // follows the links before it with a delay
  // Throws Failure or doctor::NotPossible if it lacks what it looks at: then the link was not checked.
  Judgement (*judge)(Evidence& evidence);
};

std::span<const Link> links();

}  // namespace cli::explain
