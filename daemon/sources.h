// The sources that `source:` in platform.yaml can name. A new source is one more entry of the table.
#pragma once

#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "platform/core/base/status.h"
#include "platform/router/model/router.h"
#include "sources/source.h"

namespace daemon_host {

using Sources = std::vector<std::unique_ptr<Source>>;

struct SourceKind {
  std::string_view word;       // in platform.yaml
  bool needs_router_file;      // `router_file` names what it reads
  bool follows_routing_suite;  // with `frr: auto`
  // Adds the sources in the order in which they are loaded and started; the first one feeds the model.
  void (*add)(router::Router* model, const std::string& router_file, Sources* sources);
  // Removes what an earlier process with this kind of source configured. *error says what failed.
  Status (*release)(std::string* error);
};

// The first one is the default.
std::span<const SourceKind> source_kinds();
// Null for an unknown word.
const SourceKind* find_source_kind(std::string_view word);
// "'kernel' or 'file'"
std::string source_words();

}  // namespace daemon_host
