#include "cli/watch/difference_printer.h"

#include <fmt/format.h>
#include <fmt/ostream.h>

#include <cstdlib>
#include <optional>

#include "cli/output/json_list.h"
#include "cli/output/table.h"
#include "cli/output/times.h"
#include "platform/core/text/words.h"

namespace cli {

namespace {

constexpr char kSeparator = '\0';

Texts fields_of(std::string_view value) {
  Texts fields;
  while (!value.empty()) fields.emplace_back(text::take_until(&value, kSeparator));
  return fields;
}

// A row before and after; nothing of one that was added or removed.
struct Sides {
  std::optional<Texts> before;
  std::optional<Texts> now;

  const char* change() const {
    if (!before) return "added";
    return now ? "changed" : "removed";
  }
  const Texts& any() const { return now ? *now : *before; }
};

// Of a changed row only what differs; else all that is not part of its name.
bool is_shown(const Sides& sides, const WatchedField& field, std::size_t at) {
  if (sides.before && sides.now) return (*sides.before)[at] != (*sides.now)[at];
  return field.role == FieldRole::kValue;
}

Json words_json(std::string_view text) {
  Json words = Json::array();
  for (const std::string_view word : text::split(text, ' ')) words.push_back(word);
  return words;
}

Json field_json(FieldForm form, const std::string& text) {
  if (form == FieldForm::kWords) return words_json(text);
  if (text.empty()) return nullptr;
  return form == FieldForm::kNumber ? Json(std::strtoll(text.c_str(), nullptr, 10)) : Json(text);
}

Json side_json(const Sides& sides, const std::optional<Texts>& side, std::span<const WatchedField> fields) {
  if (!side) return nullptr;
  Json json = Json::object();
  for (std::size_t at = 0; at < fields.size(); ++at) {
    if (is_shown(sides, fields[at], at)) json[fields[at].key] = field_json(fields[at].form, (*side)[at]);
  }
  return json;
}

Json difference_json(const WatchedTable& table, const Sides& sides) {
  Json json = now_json();
  json.update({{"table", table.name}, {"change", sides.change()}});
  for (std::size_t at = 0; at < table.fields.size(); ++at) {
    const WatchedField& field = table.fields[at];
    if (field.role != FieldRole::kValue) json[field.key] = field_json(field.form, sides.any()[at]);
  }
  json["old"] = side_json(sides, sides.before, table.fields);
  json["new"] = side_json(sides, sides.now, table.fields);
  return json;
}

std::string field_text(const std::string& text) {
  return text.empty() ? "none" : printable(text);
}

// "state up", or "state up -> down"; empty for what an added or removed row does not have.
std::string words_of(const Sides& sides, const WatchedField& field, std::size_t at) {
  if (sides.before && sides.now)
    return fmt::format("{} {} -> {}", field.label, field_text((*sides.before)[at]),
                       field_text((*sides.now)[at]));
  const std::string& text = sides.any()[at];
  return text.empty() ? text : fmt::format("{} {}", field.label, field_text(text));
}

std::string difference_text(const WatchedTable& table, const Sides& sides) {
  std::string line =
      fmt::format("{} {} {} {}", now_text(), sides.change(), table.row_name, table.title(sides.any()));
  const char* before_field = ": ";
  for (std::size_t at = 0; at < table.fields.size(); ++at) {
    if (!is_shown(sides, table.fields[at], at)) continue;
    const std::string words = words_of(sides, table.fields[at], at);
    if (words.empty()) continue;
    line.append(std::exchange(before_field, ", ")).append(words);
  }
  return line;
}

}  // namespace

std::string joined_fields(const Texts& fields) {
  std::string joined;
  for (const std::string& field : fields) joined.append(field).push_back(kSeparator);
  return joined;
}

void DifferencePrinter::print(const KnownRow* before, const KnownRow* now) const {
  Sides sides;
  if (before != nullptr) sides.before = fields_of(before->value);
  if (now != nullptr) sides.now = fields_of(now->value);
  session_.out << (session_.json ? json_line(difference_json(table_, sides)) : difference_text(table_, sides))
               << '\n';
}

}  // namespace cli
