// Names, numbers and addresses derive from the two counters only: the same file always makes the same router,
// and saved times stay with their VRFs.
#include "sources/file/reader/generator.h"

#include <cstdio>

namespace router_file {

namespace {

constexpr std::uint32_t kFirstIpv4 = 0x0a000000;  // 10.0.0.0/8

std::string numbered(const char* prefix, std::uint32_t number) {
  char text[32];
  std::snprintf(text, sizeof text, "%s%05u", prefix, number);
  return text;
}

router::Vrf generated_vrf(const Generator& generator, std::uint32_t number) {
  router::Vrf vrf;
  vrf.name = numbered("customer-", number);
  vrf.id = generator.first_id + (number - 1);
  vrf.ipv4_table = vrf.id;
  vrf.ipv6_table = vrf.id;
  vrf.description = "generated customer " + std::to_string(number);
  vrf.rd = "65000:" + std::to_string(number);
  return vrf;
}

std::uint8_t octet(std::uint32_t value, unsigned position) {
  return static_cast<std::uint8_t>(value >> (8 * position));
}

router::Address generated_ipv4(std::uint32_t running) {
  const std::uint32_t host = kFirstIpv4 + running * 4 + 1;
  router::Address address;
  address.family = router::Family::kIpv4;
  address.prefix_length = 30;
  for (unsigned at = 0; at < 4; ++at) address.octets[at] = octet(host, 3 - at);
  return address;
}

router::Address generated_ipv6(std::uint32_t running) {
  router::Address address;
  address.family = router::Family::kIpv6;
  address.prefix_length = 64;
  address.octets = {0x20, 0x01, 0x0d, 0xb8};
  for (unsigned at = 0; at < 4; ++at) address.octets[4 + at] = octet(running, 3 - at);
  address.octets[15] = 1;
  return address;
}

router::Interface generated_interface(const Generator& generator, const router::Vrf& vrf,
                                      std::uint32_t vrf_number, std::uint32_t number) {
  const std::uint32_t running = (vrf_number - 1) * generator.interfaces_per_vrf + (number - 1);
  router::Interface interface;
  interface.index = generator.first_index + running;
  interface.name = numbered("cust", vrf_number) + "." + std::to_string(number);
  interface.description = "to customer " + std::to_string(vrf_number) + ", site " + std::to_string(number);
  interface.vrf = vrf.name;
  interface.up = true;
  interface.addresses = {generated_ipv4(running), generated_ipv6(running)};
  return interface;
}

}  // namespace

void generate(const Generator& generator, RouterFile* file) {
  for (std::uint32_t vrf_number = 1; vrf_number <= generator.vrfs; ++vrf_number) {
    const router::Vrf& vrf = file->vrfs.emplace_back(generated_vrf(generator, vrf_number));
    for (std::uint32_t number = 1; number <= generator.interfaces_per_vrf; ++number) {
      file->interfaces.push_back(generated_interface(generator, vrf, vrf_number, number));
    }
  }
}

}  // namespace router_file
