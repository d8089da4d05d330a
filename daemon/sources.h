// The sources that platform.yaml can choose. A new source is one more row, with its own options.
#pragma once

#include <functional>
#include <map>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "platform/core/base/status.h"
#include "platform/router/model/router.h"
#include "sources/source.h"

namespace daemon_host {

// What platform.yaml says of the sources themselves.
struct SourceSettings {
  // The options that the file sets, by key. A path is absolute, or relative to the working directory. The
  // required options of the chosen source are there.
  std::map<std::string, std::string, std::less<>> options;
  std::string frr;                     // the word in the file, "auto" without one; it determines the next two
  std::vector<std::string> frr_shell;  // the routing suite's shell and its arguments; empty: not followed
  bool frr_wanted = false;             // named, not by default: a suite that cannot be followed is logged
  bool operator==(const SourceSettings&) const = default;
};

using Sources = std::vector<std::unique_ptr<Source>>;

// Adds sources in the order in which they are loaded and started.
using AddSources = void (*)(router::Router* model, const SourceSettings& settings, Sources* sources);
// Removes what an earlier process with this source configured; kStatusOk for a source that configures
// nothing. *error says what failed.
using RemoveConfigured = Status (*)(std::string* error);

// Reads what load() would read, and changes nothing. *error says where it is invalid and why.
using CheckSource = Status (*)(const SourceSettings& settings, std::string* error);

// A key of platform.yaml that belongs to a source; its value is one word.
struct SourceOption {
  std::string_view key;
  bool is_path;  // relative to the settings' folder
  bool is_required;
};

// A value of `source`: what the router model is read from.
struct SourceKind {
  std::string_view word;
  std::span<const SourceOption> options;
  bool follows_routing_suite;  // with `frr: auto`
  AddSources add;              // the first source feeds the model
  RemoveConfigured remove_configured;
  CheckSource check;  // null for a source that cannot be invalid
};

// What only writes configuration, beside the source of the model.
struct ConfigurationSource {
  bool (*is_followed)(const SourceSettings& settings);
  AddSources add;
  RemoveConfigured remove_configured;
};

// The first one is the default.
std::span<const SourceKind> source_kinds();
std::span<const ConfigurationSource> configuration_sources();
// Null for an unknown word.
const SourceKind* find_source_kind(std::string_view word);
// The option of any kind of source; null for an unknown key.
const SourceOption* find_source_option(std::string_view key);
// "'kernel' or 'file'"
std::string source_words();

}  // namespace daemon_host
