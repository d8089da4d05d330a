// A router model for the tests of its observers, with one short call for each change.
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

class RouterTest : public testing::Test {
 protected:
  static Vrf MakeVrf(const std::string& name, std::uint32_t id) {
    Vrf vrf;
    vrf.name = name;
    vrf.id = id;
    return vrf;
  }
  static Address AddressOf(std::string_view text) {
    Address address;
    EXPECT_TRUE(parse_address(text, &address)) << text;
    return address;
  }
  static Interface MakeInterface(const std::string& name, std::uint32_t index,
                                 const std::string& vrf = std::string(kDefaultVrf)) {
    Interface interface;
    interface.name = name;
    interface.index = index;
    interface.vrf = vrf;
    return interface;
  }

  void AddVrf(const Vrf& vrf) { ASSERT_EQ(router_.create_vrf(vrf), kStatusOk) << vrf.name; }
  void AddVrf(const std::string& name, std::uint32_t id) { AddVrf(MakeVrf(name, id)); }
  void ChangeVrf(const Vrf& vrf) { ASSERT_EQ(router_.change_vrf(vrf), kStatusOk) << vrf.name; }
  void DeleteVrf(const std::string& name) { ASSERT_EQ(router_.delete_vrf(name), kStatusOk) << name; }

  // Down and without addresses. Returns the handle.
  std::uint32_t AddInterface(const std::string& name, std::uint32_t index,
                             const std::string& vrf = std::string(kDefaultVrf)) {
    std::uint32_t handle = 0;
    EXPECT_EQ(router_.add_interface(MakeInterface(name, index, vrf), &handle), kStatusOk) << name;
    return handle;
  }
  // The interface must exist.
  const Interface& Current(const std::string& name) const { return *router_.find_interface_by_name(name); }
  std::uint32_t HandleOf(const std::string& name) const { return Current(name).handle; }
  void ChangeInterface(const Interface& interface) {
    ASSERT_EQ(router_.change_interface(interface), kStatusOk) << interface.name;
  }
  void Rename(const std::string& name, const std::string& next, std::uint32_t index) {
    Interface interface = Current(name);
    interface.name = next;
    interface.index = index;
    ChangeInterface(interface);
  }
  void Rename(const std::string& name, const std::string& next) { Rename(name, next, Current(name).index); }
  void Move(const std::string& name, const std::string& vrf) {
    ASSERT_EQ(router_.move_interface(HandleOf(name), vrf), kStatusOk) << name;
  }
  void Remove(const std::string& name) {
    ASSERT_EQ(router_.remove_interface(HandleOf(name)), kStatusOk) << name;
  }

  Router router_;
};

}  // namespace router
