#include "sources/frr/shell/folders.h"

#include <optional>
#include <string_view>

namespace frr {

namespace {

// Of "--name VALUE", "--name=VALUE", "-N VALUE" and "-NVALUE"; `next` is the word after this one.
std::optional<std::string> value_of(std::string_view name, std::string_view letter, std::string_view word,
                                    const std::string& next) {
  if (word == name || (!letter.empty() && word == letter)) return next;
  if (word.starts_with(name) && word.substr(name.size()).starts_with('=')) {
    return std::string(word.substr(name.size() + 1));
  }
  if (!letter.empty() && word.starts_with(letter)) return std::string(word.substr(letter.size()));
  return std::nullopt;
}

std::string folder_of(const std::vector<std::string>& shell, std::string_view option, std::string base) {
  std::string path_space;
  for (std::size_t i = 0; i < shell.size(); ++i) {
    const std::string next = i + 1 < shell.size() ? shell[i + 1] : "";
    if (const auto name = value_of("--pathspace", "-N", shell[i], next)) path_space = "/" + *name;
    if (const auto place = value_of(option, "", shell[i], next)) base = *place;
  }
  return base + path_space;
}

}  // namespace

std::string socket_folder(const std::vector<std::string>& shell, const std::string& folder) {
  return folder_of(shell, "--vty_socket", folder);
}

std::string configuration_folder(const std::vector<std::string>& shell, const std::string& folder) {
  return folder_of(shell, "--config_dir", folder);
}

}  // namespace frr
