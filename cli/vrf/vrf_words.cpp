// The words of "show vrf": a name first, then the details and families.
#include <fmt/format.h>

#include <array>

#include "cli/commands.h"
#include "cli/words/known_words.h"
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
  constexpr char kUsage[] =
      "usage: mplsvpn show vrf [NAME] [brief|detail] [ipv4|ipv6] [unicast|multicast], or mplsvpn show vrf "
      "invalid";
  return {kExitUsage, text::continued(what, kUsage)};
}

const Word* find_word(const std::string& text) {
  for (const Word& word : kVrfWords) {
    if (text == word.text) return &word;
  }
  return nullptr;
}

void take_word(const std::string& text, VrfRequest* request) {
  const KnownWord known = find_known("word", text, vrf_words());
  if (!known.error.empty()) throw usage(known.error);
  const Word* word = find_word(known.word);
  if (word->is_taken(*request)) throw usage("\"" + text + "\" repeats or contradicts an earlier word");
  word->take(request);
}

}  // namespace

std::vector<std::string> vrf_words() {
  std::vector<std::string> words;
  for (const Word& word : kVrfWords) words.emplace_back(word.text);
  return words;
}

std::vector<std::string> meant_vrf_words(const VrfRequest& request) {
  if (!request.may_be_word) return {};
  std::vector<std::string> words = vrf_words();
  words.emplace_back("invalid");
  return words;
}

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
      request.may_be_word = true;
    } else {
      take_word(word, &request);
    }
  }
  if (request.brief && request.detail) throw usage("\"brief\" and \"detail\" exclude each other");
  return request;
}

}  // namespace cli
