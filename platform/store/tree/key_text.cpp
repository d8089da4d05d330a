// Key texts: the text form of a path component. Octets outside [A-Za-z0-9_.:-] are written %XX, so that a
// component never contains a '/', and the text "-" is written %2D, because the component "-" means "absent".
//
// Decoding is lenient about octets that need no escape to be read back; it refuses a malformed escape and an
// escaped NUL, which no terminated text can hold.
#include <cstdlib>
#include <cstring>
#include <utility>

#include "platform/core/base/fault.h"
#include "platform/core/text/numbers.h"
#include "platform/store/tree/key_text.h"
#include "platform/store/tree/kvtree.h"

namespace {

constexpr char kHexDigits[] = "0123456789ABCDEF";

bool is_unescaped(char octet) {
  return (octet >= 'A' && octet <= 'Z') || (octet >= 'a' && octet <= 'z') || (octet >= '0' && octet <= '9') ||
         octet == '_' || octet == '.' || octet == ':' || octet == '-';
}

}  // namespace

namespace kvtree {

Status decode_text(std::string_view encoded, char* out, std::size_t* length) {
  std::size_t used = 0;
  for (std::size_t i = 0; i < encoded.size(); ++i) {
    char octet = encoded[i];
    if (octet == '%') {
      const std::string_view digits = encoded.substr(i + 1, 2);
      const auto value = text::parse_number<std::uint8_t>(digits, 0xff, 16);
      if (digits.size() < 2 || !value) return kStatusBadKey;
      octet = static_cast<char>(*value);
      i += 2;
    }
    if (octet == '\0') return kStatusBadKey;
    out[used++] = octet;
  }
  *length = used;
  return kStatusOk;
}

Status decode_key(std::string_view key, std::string* text) {
  text->clear();
  if (key == "-") return kStatusOk;
  std::string decoded(key.size(), '\0');
  std::size_t length = 0;
  if (const Status status = decode_text(key, decoded.data(), &length)) return status;
  decoded.resize(length);
  *text = std::move(decoded);
  return kStatusOk;
}

Status check_path(std::string_view path) {
  if (path.size() > kKvMaxPath) return kStatusMessageTooLarge;
  if (!path.starts_with('/')) return kStatusUnknownPath;
  return path.find('\0') == std::string_view::npos ? kStatusOk : kStatusBadKey;
}

}  // namespace kvtree

std::string kvtree_encode_text(std::string_view text) {
  if (text == "-") return "%2D";
  std::string encoded;
  encoded.reserve(text.size());
  for (const char octet : text) {
    if (is_unescaped(octet)) {
      encoded.push_back(octet);
      continue;
    }
    const auto value = static_cast<unsigned char>(octet);
    encoded.push_back('%');
    encoded.push_back(kHexDigits[value >> 4]);
    encoded.push_back(kHexDigits[value & 15]);
  }
  return encoded;
}

Status kvtree_string_encode(const char* text, char** out) {
  if (out == nullptr) return kStatusInvalid;
  *out = nullptr;
  if (const Status status = fault_check("kvtree_string_encode")) return status;
  if (text == nullptr) return kStatusInvalid;
  *out = strdup(kvtree_encode_text(text).c_str());
  return *out == nullptr ? kStatusNoMemory : kStatusOk;
}

Status kvtree_string_decode(const char* encoded, char** out) {
  if (out == nullptr) return kStatusInvalid;
  *out = nullptr;
  if (const Status status = fault_check("kvtree_string_decode")) return status;
  if (encoded == nullptr) return kStatusInvalid;
  const std::size_t size = std::strlen(encoded);
  *out = static_cast<char*>(std::malloc(size + 1));
  if (*out == nullptr) return kStatusNoMemory;
  std::size_t length = 0;
  const Status status = kvtree::decode_text({encoded, size}, *out, &length);
  (*out)[length] = '\0';
  return status;
}
