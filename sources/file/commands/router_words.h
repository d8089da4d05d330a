// Reads the words of a command of the action "router" and writes its answers, for the files that implement
// commands.
#pragma once

#include <algorithm>
#include <cstdint>
#include <iterator>
#include <string>
#include <vector>

#include "platform/core/text/numbers.h"
#include "platform/core/text/words.h"
#include "sources/file/commands/router_commands.h"

namespace router_words {

using text::quoted;

inline Status refuse(const RouterCommandContext& context, const std::string& why) {
  *context.text = why;
  return kStatusInvalid;
}

// The answer of a change that the model was asked for: `done`, or why it was refused. `reason`, when not
// empty, says more than the status.
inline Status report(const RouterCommandContext& context, Status status, const std::string& done,
                     const std::string& reason = std::string()) {
  *context.text = status == kStatusOk ? done
                  : reason.empty()    ? std::string("refused: ") + err_text(status)
                                      : reason;
  return status;
}

inline bool parse_number(const std::string& text, std::uint32_t least, std::uint32_t most,
                         std::uint32_t* number) {
  const std::optional<std::uint32_t> parsed = text::parse_number(text, most);
  if (!parsed || *parsed < least) return false;
  *number = *parsed;
  return true;
}

// A word after the name: a keyword, with its value where it takes one.
template <typename T>
struct Option {
  const char* keyword;
  bool takes_value;
  bool (*apply)(const std::string& value, T* into);  // false: the value is not valid
};

// For tables of options: the value is stored in the member if it is valid.
template <typename T, auto kMember, bool (*kIsValid)(std::string_view value)>
bool take_text(const std::string& value, T* into) {
  into->*kMember = value;
  return kIsValid(value);
}
template <typename T, std::uint32_t T::*kMember, std::uint32_t kLeast, std::uint32_t kMost>
bool take_number(const std::string& value, T* into) {
  return parse_number(value, kLeast, kMost, &(into->*kMember));
}

// 0, or kStatusInvalid with the reason in the answer.
template <typename T, std::size_t kCount>
Status apply_options(const RouterCommandContext& context, std::size_t first,
                     const Option<T> (&options)[kCount], T* into) {
  const std::vector<std::string>& words = context.arguments;
  for (std::size_t at = first; at < words.size(); ++at) {
    const std::string& keyword = words[at];
    const auto* option =
        std::find_if(std::begin(options), std::end(options),
                     [&](const Option<T>& candidate) { return keyword == candidate.keyword; });
    if (option == std::end(options)) return refuse(context, "unknown word " + quoted(keyword));
    if (option->takes_value && ++at == words.size())
      return refuse(context, quoted(keyword) + " takes a value");
    if (!option->apply(words[at], into))
      return refuse(context, quoted(words[at]) + " is not a valid " + keyword);
  }
  return kStatusOk;
}

}  // namespace router_words
