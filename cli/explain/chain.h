// The links of an explanation, from the VRF to the row of the MIB, in the order in which a route passes them:
// the first broken one is the cause of those after it, unless one before it could not be looked at. One table
// (links.cpp) lists them; their ids never change, because documents and scripts name them.
#pragma once

#include <span>
#include <string>
#include <vector>

#include "cli/session.h"

namespace cli::explain {

class Evidence;

enum class State { kOk, kBroken, kNotChecked };

struct Judgement {
  State state = State::kOk;
  std::string text{};     // what is so, or why it was not checked
  std::string fix{};      // the command, or what to change; only of a broken link
  int failure = kExitOk;  // of what it looks at: the link is unknown; kNotChecked alone: it does not apply
};

inline Judgement ok(const std::string& text) {
  return {State::kOk, text, "", kExitOk};
}
inline Judgement broken(const std::string& text, const std::string& fix) {
  return {State::kBroken, text, fix, kExitOk};
}
inline Judgement not_checked(const std::string& reason) {
  return {State::kNotChecked, reason, "", kExitOk};
}

enum class Subject { kVrf, kPrefix, kAddress, kBoth };

struct Link {
  const char* id;
  Subject subject;  // of the explanations of which it is a part
  bool is_late;     // follows the links before it with a delay
  // Throws Failure or doctor::NotPossible if it lacks what it looks at: then the link was not checked.
  Judgement (*judge)(Evidence& evidence);
};

std::span<const Link> links();

struct Judged {
  const Link* link = nullptr;
  Judgement judgement{};
};
using Chain = std::vector<Judged>;

// The links of the prefix, or of the VRF. A problem of the suite's programs that left a link unknown is named
// in it if a later link is broken, or if none shows that the route is there.
Chain judge_links(Evidence& evidence);

struct Cause {
  const Judged* broken = nullptr;   // the first broken link; null if none is
  const Judged* unknown = nullptr;  // that may be broken as well, or before that one; null: none
};

// A link that is ok leaves no doubt about those before it. The result points into the chain.
Cause cause_of(const Chain& chain);

}  // namespace cli::explain
