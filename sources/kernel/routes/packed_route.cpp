// Octets that name the fields that are present, then those fields; a field that is left out is zero. Numbers
// have seven bits in each octet, the lowest first. A route over one link with a gateway and a metric takes 15
// octets, which a string holds without an allocation.
#include "sources/kernel/routes/packed_route.h"

#include <algorithm>
#include <cstddef>
#include <utility>

namespace kernel {
namespace {

enum RouteField : unsigned {
  kIsIpv6 = 1U,
  kTos = 2U,
  kSource = 4U,
  kPriority = 8U,
  kObject = 16U,
  kCached = 32U,
  kPreferredSource = 64U,
  kDetails = 128U,
};

enum PathField : unsigned {
  kGateway = 1U,
  kGatewayIsIpv6 = 2U,
  kLabels = 4U,
  kTunnel = 8U,
  kDead = 16U,
  kIgnored = 32U,
  kProtocol = 64U,
  kWeight = 128U,
};

unsigned when(bool present, unsigned field) {
  return present ? field : 0U;
}

class Packer {
 public:
  void octet(unsigned value) { octets_.push_back(static_cast<char>(value)); }
  void number(std::uint64_t value) {
    for (; value >= 0x80; value >>= 7) octet(static_cast<unsigned>(value & 0x7f) | 0x80U);
    octet(static_cast<unsigned>(value));
  }
  void address(const router::RouteAddress& address, router::Family family) {
    for (std::size_t at = 0; at < inet::octets_of(family); ++at) octet(address[at]);
  }
  std::string take() { return std::move(octets_); }

 private:
  std::string octets_;
};

class Unpacker {
 public:
  explicit Unpacker(std::string_view octets) : octets_(octets) {}
  bool is_at_end() const { return octets_.empty(); }
  std::uint8_t octet() {
    const auto value = static_cast<std::uint8_t>(octets_.front());
    octets_.remove_prefix(1);
    return value;
  }
  std::uint32_t number() {
    std::uint32_t value = 0;
    for (unsigned shift = 0;; shift += 7) {
      const std::uint8_t next = octet();
      value |= static_cast<std::uint32_t>(next & 0x7fU) << shift;
      if (next < 0x80) return value;
    }
  }
  router::RouteAddress address(router::Family family) {
    router::RouteAddress address{};
    std::generate_n(address.begin(), inet::octets_of(family), [this] { return octet(); });
    return address;
  }

 private:
  std::string_view octets_;
};

router::Family family_if(bool is_ipv6) {
  return is_ipv6 ? router::Family::kIpv6 : router::Family::kIpv4;
}

bool is_ipv6(router::Family family) {
  return family == router::Family::kIpv6;
}

void pack_path(const RoutePath& path, Packer* packer) {
  packer->octet(when(path.has_gateway, kGateway) | when(is_ipv6(path.gateway_family), kGatewayIsIpv6) |
                when(!path.labels.empty(), kLabels) | when(path.tunnel, kTunnel) | when(path.dead, kDead) |
                when(path.ignored, kIgnored) | when(path.protocol != 0, kProtocol) |
                when(path.weight != 0, kWeight));
  packer->number(path.interface_index);
  if (path.has_gateway) packer->address(path.gateway, path.gateway_family);
  if (path.protocol != 0) packer->octet(path.protocol);
  if (path.weight != 0) packer->octet(path.weight);
  if (path.labels.empty()) return;
  packer->number(path.labels.size());
  for (const std::uint32_t label : path.labels) packer->number(label);
}

RoutePath unpack_path(Unpacker* unpacker) {
  RoutePath path;
  const unsigned fields = unpacker->octet();
  path.interface_index = unpacker->number();
  path.has_gateway = (fields & kGateway) != 0;
  path.gateway_family = family_if((fields & kGatewayIsIpv6) != 0);
  if (path.has_gateway) path.gateway = unpacker->address(path.gateway_family);
  path.tunnel = (fields & kTunnel) != 0;
  path.dead = (fields & kDead) != 0;
  path.ignored = (fields & kIgnored) != 0;
  if ((fields & kProtocol) != 0) path.protocol = unpacker->octet();
  if ((fields & kWeight) != 0) path.weight = unpacker->octet();
  if ((fields & kLabels) != 0) path.labels.resize(unpacker->number());
  std::ranges::generate(path.labels, [unpacker] { return unpacker->number(); });
  return path;
}

bool has_source(const KernelRoute& route) {
  return route.source_length != 0 || route.source != router::RouteAddress{};
}

}  // namespace

std::string pack(const KernelRoute& route) {
  Packer packer;
  packer.octet(when(is_ipv6(route.family), kIsIpv6) | when(route.tos != 0, kTos) |
               when(has_source(route), kSource) | when(route.priority != 0, kPriority) |
               when(route.next_hop_object != 0, kObject) | when(route.cached, kCached) |
               when(route.preferred_source != 0, kPreferredSource) | when(route.details != 0, kDetails));
  packer.octet(route.type);
  packer.octet(route.protocol);
  if (route.tos != 0) packer.octet(route.tos);
  if (has_source(route)) {
    packer.octet(route.source_length);
    packer.address(route.source, router::Family::kIpv6);
  }
  for (const std::uint32_t each :
       {route.priority, route.next_hop_object, route.preferred_source, route.details}) {
    if (each != 0) packer.number(each);
  }
  for (const RoutePath& path : route.paths) pack_path(path, &packer);
  return packer.take();
}

KernelRoute unpack(std::string_view octets) {
  Unpacker unpacker(octets);
  const unsigned fields = unpacker.octet();
  KernelRoute route;
  route.family = family_if((fields & kIsIpv6) != 0);
  route.type = unpacker.octet();
  route.protocol = unpacker.octet();
  route.cached = (fields & kCached) != 0;
  if ((fields & kTos) != 0) route.tos = unpacker.octet();
  if ((fields & kSource) != 0) {
    route.source_length = unpacker.octet();
    route.source = unpacker.address(router::Family::kIpv6);
  }
  if ((fields & kPriority) != 0) route.priority = unpacker.number();
  if ((fields & kObject) != 0) route.next_hop_object = unpacker.number();
  if ((fields & kPreferredSource) != 0) route.preferred_source = unpacker.number();
  if ((fields & kDetails) != 0) route.details = unpacker.number();
  while (!unpacker.is_at_end()) route.paths.push_back(unpack_path(&unpacker));
  return route;
}

std::uint32_t preferred_source_of(std::string_view octets) {
  const bool has_one = (static_cast<unsigned char>(octets.front()) & kPreferredSource) != 0;
  return has_one ? unpack(octets).preferred_source : 0;
}

}  // namespace kernel
