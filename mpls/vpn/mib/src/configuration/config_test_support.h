// For tests: the daemon registered with the data store, and configuration changes as nodes set and deleted by
// full path.
//
// Configured<Base> registers in SetUp (Register() again after a restart, which replays what is set). Set...()
// and Delete() change one node and deliver the notifications that follow.
#pragma once

#include <cstdlib>
#include <string>
#include <utility>

#include "mpls/vpn/mib/src/provider/provider.h"
#include "mpls/vpn/mib/src/provider/provider_test_support.h"
#include "platform/core/parcel/parcel.h"

// Prints of handlers that miss an argument of the path, or whose text is null.
inline auto MissingArgument(unsigned argument, const std::string& handler) {
  return testing::MatchesRegex("BGEN arg " + std::to_string(argument) + " not present in " + handler +
                               ", line [0-9]+");
}
inline auto NullArgument(unsigned argument, const std::string& name, const std::string& handler) {
  return testing::MatchesRegex("BGEN arg " + std::to_string(argument) + " '" + name + "' is NULL in " +
                               handler + ", line [0-9]+");
}

template <typename Base>
class Configured : public Base {
 protected:
  void SetUp() override {
    Base::SetUp();
    parcel_registry_reset();
    if (registers_at_once_) Register();
    this->ClearPrints();
  }
  void TearDown() override {
    fault_disarm_all();
    mpls_vpn_mib_prov_end();
    kvtree_reset();
    parcel_registry_reset();
    Base::TearDown();
  }
  void Register() {
    ASSERT_EQ(mpls_vpn_mib_prov_init(this->manager_), kStatusOk);
    this->Run();
  }
  void Reconnect() override {
    mpls_vpn_mib_prov_end();
    EXPECT_EQ(mpls_vpn_mib_prov_init(this->manager_), kStatusOk);
  }

  void Set(const std::string& path, KvValue value) {
    EXPECT_EQ(kvtree_set(path, std::move(value)), kStatusOk) << path;
    this->Run();
  }
  void SetText(const std::string& path, const std::string& text) {
    KvValue value;
    value.type = KvValueType::kText;
    value.text = text;
    Set(path, std::move(value));
  }
  void SetWithoutValue(const std::string& path) { Set(path, {}); }
  void SetPair(const std::string& path, std::int64_t first, std::int64_t second) {
    KvValue value;
    value.type = KvValueType::kTuple;
    value.tuple = {first, second};
    Set(path, std::move(value));
  }
  template <typename Record>
  void SetRecord(const std::string& path, const ParcelDescription& description, const Record& record) {
    std::uint8_t* data = nullptr;
    std::size_t length = 0;
    EXPECT_EQ(parcel_encode(&description, &record, &data, &length), kStatusOk);
    KvValue value;
    value.type = KvValueType::kRecord;
    value.record.assign(data, data + length);
    std::free(data);
    Set(path, std::move(value));
  }
  void Delete(const std::string& path) {
    EXPECT_EQ(kvtree_delete(path), kStatusOk) << path;
    this->Run();
  }

  // When the VRF was changed last, as seconds; 0 for never.
  std::uint32_t ChangedAt(const char* vrf) { return this->AttributesOf(vrf)->conf_last_changed_time; }
  // As if nothing had ever been changed.
  void ForgetChange(const char* vrf) { this->AttributesOf(vrf)->conf_last_changed_time = 0; }

  bool registers_at_once_ = true;  // for tests about the replay: cleared in their constructor
};
