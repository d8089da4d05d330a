// Changes of VRFs for tests.
#pragma once

#include <gtest/gtest.h>

#include <string>

#include "platform/router/model/router.h"

namespace router {

// The VRF exists. One item of it changes: ChangeVrf(&router_, "red", &Vrf::rd, "65000:1").
template <typename Item, typename Value>
void ChangeVrf(Router* router, const std::string& name, Item Vrf::*item, const Value& value) {
  Vrf vrf = *router->find_vrf(name);
  vrf.*item = value;
  ASSERT_EQ(router->change_vrf(vrf), kStatusOk) << name;
}

}  // namespace router
