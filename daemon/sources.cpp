#include "daemon/sources.h"

#include <algorithm>

#include "platform/core/files/directories.h"
#include "platform/core/text/words.h"
#include "sources/file/file_reader.h"
#include "sources/file/file_source.h"
#include "sources/frr/frr_source.h"
#include "sources/kernel/kernel_source.h"
#include "sources/kernel/links/vrf_descriptions.h"

namespace daemon_host {

namespace {

void add_kernel(router::Router* model, const SourceSettings& /*settings*/, Sources* sources) {
  KernelSourceSettings kernel;
  kernel.vrf_ids = state_directory() + "/vrf_ids";
  sources->push_back(std::make_unique<KernelSource>(model, kernel));
  sources->push_back(std::make_unique<VrfDescriptions>(model));
}

constexpr std::string_view kRouterFile = "router_file";
constexpr SourceOption kFileOptions[] = {{.key = kRouterFile, .is_path = true, .is_required = true}};

void add_file(router::Router* model, const SourceSettings& settings, Sources* sources) {
  const std::string& path = settings.options.find(kRouterFile)->second;
  sources->push_back(std::make_unique<FileSource>(model, path));
}

Status check_file(const SourceSettings& settings, std::string* error) {
  const router_file::Reading reading = router_file::read(settings.options.find(kRouterFile)->second);
  *error = reading.error;
  return reading.status;
}

constexpr SourceKind kSourceKinds[] = {
    {.word = "kernel",
     .options = {},
     .follows_routing_suite = true,
     .add = add_kernel,
     .remove_configured = VrfDescriptions::remove_configured,
     .check = nullptr},
    {.word = "file",
     .options = kFileOptions,
     .follows_routing_suite = false,
     .add = add_file,
     .remove_configured = FileSource::remove_configured,
     .check = check_file},
};

bool is_suite_followed(const SourceSettings& settings) {
  return !settings.frr_shell.empty();
}

void add_suite(router::Router* model, const SourceSettings& settings, Sources* sources) {
  FrrSource::Options options;
  options.shell = settings.frr_shell;
  options.wanted = settings.frr_wanted;
  sources->push_back(std::make_unique<FrrSource>(model, options));
}

constexpr ConfigurationSource kConfigurationSources[] = {
    {.is_followed = is_suite_followed, .add = add_suite, .remove_configured = FrrSource::remove_configured},
};

}  // namespace

std::span<const SourceKind> source_kinds() {
  return kSourceKinds;
}

std::span<const ConfigurationSource> configuration_sources() {
  return kConfigurationSources;
}

const SourceKind* find_source_kind(std::string_view word) {
  const auto* const kind = std::ranges::find(kSourceKinds, word, &SourceKind::word);
  return kind == std::end(kSourceKinds) ? nullptr : kind;
}

const SourceOption* find_source_option(std::string_view key) {
  for (const SourceKind& kind : kSourceKinds) {
    const auto option = std::ranges::find(kind.options, key, &SourceOption::key);
    if (option != kind.options.end()) return &*option;
  }
  return nullptr;
}

std::string source_words() {
  std::vector<std::string> words;
  for (const SourceKind& kind : kSourceKinds) words.push_back("'" + std::string(kind.word) + "'");
  return text::alternatives(words);
}

}  // namespace daemon_host
