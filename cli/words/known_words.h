// Words of users that abbreviate or misspell those of a list.
#pragma once

#include <string>
#include <vector>

namespace cli {

struct KnownWord {
  std::string word;   // of the list; empty if there is an error
  std::string error;  // such as: unknown word "vrfs"; did you mean "vrf"?
};

// The word of the list that is meant: itself, or the only one that begins with it. `kind` is what messages
// call it: "word", "option".
KnownWord find_known(const char* kind, const std::string& word, const std::vector<std::string>& known);

}  // namespace cli
