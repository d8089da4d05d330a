// Texts into the reader of router files.
//
// An error has a position and a text. What is read keeps to the bounds of the reader, and each node of the
// configuration is there once.
#include <set>

#include "fuzz/support.h"
#include "sources/file/reader/router_file.h"

namespace {

using fuzz::require;

void check(const router_file::RouterFile& file) {
  std::set<std::string_view> names;
  for (const router::Vrf& vrf : file.vrfs) {
    require(router::valid_vrf_name(vrf.name) && names.insert(vrf.name).second);
  }
  for (const std::string& name : file.references) require(names.insert(name).second);
  for (const router::Interface& interface : file.interfaces) {
    require(!interface.name.empty() && interface.index > 0 && interface.index <= router_file::kIndexMax);
  }
  for (const router_file::RouteGroup& group : file.routes) require(group.count > 0);
  std::set<std::string_view> paths;
  for (const KvConfigNode& node : file.configuration) {
    require(node.path.starts_with("/cfg/") && paths.insert(node.path).second);
  }
}

// A small text can generate a million of interfaces, which are not what is tested here.
bool is_small(const std::string& text) {
  return text.find("generate") == std::string::npos;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string text = fuzz::text_of({data, size});
  if (!is_small(text)) return 0;
  router_file::RouterFile file;
  router_file::ParseError error;
  if (router_file::parse(text, &file, &error)) {
    check(file);
  } else {
    require(error.line > 0 && error.column > 0 && !error.what.empty());
  }
  return 0;
}
