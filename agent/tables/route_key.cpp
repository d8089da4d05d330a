// The key before the first IPv6 key is the last IPv4 one, since the daemon continues from a VRF's IPv4 routes
// with its IPv6 routes. The first IPv4 key has no predecessor; the walk's start is used instead.
#include "agent/tables/route_key.h"

#include <array>
#include <vector>

#include "platform/store/tree/kvtree.h"

namespace tables {
namespace {

constexpr char kStart[] = "/1/0/1/0/0";
constexpr std::uint8_t kAllBits = 0xff;

using Octets = std::vector<std::uint8_t>;

struct Key {
  std::uint32_t type = 0;
  Octets destination;
  std::uint32_t prefix_length = 0;
  Octets next_hop;
};

Octets octets_of(oid::View numbers) {
  Octets octets;
  for (const std::uint32_t number : numbers) octets.push_back(static_cast<std::uint8_t>(number));
  return octets;
}

// Subtracts one from the octets as a number. False, and all octets become the highest, when it was 0.
bool decrement(Octets* octets) {
  for (std::size_t i = octets->size(); i-- > 0;) {
    if ((*octets)[i] != 0) {
      --(*octets)[i];
      return true;
    }
    (*octets)[i] = kAllBits;
  }
  return false;
}

Key last_ipv4_key() {
  const std::uint32_t size = address_size(kInetAddressIpv4);
  return {kInetAddressIpv4, Octets(size, kAllBits), 8 * size, Octets(size, kAllBits)};
}

// The greatest key below this one. False for the smallest of all.
bool to_preceding(Key* key) {
  if (decrement(&key->next_hop)) return true;
  if (key->prefix_length > 0) {
    --key->prefix_length;
    return true;
  }
  key->prefix_length = 8 * address_size(key->type);
  if (decrement(&key->destination)) return true;
  if (key->type == kInetAddressIpv4) return false;
  *key = last_ipv4_key();
  return true;
}

std::string hexadecimal(const Octets& octets) {
  static constexpr char kDigits[] = "0123456789abcdef";
  std::string text;
  for (const std::uint8_t octet : octets) {
    text += kDigits[octet >> 4U];
    text += kDigits[octet & 0xfU];
  }
  return text;
}

// REQUIRES: `parts` are the numbers after the name in an index.
Key key_of(oid::View parts) {
  Key key;
  key.type = parts[0];
  const std::uint32_t size = address_size(key.type);
  key.destination = octets_of(parts.subspan(2, size));
  key.prefix_length = parts[2 + size];
  const oid::View next_hop = parts.subspan(2 + size + 1 + kRoutePolicy.size() + 2);
  key.next_hop = next_hop.empty() ? Octets(size, 0) : octets_of(next_hop);
  return key;
}

}  // namespace

bool add_route_index(const RouteIndex& index, Window* window) {
  if (index.destination.size() != address_size(index.destination_type) ||
      index.next_hop.size() != address_size(index.next_hop_type)) {
    return false;
  }
  window->add_index(index.destination_type);
  window->add_index(address_size(index.destination_type));
  for (const std::uint8_t octet : index.destination) window->add_index(octet);
  window->add_index(index.prefix_length);
  for (const std::uint32_t number : kRoutePolicy) window->add_index(number);
  window->add_index(index.next_hop_type);
  window->add_index(address_size(index.next_hop_type));
  for (const std::uint8_t octet : index.next_hop) window->add_index(octet);
  return true;
}

std::string route_path(IndexShape, oid::View index) {
  const std::uint32_t name_length = index[0];
  std::string path = "/";
  std::string name;
  for (const std::uint32_t octet : index.subspan(1, name_length)) name += static_cast<char>(octet);
  path += kvtree_encode_text(name);
  Key key = key_of(index.subspan(1 + name_length));
  if (!to_preceding(&key)) return path + kStart;
  const std::string type = std::to_string(key.type);
  return path + "/" + type + "/" + std::to_string(key.prefix_length) + "/" + type + "/" +
         hexadecimal(key.destination) + "/" + hexadecimal(key.next_hop);
}

}  // namespace tables
