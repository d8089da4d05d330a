// The record of an interface's state and addresses, which the MIB's row of it does not have: a contract with
// every process that decodes it.
#pragma once

#include <cstdint>

#include "platform/core/parcel/parcel.h"

namespace interface_states {

// The provider. "next/HANDLE" is the interface after this handle (0: the first one) and may be walked;
// "index/IFINDEX" and "name/NAME" are those of the ifIndex and of the name. A list of "name/NAME", or of
// "name", has the names after it in the order of their octets: those that begin alike are together.
inline constexpr char kProviderPath[] = "/oper/interfaces/";
inline constexpr char kNext[] = "next";
inline constexpr char kIndex[] = "index";
inline constexpr char kName[] = "name";

struct InterfaceState {
  std::uint32_t handle;
  std::uint32_t index;  // ifIndex
  char* name;
  char* vrf;  // "default" for none
  char* description;
  std::uint32_t up;  // 1: operationally up
  char* addresses;   // with prefix lengths, separated by blanks
};

extern const ParcelDescription kInterfaceStateParcel;

}  // namespace interface_states
