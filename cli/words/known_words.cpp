#include "cli/words/known_words.h"

#include <fmt/format.h>

#include "cli/output/table.h"
#include "platform/core/text/words.h"

namespace cli {

namespace {

std::string unknown_text(const char* kind, const std::string& word, const std::vector<std::string>& known) {
  return fmt::format("unknown {} {}; {}", kind, text::quoted(printable(word)),
                     text::hint(word, known, "expected " + text::alternatives(known)));
}

}  // namespace

KnownWord find_known(const char* kind, const std::string& word, const std::vector<std::string>& known) {
  const std::vector<std::string> meant = text::candidates(word, known);
  if (meant.size() == 1) return {meant[0], ""};
  if (meant.empty()) return {"", unknown_text(kind, word, known)};
  return {"", fmt::format("{} is ambiguous: {}", text::quoted(printable(word)), text::alternatives(meant))};
}

}  // namespace cli
