#include "platform/core/text/words.h"

#include <algorithm>
#include <iterator>

namespace text {

namespace {

// Letters to insert, delete, replace, or exchange with their neighbor.
std::size_t edit_distance(std::string_view a, std::string_view b) {
  std::vector<std::vector<std::size_t>> steps(a.size() + 1, std::vector<std::size_t>(b.size() + 1));
  for (std::size_t i = 0; i <= a.size(); ++i) {
    for (std::size_t j = 0; j <= b.size(); ++j) {
      if (i == 0 || j == 0) {
        steps[i][j] = i + j;
        continue;
      }
      const std::size_t replaced = steps[i - 1][j - 1] + (a[i - 1] == b[j - 1] ? 0 : 1);
      steps[i][j] = std::min({steps[i - 1][j] + 1, steps[i][j - 1] + 1, replaced});
      if (i > 1 && j > 1 && a[i - 1] == b[j - 2] && a[i - 2] == b[j - 1])
        steps[i][j] = std::min(steps[i][j], steps[i - 2][j - 2] + 1);
    }
  }
  return steps[a.size()][b.size()];
}

constexpr std::size_t kLongestMisspelled = 64;  // letters; the distance takes their square

}  // namespace

std::string_view take_until(std::string_view* rest, char separator) {
  const std::size_t length = std::min(rest->find(separator), rest->size());
  const std::string_view part = rest->substr(0, length);
  rest->remove_prefix(std::min(length + 1, rest->size()));
  return part;
}

std::vector<std::string_view> split(std::string_view whole, char separator) {
  std::vector<std::string_view> parts;
  while (!whole.empty()) parts.push_back(take_until(&whole, separator));
  return parts;
}

std::string quoted(std::string_view whole) {
  return '"' + std::string(whole) + '"';
}

std::string alternatives(const std::vector<std::string>& words) {
  std::string all;
  for (std::size_t at = 0; at < words.size(); ++at) {
    if (at > 0) all += at + 1 == words.size() ? " or " : ", ";
    all += words[at];
  }
  return all;
}

std::vector<std::string> candidates(const std::string& word, const std::vector<std::string>& words) {
  if (std::find(words.begin(), words.end(), word) != words.end()) return {word};
  std::vector<std::string> longer;
  std::copy_if(words.begin(), words.end(), std::back_inserter(longer),
               [&](const std::string& known) { return !word.empty() && known.starts_with(word); });
  return longer;
}

std::string closest(std::string_view word, const std::vector<std::string>& words) {
  std::string found;
  if (word.size() > kLongestMisspelled) return found;
  std::size_t nearest = std::max<std::size_t>(word.size() / 3, 1) + 1;
  for (const std::string& known : words) {
    if (known.size() > kLongestMisspelled) continue;
    const std::size_t distance = edit_distance(word, known);
    if (distance >= nearest || distance >= known.size()) continue;
    nearest = distance;
    found = known;
  }
  return found;
}

std::string hint(std::string_view word, const std::vector<std::string>& known, const std::string& otherwise) {
  const std::string similar = closest(word, known);
  return similar.empty() ? otherwise : "did you mean " + quoted(similar) + "?";
}

std::string continued(const std::string& message, const std::string& more) {
  return more.empty() ? message : message + (message.ends_with('?') ? " " : "; ") + more;
}

}  // namespace text
