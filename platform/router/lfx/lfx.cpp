#include "platform/router/lfx/lfx.h"

#include <algorithm>
#include <cstring>

#include "platform/core/base/fault.h"

namespace {

constexpr std::uint8_t kForm = 1;
constexpr std::size_t kLabelsShown = 3;

router::Router* attached_model = nullptr;

// Appends the lowest `octets` octets of a number, the highest of them first.
std::uint8_t* append(std::uint8_t* to, std::uint32_t number, unsigned octets) {
  while (octets-- > 0) *to++ = static_cast<std::uint8_t>(number >> (8 * octets));
  return to;
}

std::uint8_t* append(std::uint8_t* to, const router::RouteAddress& address) {
  return std::copy_n(address.begin(), 4, to);
}

std::size_t write_index(const router::Route& route, std::uint32_t table_id, std::uint8_t* buffer) {
  std::uint8_t* to = append(buffer, kForm, 1);
  to = append(to, table_id, 4);
  to = append(to, route.key.destination);
  to = append(to, route.key.prefix_length, 1);
  to = append(to, route.key.next_hop);
  to = append(to, static_cast<std::uint32_t>(route.labels.size()), 1);
  for (std::size_t at = 0; at < std::min(route.labels.size(), kLabelsShown); ++at) {
    to = append(to, route.labels[at], 3);
  }
  return static_cast<std::size_t>(to - buffer);
}

}  // namespace

void lfx_attach(router::Router* model) {
  attached_model = model;
}

Status lfx_c_lsr_xc_idx(std::uint8_t* buffer, std::size_t size, std::size_t* length,
                        const LfxRequest* request) {
  if (Status status = fault_check("lfx_c_lsr_xc_idx")) return status;
  if (buffer == nullptr || length == nullptr || request == nullptr || size < kLfxIndexMax ||
      request->kind != kLfxIpv4Route) {
    return kStatusInvalid;
  }
  if (attached_model == nullptr) return kStatusNotConnected;
  if (request->prefix_length > 32) return kStatusNoCrossConnect;
  router::RouteAddress destination{};
  std::memcpy(destination.data(), &request->destination, sizeof request->destination);
  router::Route route;
  if (!attached_model->routes().find_labelled({router::Family::kIpv4, request->table_id}, destination,
                                              static_cast<std::uint8_t>(request->prefix_length), &route)) {
    return kStatusNoCrossConnect;
  }
  *length = write_index(route, request->table_id, buffer);
  return kStatusOk;
}
