// Registration of one set of record descriptions.
#pragma once

#include <cstddef>

#include "platform/core/parcel/parcel.h"

// Opens a batch, registers the descriptions in order and closes it, so that readers never see half a set. The
// first failure aborts the batch and is returned, or kStatusDefinitionChanged by the closing call.
[[nodiscard]] Status mpls_vpn_parcel_register_set(const char* set_name, const ParcelDescription* const* set,
                                                  std::size_t count);
