// The record service's client: its registration and its accesses.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>

#include "platform/core/evm/evm.h"
#include "platform/router/vtab/if_records.h"
#include "platform/router/vtab/vrf_records.h"

namespace vtab {

// What a client has registered; the numbers are its own and not interpreted.
struct Client {
  EventManager* manager = nullptr;  // null: there is no client
  std::string name;
  std::size_t attribute_size = 0;
  std::array<std::uint32_t, 3> init_numbers{};  // of vtab_init
  VtabIfCallback if_callback = nullptr;
  VtabVrfCallback vrf_callback = nullptr;
  bool has_vrf_events = false;
  std::array<std::string, 2> vrf_texts;  // of vtab_reg_vrf_attributes: scope and default VRF
  std::array<std::uint32_t, 3> vrf_numbers{};
  bool has_if_events = false;
  std::array<std::string, 3> if_texts;  // of vtab_reg_if_attributes: scope, VRF scope and default VRF
  std::array<std::uint32_t, 4> if_numbers{};

  // The accesses that are begun and not ended.
  VrfNode* vrf_in_access = nullptr;
  IfNode* interface_in_access = nullptr;
};

}  // namespace vtab
