// The patterns of items.cpp, taken apart once.
#include "platform/config/paths.h"

#include <algorithm>

#include "platform/config/path_keys.h"
#include "platform/config/vrf_config.h"
#include "platform/core/text/words.h"

namespace vrf_config {

namespace {

struct Part {
  std::string_view literal;  // empty: a key
  bool is_any = false;       // the literal is written, but any component is accepted
  const Key* key = nullptr;
  std::size_t first = 0;  // the key's first component
};

struct Pattern {
  const Item* item;
  std::vector<Part> parts;
  std::size_t size = 0;  // components
};

Part part_of(std::string_view text) {
  if (!text.starts_with('<')) return {text};
  text = text.substr(1, text.size() - 2);
  if (text.starts_with('=')) return {text.substr(1), true};
  return {{}, false, find_key(text)};
}

Pattern pattern_of(const Item& item) {
  Pattern pattern{&item, {}};
  for (const std::string_view text : text::split(item.path, '/')) {
    Part part = part_of(text);
    part.first = pattern.size;
    pattern.size += part.key == nullptr ? 1 : part.key->size;
    pattern.parts.push_back(part);
  }
  return pattern;
}

const std::vector<Pattern>& patterns() {
  static const std::vector<Pattern> all = [] {
    std::vector<Pattern> made;
    for (const Item& item : all_items()) made.push_back(pattern_of(item));
    return made;
  }();
  return all;
}

const Pattern& pattern_for(const Item& item) {
  return patterns()[static_cast<std::size_t>(&item - all_items().data())];
}

bool part_fits(const Part& part, std::string_view component) {
  if (part.key == nullptr) return part.is_any || part.literal == component;
  return part.key->accepts == nullptr || part.key->accepts(component);
}

bool pattern_fits(const Pattern& pattern, const std::vector<std::string_view>& components) {
  return pattern.size == components.size() &&
         std::all_of(pattern.parts.begin(), pattern.parts.end(),
                     [&](const Part& part) { return part_fits(part, components[part.first]); });
}

Components components_of(const ParsedPath& path, const Part& part) {
  return Components(path.components).subspan(part.first, part.key->size);
}

// The field that the path's keys of these names have; none when there is no such key, or it cannot be read.
std::optional<std::string> named_key(std::string_view path, std::string_view name,
                                     std::string Fields::*field) {
  const std::optional<ParsedPath> parsed = parse_path(path);
  if (!parsed) return std::nullopt;
  for (const Part& part : pattern_for(*parsed->item).parts) {
    if (part.key == nullptr || !part.key->name.ends_with(name)) continue;
    Fields fields;
    if (!part.key->read(components_of(*parsed, part), &fields) || (fields.*field).empty())
      return std::nullopt;
    return fields.*field;
  }
  return std::nullopt;
}

bool read_number(std::int64_t value, std::uint32_t* number) {
  *number = static_cast<std::uint32_t>(value);
  return value == *number;
}

}  // namespace

std::string path_of(const Item& item, const Fields& fields) {
  std::string path(item.scope);
  for (const Part& part : pattern_for(item).parts) {
    if (part.first != 0) path += '/';
    path += part.key == nullptr ? std::string(part.literal) : part.key->write(fields);
  }
  return path;
}

KvConfigNode node_of(const Item& item, const Fields& fields) {
  KvConfigNode node{path_of(item, fields), {}};
  switch (item.value) {
    case ValueForm::kText:
      node.value.type = KvValueType::kText;
      node.value.text = fields.text;
      break;
    case ValueForm::kNumbers:
      node.value.type = KvValueType::kTuple;
      node.value.tuple = {fields.number, fields.mid};
      break;
    case ValueForm::kPresent:
    case ValueForm::kNumber:
      node.value.type = KvValueType::kNumber;
      node.value.number = item.value == ValueForm::kPresent ? 1 : fields.number;
      break;
  }
  return node;
}

bool read_value(const Item& item, const KvValue& value, Fields* fields) {
  switch (item.value) {
    case ValueForm::kPresent:
      return true;
    case ValueForm::kText:
      fields->text = value.text;
      return value.type == KvValueType::kText;
    case ValueForm::kNumber:
      return value.type == KvValueType::kNumber && read_number(value.number, &fields->number);
    case ValueForm::kNumbers:
      return value.type == KvValueType::kTuple && value.tuple.size() == 2 &&
             read_number(value.tuple[0], &fields->number) && read_number(value.tuple[1], &fields->mid);
  }
  return false;
}

std::optional<ParsedPath> parse_path(std::string_view path) {
  ParsedPath parsed;
  std::string_view scope;  // of the components
  for (const Pattern& pattern : patterns()) {
    if (!path.starts_with(pattern.item->scope)) continue;
    if (scope != pattern.item->scope) {
      scope = pattern.item->scope;
      parsed.components = text::split(path.substr(scope.size()), '/');
    }
    if (!pattern_fits(pattern, parsed.components)) continue;
    parsed.item = pattern.item;
    return parsed;
  }
  return std::nullopt;
}

std::optional<Fields> fields_of(const ParsedPath& path) {
  Fields fields;
  fields.direction = path.item->direction;
  for (const Part& part : pattern_for(*path.item).parts) {
    if (part.key != nullptr && !part.key->read(components_of(path, part), &fields)) return std::nullopt;
  }
  return fields;
}

std::optional<Fields> exact_fields_of(std::string_view path) {
  const std::optional<ParsedPath> parsed = parse_path(path);
  if (!parsed) return std::nullopt;
  std::optional<Fields> fields = fields_of(*parsed);
  return fields && path_of(*parsed->item, *fields) == path ? std::move(fields) : std::nullopt;
}

std::optional<std::string> vrf_of(std::string_view path) {
  return named_key(path, "vrf", &Fields::vrf);
}

std::optional<Kind> kind_of(std::string_view path) {
  const std::optional<ParsedPath> parsed = parse_path(path);
  return parsed ? std::optional(parsed->item->kind) : std::nullopt;
}

std::optional<std::string> interface_of(std::string_view path) {
  return named_key(path, "interface", &Fields::interface);
}

}  // namespace vrf_config
