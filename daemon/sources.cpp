#include "daemon/sources.h"

#include <algorithm>

#include "platform/core/files/directories.h"
#include "sources/file/file_source.h"
#include "sources/kernel/kernel_source.h"
#include "sources/kernel/links/vrf_descriptions.h"

namespace daemon_host {

namespace {

void add_kernel(router::Router* model, const std::string& /*router_file*/, Sources* sources) {
  KernelSourceSettings settings;
  settings.vrf_ids = state_directory() + "/vrf_ids";
  sources->push_back(std::make_unique<KernelSource>(model, settings));
  sources->push_back(std::make_unique<VrfDescriptions>(model));
}

void add_file(router::Router* model, const std::string& router_file, Sources* sources) {
  sources->push_back(std::make_unique<FileSource>(model, router_file));
}

constexpr SourceKind kSourceKinds[] = {
    {"kernel", false, true, add_kernel, VrfDescriptions::release},
    {"file", true, false, add_file, FileSource::release},
};

}  // namespace

std::span<const SourceKind> source_kinds() {
  return kSourceKinds;
}

const SourceKind* find_source_kind(std::string_view word) {
  const auto* const kind = std::ranges::find(kSourceKinds, word, &SourceKind::word);
  return kind == std::end(kSourceKinds) ? nullptr : kind;
}

std::string source_words() {
  std::string words;
  for (const SourceKind& kind : kSourceKinds) {
    words += (words.empty() ? "'" : " or '") + std::string(kind.word) + "'";
  }
  return words;
}

}  // namespace daemon_host
