// Reads platform.yaml. Every error is reported with its position. Nothing is guessed: a daemon that reads
// another source than its operator meant shows a management system the wrong router.
#include "daemon/settings.h"

#include <filesystem>
#include <map>
#include <sstream>
#include <string_view>
#include <vector>

#include "platform/core/files/read_file.h"
#include "sources/file/reader/yaml_document.h"
#include "sources/file/reader/yaml_reader.h"

namespace daemon_host {

namespace {

using router_file::Mark;
using router_file::Misreading;
using router_file::Node;
using router_file::refuse;
using router_file::YamlDocument;

constexpr std::size_t kFileSizeMax = 1U << 20;  // octets of platform.yaml
constexpr char kFrrShell[] = "/usr/bin/vtysh";

struct UnreadableFile {
  std::string what;
};

const std::string& scalar(const Node& node, std::string_view key) {
  if (!node.is_scalar()) refuse(node.mark(), "'" + std::string(key) + "' takes one word");
  return node.scalar();
}

void take_source(const Node* node, Settings* settings) {
  if (node == nullptr) return;
  const std::string& source = scalar(*node, "source");
  settings->source = find_source_kind(source);
  if (settings->source == nullptr) {
    refuse(node->mark(), "'source' is " + source_words() + ", not '" + source + "'");
  }
}

std::vector<std::string> split_words(const std::string& text) {
  std::istringstream stream(text);
  std::vector<std::string> words;
  for (std::string word; stream >> word;) words.push_back(word);
  return words;
}

void take_frr(const Node* node, Settings* settings) {
  const std::string frr = node != nullptr ? scalar(*node, "frr") : "auto";
  settings->frr = frr;
  settings->frr_wanted = frr != "auto" && frr != "false";
  if (frr == "true" || (frr == "auto" && settings->source->follows_routing_suite)) {
    settings->frr_shell = {kFrrShell};
  } else if (frr.substr(0, 1) == "/") {
    settings->frr_shell = split_words(frr);
  } else if (frr != "auto" && frr != "false") {
    refuse(node->mark(), "'frr' is 'auto', 'true', 'false' or the path of a shell, not '" + frr + "'");
  }
}

void take_metrics(const Node* node, Settings* settings) {
  if (node != nullptr) settings->metrics = daemon_metrics::read_metrics_settings(*node);
}

bool has_same_source(const Settings& one, const Settings& other) {
  return one.source == other.source;
}

// "auto" is the same with another source, although it means another shell.
bool has_same_frr(const Settings& one, const Settings& other) {
  return one.frr == other.frr || (one.frr_shell == other.frr_shell && one.frr_wanted == other.frr_wanted);
}

bool has_same_metrics(const Settings& one, const Settings& other) {
  return one.metrics == other.metrics;
}

// The keys that do not belong to one source.
struct Key {
  std::string_view name;
  void (*take)(const Node* node, Settings* settings);  // null for a missing key
  bool (*is_same)(const Settings& one, const Settings& other);
};
// In the order in which they are read: what "frr: auto" means depends on the source.
constexpr Key kKeys[] = {{"source", take_source, has_same_source},
                         {"frr", take_frr, has_same_frr},
                         {"metrics", take_metrics, has_same_metrics}};

using Values = std::map<std::string, const Node*>;

std::vector<std::string_view> key_names() {
  std::vector<std::string_view> names;
  for (const Key& key : kKeys) names.push_back(key.name);
  for (const SourceKind& kind : source_kinds()) {
    for (const SourceOption& option : kind.options) names.push_back(option.key);
  }
  return names;
}

Values read_values(const Node* root) {
  Values values;
  if (root == nullptr || root->is_null()) return values;
  const std::vector<std::string_view> names = key_names();
  router_file::read_keys(*root, "the settings file", names, [&](std::size_t position, const Node& value) {
    values.emplace(names[position], &value);
  });
  return values;
}

void take_options(const Values& values, const std::filesystem::path& folder, Settings* settings) {
  for (const auto& [key, value] : values) {
    const SourceOption* const option = find_source_option(key);
    if (option == nullptr) continue;
    const std::string& word = scalar(*value, key);
    settings->options[key] = option->is_path ? (folder / word).string() : word;
  }
}

void require_options(const Mark& mark, const Settings& settings) {
  for (const SourceOption& option : settings.source->options) {
    if (option.is_required && !settings.options.contains(option.key)) {
      refuse(mark, "'source: " + std::string(settings.source->word) + "' needs a '" +
                       std::string(option.key) + "'");
    }
  }
}

void take_settings(const Node* root, const std::filesystem::path& folder, Settings* settings) {
  const Values values = read_values(root);
  for (const Key& key : kKeys) {
    const auto found = values.find(std::string(key.name));
    key.take(found != values.end() ? found->second : nullptr, settings);
  }
  take_options(values, folder, settings);
  require_options(root != nullptr ? root->mark() : Mark{1, 1}, *settings);
}

bool is_option_same(const std::string& key, const Settings& one, const Settings& other) {
  const auto of_one = one.options.find(key);
  const auto of_other = other.options.find(key);
  if (of_one == one.options.end() || of_other == other.options.end()) return false;
  return of_one->second == of_other->second;
}

// Whether the file exists. A missing folder is probably a wrong name in the environment.
bool find_file(const std::filesystem::path& folder, const std::string& file, Settings* settings) {
  if (std::filesystem::exists(file)) return true;
  settings->has_directory = std::filesystem::exists(folder);
  if (!settings->has_directory) {
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

std::string describe(const std::string& file, const Misreading& misreading) {
  const Mark& mark = misreading.mark();
  return file + ":" + std::to_string(mark.line) + ":" + std::to_string(mark.column) + ": " +
         misreading.what();
}

}  // namespace

bool read_settings(const std::string& config_directory, Settings* settings, std::string* error) {
  const std::filesystem::path folder = config_directory;
  const std::string file = (folder / "platform.yaml").string();
  Settings read;
  try {
    const bool exists = find_file(folder, file, &read);
    const YamlDocument document = exists ? router_file::parse_yaml(text_of(file)) : YamlDocument{};
    take_settings(document.root, folder, &read);
  } catch (const Misreading& misreading) {
    *error = describe(file, misreading);
    return false;
  } catch (const std::filesystem::filesystem_error& failure) {
    *error = file + ": " + failure.code().message();
    return false;
  } catch (const UnreadableFile& failure) {
    *error = file + ": " + failure.what;
    return false;
  }
  *settings = read;
  return true;
}

std::vector<std::string> changed_settings(const Settings& former, const Settings& now) {
  std::vector<std::string> changed;
  for (const Key& key : kKeys) {
    if (!key.is_same(former, now)) changed.emplace_back(key.name);
  }
  auto options = former.options;
  options.insert(now.options.begin(), now.options.end());
  for (const auto& [key, value] : options) {
    if (!is_option_same(key, former, now)) changed.push_back(key);
  }
  return changed;
}

}  // namespace daemon_host
