// The words of "show vrf": a name first, then the details and families.
#include <fmt/format.h>

#include <array>

#include "cli/commands.h"
#include "cli/output/table.h"
#include "platform/core/text/words.h"

namespace cli {

namespace {

struct Word {
  const char* text;
  void (*take)(VrfRequest*);
  bool (*is_taken)(const VrfRequest&);  // the word, or the alternative
};

constexpr std::array kVrfWords = {
    Word{"detail", [](VrfRequest* request) { request->detail = true; },
         [](const VrfRequest& request) { return request.detail; }},
    Word{"brief", [](VrfRequest* request) { request->brief = true; },
         [](const VrfRequest& request) { return request.brief; }},
    Word{"ipv4", [](VrfRequest* request) { request->afi = 1; },
         [](const VrfRequest& request) { return request.afi != 0; }},
    Word{"ipv6", [](VrfRequest* request) { request->afi = 2; },
         [](const VrfRequest& request) { return request.afi != 0; }},
    Word{"unicast", [](VrfRequest* request) { request->safi = 1; },
         [](const VrfRequest& request) { return request.safi != 0; }},
    Word{"multicast", [](VrfRequest* request) { request->safi = 2; },
         [](const VrfRequest& request) { return request.safi != 0; }},
};

Failure usage(const std::string& what) {
  return {
      kExitUsage,
      what +
          "; usage: mplsvpn show vrf [NAME] [brief|detail] [ipv4|ipv6] [unicast|multicast], or mplsvpn show "
          "vrf invalid"};
}

const Word* find_word(const std::string& text) {
  for (const Word& word : kVrfWords) {
    if (text == word.text) return &word;
  }
  return nullptr;
}

std::string unknown_word(const std::string& wrong) {
  std::vector<std::string> known;
  for (const Word& word : kVrfWords) known.emplace_back(word.text);
  const std::string similar = text::closest(wrong, known);
  return fmt::format("unknown word {}; {}", text::quoted(printable(wrong)),
                     similar.empty() ? "expected " + text::alternatives(known)
                                     : "did you mean " + text::quoted(similar) + "?");
}

void take_word(const std::string& text, VrfRequest* request) {
  const Word* word = find_word(text);
  if (word == nullptr) throw usage(unknown_word(text));
  if (word->is_taken(*request)) throw usage("\"" + text + "\" repeats or contradicts an earlier word");
  word->take(request);
}

}  // namespace

VrfRequest parse_vrf_words(const std::vector<std::string>& words, const std::string& name) {
  VrfRequest request;
  request.name = name;
  request.is_invalid = !words.empty() && words[0] == "invalid";
  if (request.is_invalid && (words.size() > 1 || !name.empty()))
    throw usage("\"invalid\" takes no other words");
  if (request.is_invalid) return request;
  for (const std::string& word : words) {
    const bool is_name = request.name.empty() && &word == &words[0] && find_word(word) == nullptr;
    if (is_name) {
      request.name = word;
    } else {
      take_word(word, &request);
    }
  }
  if (request.brief && request.detail) throw usage("\"brief\" and \"detail\" exclude each other");
  return request;
}

}  // namespace cli
