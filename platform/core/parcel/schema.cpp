// The parser of schema texts: one pass over the text by recursive descent; then the references between
// structures are resolved from numbers to positions and checked for cycles. No state between calls.
#include "platform/core/parcel/schema.h"

#include <algorithm>
#include <charconv>

namespace parcel_detail {
namespace {

bool is_name_character(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_' || c == '-';
}

class Parser {
 public:
  explicit Parser(std::string_view text) : rest_(text) {}

  bool schema(Schema* schema) {
    do {
      if (schema->structures.size() == kMaxStructures) return false;
      if (!structure(&schema->structures.emplace_back())) return false;
    } while (!rest_.empty());
    return true;
  }

 private:
  bool take(std::string_view expected) {
    if (!rest_.starts_with(expected)) return false;
    rest_.remove_prefix(expected.size());
    return true;
  }

  bool number(std::uint32_t* value) {
    const auto [end, error] = std::from_chars(rest_.data(), rest_.data() + rest_.size(), *value);
    if (error != std::errc() || *value == 0) return false;
    rest_.remove_prefix(static_cast<std::size_t>(end - rest_.data()));
    return true;
  }

  // A name between its brackets; the opening one was taken.
  bool name(char closing, std::string* name) {
    const auto end = std::find_if_not(rest_.begin(), rest_.end(), is_name_character);
    if (end == rest_.begin() || end == rest_.end() || *end != closing) return false;
    name->assign(rest_.begin(), end);
    rest_.remove_prefix(name->size() + 1);
    return true;
  }

  bool structure(SchemaStructure* structure) {
    if (!take("$") || !number(&structure->number) || !take("=")) return false;
    do {
      if (!field(&structure->fields.emplace_back())) return false;
    } while (!take(";"));
    return true;
  }

  bool field(SchemaField* field) {
    if (take("{") && !name('}', &field->name)) return false;
    if (take("[")) {
      field->kind = FieldKind::kEnumeration;
      return name(']', &field->enumeration) && take("e");
    }
    return scalar(field) || array(field);
  }

  bool scalar(SchemaField* field) {
    const std::size_t code = rest_.empty() ? std::string_view::npos : kFieldCodes.find(rest_.front());
    if (code == std::string_view::npos) return false;
    field->kind = static_cast<FieldKind>(code);
    rest_.remove_prefix(1);
    return true;
  }

  bool array(SchemaField* field) {
    if (take("a($")) {
      field->kind = FieldKind::kStructures;
      return number(&field->nested) && take(")");
    }
    field->kind = FieldKind::kOctetArray;
    return number(&field->max) && take("a(C)");
  }

  std::string_view rest_;
};

// The place of the structure with this number, or the number of structures.
std::size_t place_of(const Schema& schema, std::uint32_t number) {
  const auto found = std::find_if(schema.structures.begin(), schema.structures.end(),
                                  [&](const SchemaStructure& one) { return one.number == number; });
  return static_cast<std::size_t>(found - schema.structures.begin());
}

bool numbers_are_unique(const Schema& schema) {
  for (std::size_t i = 0; i < schema.structures.size(); ++i) {
    if (place_of(schema, schema.structures[i].number) != i) return false;
  }
  return true;
}

bool resolve_references(Schema* schema) {
  for (SchemaStructure& structure : schema->structures) {
    for (SchemaField& field : structure.fields) {
      if (field.kind != FieldKind::kStructures) continue;
      const std::size_t place = place_of(*schema, field.nested);
      if (place == schema->structures.size()) return false;
      field.nested = static_cast<std::uint32_t>(place);
    }
  }
  return true;
}

// The levels of structures below each one are computed in at most kMaxNesting rounds, in each of which every
// structure looks at those it contains; a cycle never settles.
bool nesting_is_bounded(const Schema& schema) {
  std::vector<unsigned> levels(schema.structures.size(), 1);
  for (unsigned round = 0; round < kMaxNesting; ++round) {
    bool changed = false;
    for (std::size_t i = 0; i < levels.size(); ++i) {
      for (const SchemaField& field : schema.structures[i].fields) {
        if (field.kind != FieldKind::kStructures || levels[i] > levels[field.nested]) continue;
        levels[i] = levels[field.nested] + 1;
        changed = true;
      }
    }
    if (!changed) return *std::max_element(levels.begin(), levels.end()) <= kMaxNesting;
  }
  return false;
}

}  // namespace

Status parse_schema(std::string_view text, Schema* schema) {
  Schema parsed;
  if (text.size() > kMaxSchemaText || !Parser(text).schema(&parsed)) return kStatusBadDescription;
  if (!numbers_are_unique(parsed) || !resolve_references(&parsed)) return kStatusBadDescription;
  if (!nesting_is_bounded(parsed)) return kStatusBadDescription;
  *schema = std::move(parsed);
  return kStatusOk;
}

}  // namespace parcel_detail
