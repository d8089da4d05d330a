#include <unordered_map>
#include <utility>

#include "sources/file/reader/router_entries.h"

namespace router_file {

namespace {

// Values that may be used once. Line 0 means "generated".
template <typename T>
class Once {
 public:
  // `shown` is what messages call the value, `advice` what they end with.
  void take(const T& value, const std::string& shown, const Mark& mark, bool generated,
            const char* advice = "") {
    const auto [used, is_new] = lines_.try_emplace(value, generated ? 0 : mark.line);
    if (is_new) return;
    refuse(mark, shown + " is used already" +
                     (used->second == 0 ? std::string() : ", in line " + std::to_string(used->second)) +
                     advice);
  }

 private:
  std::unordered_map<T, int> lines_;
};

class Checker {
 public:
  void vrf_name(const std::string& name, const Mark& mark, bool generated = false) {
    vrf_names_.take(name, "the VRF name " + quoted(name), mark, generated);
  }
  void vrf_id(std::uint32_t id, const Mark& mark, bool generated = false, bool of_table = false) {
    vrf_ids_.take(id, "the VRF id " + std::to_string(id) + (of_table ? " (taken from the table)" : ""), mark,
                  generated, of_table ? "; write an id" : "");
  }
  void interface(const router::Interface& interface, const Mark& name_mark, const Mark& index_mark,
                 bool generated = false) {
    interface_names_.take(interface.name, "the interface name " + quoted(interface.name), name_mark,
                          generated);
    indexes_.take(interface.index, "the interface index " + std::to_string(interface.index), index_mark,
                  generated);
  }

 private:
  Once<std::string> vrf_names_;
  Once<std::uint32_t> vrf_ids_;
  Once<std::string> interface_names_;
  Once<std::uint32_t> indexes_;
};

void add_configuration(const Document& document, RouterFile* file) {
  ConfigurationCollector collector;
  for (const VrfEntry& entry : document.vrfs) {
    collector.add(entry.vrf, entry.referenced, entry.configuration);
  }
  file->configuration = collector.take();
  file->configuration.insert(file->configuration.end(), document.settings.begin(), document.settings.end());
}

void add_written(Document* document, Checker* checker, RouterFile* file) {
  for (const VrfEntry& entry : document->vrfs) {
    checker->vrf_name(entry.vrf.name, entry.name_mark);
    if (entry.referenced) {
      file->references.push_back(entry.vrf.name);
      continue;
    }
    checker->vrf_id(entry.vrf.id, entry.id_mark, false, entry.id_is_of_table);
    file->vrfs.push_back(entry.vrf);
  }
  for (InterfaceEntry& entry : document->interfaces) {
    checker->interface(entry.interface, entry.name_mark, entry.index_mark);
    file->interfaces.push_back(std::move(entry.interface));
  }
}

void add_generated(const GeneratorEntry& entry, Checker* checker, RouterFile* file) {
  RouterFile generated;
  generate(entry, &generated);
  for (router::Vrf& vrf : generated.vrfs) {
    checker->vrf_name(vrf.name, entry.mark, true);
    checker->vrf_id(vrf.id, entry.mark, true);
    file->vrfs.push_back(std::move(vrf));
  }
  for (router::Interface& interface : generated.interfaces) {
    checker->interface(interface, entry.mark, entry.mark, true);
    file->interfaces.push_back(std::move(interface));
  }
}

void add_routes(const Document& document, RouterFile* file) {
  RouteCollector collector(file->interfaces);
  for (const VrfEntry& entry : document.vrfs) {
    for (const RouteEntry& route : entry.routes) collector.add(entry.vrf, route);
  }
  if (document.generate.routes_per_vrf > 0) {
    const RouteEntry routes = generated_routes(document.generate.routes_per_vrf, document.generate.mark);
    const std::size_t first = file->vrfs.size() - document.generate.vrfs;
    for (std::size_t at = first; at < file->vrfs.size(); ++at) collector.add(file->vrfs[at], routes);
  }
  file->routes = collector.finish();
}

}  // namespace

RouterFile combine_entries(Document* document) {
  RouterFile file;
  Checker checker;
  add_written(document, &checker, &file);
  add_configuration(*document, &file);
  add_generated(document->generate, &checker, &file);
  add_routes(*document, &file);
  return file;
}

}  // namespace router_file
