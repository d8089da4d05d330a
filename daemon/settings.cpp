// Reads platform.yaml. Every error is reported with its position. Nothing is guessed: a daemon that reads
// another source than its operator meant shows a management system the wrong router.
#include "daemon/settings.h"

#include <yaml-cpp/yaml.h>

#include <algorithm>
#include <filesystem>
#include <iterator>
#include <set>
#include <sstream>
#include <vector>

#include "platform/core/files/read_file.h"

namespace daemon_host {

namespace {

constexpr std::size_t kFileSizeMax = 1U << 20;  // octets of platform.yaml
constexpr char kFrrShell[] = "/usr/bin/vtysh";

struct SettingError {
  YAML::Mark mark;
  std::string what;
};

struct UnreadableFile {
  std::string what;
};

std::string scalar(const YAML::Node& node, const char* key) {
  if (!node.IsScalar()) throw SettingError{node.Mark(), std::string("'") + key + "' takes one word"};
  return node.as<std::string>();
}

void take_source(const YAML::Node& node, Settings* settings) {
  if (!node) return;
  const std::string source = scalar(node, "source");
  settings->source = find_source_kind(source);
  if (settings->source == nullptr) {
    throw SettingError{node.Mark(), "'source' is " + source_words() + ", not '" + source + "'"};
  }
}

std::vector<std::string> split_words(const std::string& text) {
  std::istringstream stream(text);
  std::vector<std::string> words;
  for (std::string word; stream >> word;) words.push_back(word);
  return words;
}

void take_frr(const YAML::Node& node, Settings* settings) {
  const std::string frr = node ? scalar(node, "frr") : "auto";
  settings->frr_wanted = frr != "auto" && frr != "false";
  if (frr == "true" || (frr == "auto" && settings->source->follows_routing_suite)) {
    settings->frr_shell = {kFrrShell};
  } else if (frr.substr(0, 1) == "/") {
    settings->frr_shell = split_words(frr);
  } else if (frr != "auto" && frr != "false") {
    throw SettingError{node.Mark(),
                       "'frr' is 'auto', 'true', 'false' or the path of a shell, not '" + frr + "'"};
  }
}

// The keys that do not belong to one source.
struct Key {
  std::string_view name;
  void (*take)(const YAML::Node& node, Settings* settings);  // an undefined node for a missing key
};
// In the order in which they are read: what "frr: auto" means depends on the source.
constexpr Key kKeys[] = {{"source", take_source}, {"frr", take_frr}};

void check_keys(const YAML::Node& root) {
  std::set<std::string> seen;
  for (const auto& entry : root) {
    const auto key = entry.first.as<std::string>();
    if (std::ranges::find(kKeys, key, &Key::name) == std::end(kKeys) && find_source_option(key) == nullptr) {
      throw SettingError{entry.first.Mark(), "unknown key '" + key + "'"};
    }
    if (!seen.insert(key).second) throw SettingError{entry.first.Mark(), "key '" + key + "' is set twice"};
  }
}

void take_options(const YAML::Node& root, const std::filesystem::path& folder, Settings* settings) {
  for (const auto& entry : root) {
    const auto key = entry.first.as<std::string>();
    const SourceOption* const option = find_source_option(key);
    if (option == nullptr) continue;
    const std::string word = scalar(entry.second, key.c_str());
    settings->options[key] = option->is_path ? (folder / word).string() : word;
  }
}

void require_options(const YAML::Node& root, const Settings& settings) {
  for (const SourceOption& option : settings.source->options) {
    if (option.is_required && !settings.options.contains(option.key)) {
      throw SettingError{root.Mark(), "'source: " + std::string(settings.source->word) + "' needs a '" +
                                          std::string(option.key) + "'"};
    }
  }
}

void take_settings(const YAML::Node& root, const std::filesystem::path& folder, Settings* settings) {
  if (!root.IsNull() && !root.IsMap()) throw SettingError{root.Mark(), "expected 'key: value' lines"};
  check_keys(root);
  for (const Key& key : kKeys) key.take(root[std::string(key.name)], settings);
  take_options(root, folder, settings);
  require_options(root, *settings);
}

// Whether the file exists. A missing folder is probably a wrong name in the environment.
bool find_file(const std::filesystem::path& folder, const std::string& file, Settings* settings) {
  if (std::filesystem::exists(file)) return true;
  if (!std::filesystem::exists(folder)) {
    settings->warning =
        folder.string() + ": the configuration directory does not exist; the defaults are used";
  }
  return false;
}

std::string text_of(const std::string& file) {
  std::string text;
  UnreadableFile failure;
  if (read_file(file, kFileSizeMax, &text, &failure.what) != kStatusOk) throw failure;
  return text;
}

std::string describe(const std::string& file, const YAML::Mark& mark, const std::string& what) {
  return file + ":" + std::to_string(mark.line + 1) + ":" + std::to_string(mark.column + 1) + ": " + what;
}

}  // namespace

bool read_settings(const std::string& config_directory, Settings* settings, std::string* error) {
  const std::filesystem::path folder = config_directory;
  const std::string file = (folder / "platform.yaml").string();
  Settings read;
  try {
    const bool exists = find_file(folder, file, &read);
    take_settings(exists ? YAML::Load(text_of(file)) : YAML::Node(), folder, &read);
  } catch (const SettingError& invalid) {
    *error = describe(file, invalid.mark, invalid.what);
    return false;
  } catch (const std::filesystem::filesystem_error& failure) {
    *error = file + ": " + failure.code().message();
    return false;
  } catch (const UnreadableFile& failure) {
    *error = file + ": " + failure.what;
    return false;
  } catch (const YAML::Exception& exception) {
    *error = describe(file, exception.mark, exception.msg);
    return false;
  }
  *settings = read;
  return true;
}

}  // namespace daemon_host
