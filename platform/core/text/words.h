// Texts in parts, and lists of words for users.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace text {

// Removes the text up to the separator, which is dropped, from `rest`, or all of it without a separator. For
// loops `while (!rest.empty())`, in which a separator at the end adds no empty part.
std::string_view take_until(std::string_view* rest, char separator);
// All parts.
std::vector<std::string_view> split(std::string_view whole, char separator);

std::string quoted(std::string_view whole);

// "a", "a or b", "a, b or c".
std::string alternatives(const std::vector<std::string>& words);

// The words of the list that `word` may mean: itself alone if it is in the list, otherwise those that
// begin with it; none for an empty word.
std::vector<std::string> candidates(const std::string& word, const std::vector<std::string>& words);

// The word of the list that `word` most likely misspells: about one letter in three differs, and two
// exchanged letters count as one. Empty when there is none.
std::string closest(std::string_view word, const std::vector<std::string>& words);

// What a message says of an unknown word: the closest of the known ones, as `did you mean "vrf"?`, or else
// `otherwise`.
std::string hint(std::string_view word, const std::vector<std::string>& known, const std::string& otherwise);

// A message with what follows it, after "; ", or after the blank that follows a question mark.
std::string continued(const std::string& message, const std::string& more);

}  // namespace text
