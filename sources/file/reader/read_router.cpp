// The first pass reads the keys of each entry and remembers the position of its identifying values. The
// second pass (combined_entries.cpp) checks the entries against each other (a name, id or index is used once)
// and makes the lists. Both throw Misreading, which parse() turns into a ParseError.
//
// Generated entries are checked against the written ones too; a clash is reported at the `generate` key.
#include "sources/file/reader/router_file.h"

#include "sources/file/reader/router_entries.h"

namespace router_file {

namespace {

constexpr Key<GeneratorEntry> kGeneratorKeys[] = {
    {"vrfs",
     [](const Node& value, GeneratorEntry* entry) {
       entry->vrfs = read_number(value, "the number of generated VRFs", 0, kGeneratedVrfsMax);
       entry->has_vrfs = true;
     }},
    {"interfaces_per_vrf",
     [](const Node& value, GeneratorEntry* entry) {
       entry->interfaces_per_vrf =
           read_number(value, "the number of interfaces per VRF", 0, kGeneratedInterfacesPerVrfMax);
       entry->has_interfaces = true;
     }},
    {"first_id",
     [](const Node& value, GeneratorEntry* entry) {
       entry->first_id = read_number(value, "the first id", kFirstVrfId, kIndexMax);
     }},
    {"first_index",
     [](const Node& value, GeneratorEntry* entry) {
       entry->first_index = read_number(value, "the first index", 1, kIndexMax);
     }},
    {"routes_per_vrf",
     [](const Node& value, GeneratorEntry* entry) {
       entry->routes_per_vrf = read_number(value, "the number of routes per VRF", 0, kGeneratedRoutesMax);
     }},
};

void read_generator(const Node& value, Document* document) {
  GeneratorEntry& entry = document->generate;
  entry.mark = value.mark();
  read_map(value, "generate", kGeneratorKeys, &entry);
  if (!entry.has_vrfs || !entry.has_interfaces)
    refuse(entry.mark, "generate needs vrfs and interfaces_per_vrf");
  const std::uint32_t interfaces = entry.vrfs * entry.interfaces_per_vrf;
  if (interfaces > kGeneratedInterfacesMax) {
    refuse(entry.mark, "generate makes " + std::to_string(interfaces) + " interfaces, more than " +
                           std::to_string(kGeneratedInterfacesMax));
  }
  if (interfaces > kIndexMax - entry.first_index) refuse(entry.mark, "generate passes the largest index");
}

constexpr Key<Document> kDocumentKeys[] = {
    {"vrfs",
     [](const Node& value, Document* document) {
       read_sequence(value, "VRFs", [&](const Node& item) { read_vrf(item, document); });
     }},
    {"interfaces",
     [](const Node& value, Document* document) {
       read_sequence(value, "interfaces", [&](const Node& item) { read_interface(item, document); });
     }},
    {"generate", read_generator},
    {"as_format", [](const Node& value, Document* document) { read_as_format(value, &document->settings); }},
    {"traps", [](const Node& value, Document* document) { read_traps(value, &document->settings); }},
};

// Also "vrfs:" alone, which is what remains of a file that was cut: loading it would delete every VRF.
bool is_empty(const Node* root) {
  if (root == nullptr || root->is_null()) return true;
  if (!root->is_map() || root->items().empty()) return false;
  for (std::size_t value = 1; value < root->items().size(); value += 2) {
    if (!root->items()[value]->is_null()) return false;
  }
  return true;
}

RouterFile read_document(const std::string& text) {
  const YamlDocument yaml = parse_yaml(text);
  if (is_empty(yaml.root)) {
    refuse(Mark{1, 1}, "the file is empty; a router without anything is written \"vrfs: []\"");
  }
  Document document;
  read_map(*yaml.root, "a router file", kDocumentKeys, &document);
  return combine_entries(&document);
}

void set_error(const Mark& mark, const std::string& what, ParseError* error) {
  *error = mark.is_null() ? ParseError{1, 1, what} : ParseError{mark.line, mark.column, what};
}

}  // namespace

bool parse(const std::string& text, RouterFile* file, ParseError* error) {
  try {
    *file = read_document(text);
    return true;
  } catch (const Misreading& misreading) {
    set_error(misreading.mark(), misreading.what(), error);
  }
  return false;
}

}  // namespace router_file
