// Printing of an encoded record of any type as JSON (RFC 8259), without its compiled-in layout.
//
// The record names its type. The annotated schema is taken from this process's registry or, for a reader
// without it, from the registry file; its hash must equal the one in the record. The text is written while
// the octets are read, so no count causes an allocation; the text has its own limit, because names repeat for
// every element. Enumerations are printed as numbers (only their readers know the names), octet strings as
// hexadecimal digits.
#include "platform/core/parcel/json.h"

#include <algorithm>
#include <array>
#include <charconv>

#include "platform/core/base/utf8.h"
#include "platform/core/parcel/parcel.h"
#include "platform/core/parcel/registry.h"
#include "platform/core/parcel/schema.h"

namespace parcel_detail {
namespace {

constexpr std::size_t kMaxJson = 16U << 20;
constexpr std::string_view kDigits = "0123456789abcdef";
constexpr std::string_view kReplacement = "\xef\xbf\xbd";

void append_ascii(char c, std::string* out) {
  const auto code = static_cast<std::uint8_t>(c);
  if (c == '"' || c == '\\') {
    *out += '\\';
    *out += c;
  } else if (code < 0x20 || code == 0x7f) {
    *out += "\\u00";
    *out += kDigits[code >> 4U];
    *out += kDigits[code & 0xfU];
  } else {
    *out += c;
  }
}

// Appends the text in quotes. Quotes, backslashes and control characters are escaped; each octet that is not
// UTF-8 (RFC 3629) becomes U+FFFD, because JSON text is Unicode whatever a router was configured with.
void append_json_text(std::string_view text, std::string* out) {
  *out += '"';
  while (!text.empty()) {
    const std::size_t length = utf8_length(text);
    if (length == 1) {
      append_ascii(text.front(), out);
    } else {
      out->append(length == 0 ? kReplacement : text.substr(0, length));
    }
    text.remove_prefix(std::max<std::size_t>(length, 1));
  }
  *out += '"';
}

class Printer {
 public:
  Printer(const Schema& schema, Cursor in, std::string* out) : schema_(schema), in_(in), out_(*out) {}

  Status record() {
    if (Status s = structure(schema_.structures[0])) return s;
    return in_.left() == 0 ? kStatusOk : kStatusBadEncoding;
  }

 private:
  Status structure(const SchemaStructure& structure) {
    char separator = '{';
    for (const SchemaField& one : structure.fields) {
      out_ += separator;
      append_json_text(one.name, &out_);
      out_ += ':';
      if (Status s = field(one)) return s;
      separator = ',';
    }
    out_ += '}';
    return out_.size() > kMaxJson ? kStatusMessageTooLarge : kStatusOk;
  }

  Status field(const SchemaField& field) {
    switch (field.kind) {
      case FieldKind::kText:
        return text();
      case FieldKind::kOctet:
        return octet();
      case FieldKind::kOctets:
        return octets();
      case FieldKind::kOctetArray:
        return octet_array(field.max);
      case FieldKind::kStructures:
        return structures(schema_.structures[field.nested]);
      default:
        return word(field.kind);
    }
  }

  Status text() {
    bool present = false;
    std::string_view text;
    if (!in_.text(&present, &text)) return kStatusBadEncoding;
    if (present) {
      append_json_text(text, &out_);
    } else {
      out_ += "null";
    }
    return kStatusOk;
  }

  template <typename T>
  void number(T value) {
    std::array<char, 16> digits;
    const auto [end, error] = std::to_chars(digits.data(), digits.data() + digits.size(), value);
    out_.append(digits.data(), end);
  }

  Status word(FieldKind kind) {
    std::uint32_t value = 0;
    if (!in_.u32(&value)) return kStatusBadEncoding;
    if (kind == FieldKind::kBoolean) {
      out_ += value != 0 ? "true" : "false";
    } else if (kind == FieldKind::kSigned) {
      number(static_cast<std::int32_t>(value));
    } else {
      number(value);
    }
    return kStatusOk;
  }

  Status octet() {
    std::uint8_t value = 0;
    if (!in_.octet(&value)) return kStatusBadEncoding;
    number(unsigned{value});
    return kStatusOk;
  }

  Status octets() {
    std::uint32_t count = 0;
    const std::uint8_t* octets = nullptr;
    if (!in_.u32(&count) || !in_.octets(count, &octets)) return kStatusBadEncoding;
    out_ += '"';
    for (std::uint32_t i = 0; i < count; ++i) {
      out_ += kDigits[octets[i] >> 4U];
      out_ += kDigits[octets[i] & 0xfU];
    }
    out_ += '"';
    return kStatusOk;
  }

  Status octet_array(std::uint32_t max) {
    std::uint32_t count = 0;
    if (!in_.u32(&count) || count > max) return kStatusBadEncoding;
    return elements(count, [this] { return octet(); });
  }

  Status structures(const SchemaStructure& nested) {
    std::uint32_t count = 0;
    if (!in_.u32(&count)) return kStatusBadEncoding;
    return elements(count, [this, &nested] { return structure(nested); });
  }

  template <typename Element>
  Status elements(std::uint32_t count, Element element) {
    out_ += '[';
    for (std::uint32_t i = 0; i < count; ++i) {
      if (i != 0) out_ += ',';
      if (Status s = element()) return s;
    }
    out_ += ']';
    return kStatusOk;
  }

  const Schema& schema_;
  Cursor in_;
  std::string& out_;
};

bool fits(const Prefix& prefix, const Definition& definition) {
  return prefix.version == definition.version && prefix.reader_version == definition.reader_version &&
         prefix.hash == schema_hash(definition.schema);
}

// The schema that the record was encoded with. kStatusNoSuchRow when its type is unknown, kStatusBadEncoding
// when it is known with other definitions only.
Status find_schema(const Prefix& prefix, std::string* schema) {
  const std::string type_name(prefix.type_name);
  const ParcelDescription* own = parcel_find(type_name.c_str());
  if (own != nullptr) {
    const Definition definition{own->version, own->reader_version, {}, own->annotated_schema};
    if (fits(prefix, definition)) {
      *schema = definition.schema;
      return kStatusOk;
    }
  }
  const Definitions file = read_registry_file();
  const auto found = file.find(type_name);
  if (found == file.end()) return own == nullptr ? kStatusNoSuchRow : kStatusBadEncoding;
  if (!fits(prefix, found->second)) return kStatusBadEncoding;
  *schema = found->second.schema;
  return kStatusOk;
}

}  // namespace

Status print_record(std::string_view annotated_schema, Cursor in, std::string* json) {
  Schema schema;
  if (Status s = parse_schema(annotated_schema, &schema)) return s;
  std::string text;
  if (Status s = Printer(schema, in, &text).record()) return s;
  *json = std::move(text);
  return kStatusOk;
}

}  // namespace parcel_detail

Status parcel_to_json(const std::uint8_t* data, std::size_t length, std::string* json) {
  if (json == nullptr) return kStatusInvalid;
  parcel_detail::Cursor in(data, data == nullptr ? 0 : length);
  parcel_detail::Prefix prefix;
  if (length > kParcelMaxSize || !read_prefix(&in, &prefix)) return kStatusBadEncoding;
  std::string schema;
  if (Status s = parcel_detail::find_schema(prefix, &schema)) return s;
  return parcel_detail::print_record(schema, in, json);
}
