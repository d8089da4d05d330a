// Names of interfaces by handle.
#include "platform/router/qic/qic.h"

#include <gtest/gtest.h>

#include <array>
#include <string>

#include "platform/core/base/fault.h"
#include "platform/router/model/router_test_support.h"

namespace {

class Qic : public router::RouterTest {
 protected:
  Qic() { qic_attach(&router_); }
  ~Qic() override {
    if (server_ != nullptr) {
      EXPECT_EQ(qic_control_server_unbind(server_), kStatusOk);
    }
    qic_attach(nullptr);
  }

  // With the next free index.
  std::uint32_t AddInterface(const std::string& name) {
    return RouterTest::AddInterface(name, ++last_index_);
  }
  Status Bind() { return qic_control_server_bind(4, 2, &server_); }
  Status NameOf(std::uint32_t handle) {
    return qic_s_interface_name(server_, handle, name_.data(), name_.size());
  }

  std::uint32_t last_index_ = 0;
  QicControlServer* server_ = nullptr;
  std::array<char, 8> name_{"before"};
};

TEST_F(Qic, NameIsFoundByHandle) {
  const std::uint32_t handle = AddInterface("ge0");
  ASSERT_EQ(Bind(), kStatusOk);
  EXPECT_EQ(NameOf(handle), kStatusOk);
  EXPECT_STREQ(name_.data(), "ge0");
}

TEST_F(Qic, UnknownHandleFails) {
  ASSERT_EQ(Bind(), kStatusOk);
  EXPECT_EQ(NameOf(99), kStatusNoSuchRow);
  EXPECT_STREQ(name_.data(), "before");
}

TEST_F(Qic, NameThatDoesNotFitIsInvalidAndNotTruncated) {
  const std::uint32_t fits = AddInterface("seven77");
  const std::uint32_t too_long = AddInterface("eight888");
  ASSERT_EQ(Bind(), kStatusOk);
  EXPECT_EQ(NameOf(too_long), kStatusInvalid);
  EXPECT_STREQ(name_.data(), "before");
  EXPECT_EQ(NameOf(fits), kStatusOk);
  EXPECT_STREQ(name_.data(), "seven77");
}

TEST_F(Qic, WithoutAModelNothingCanBeBoundOrAsked) {
  const std::uint32_t handle = AddInterface("ge0");
  ASSERT_EQ(Bind(), kStatusOk);
  qic_attach(nullptr);
  QicControlServer* other = nullptr;
  EXPECT_EQ(qic_control_server_bind(4, 2, &other), kStatusUnavailable);
  EXPECT_EQ(NameOf(handle), kStatusUnavailable);
}

TEST_F(Qic, UnboundServerCannotBeUnbound) {
  EXPECT_EQ(qic_control_server_unbind(nullptr), kStatusInvalid);
  ASSERT_EQ(Bind(), kStatusOk);
  EXPECT_EQ(qic_control_server_unbind(server_), kStatusOk);
  EXPECT_EQ(qic_control_server_unbind(server_), kStatusInvalid);
  server_ = nullptr;
}

TEST_F(Qic, NullArgumentsAreInvalid) {
  ASSERT_EQ(Bind(), kStatusOk);
  EXPECT_EQ(qic_control_server_bind(4, 2, nullptr), kStatusInvalid);
  EXPECT_EQ(qic_s_interface_name(nullptr, 1, name_.data(), name_.size()), kStatusInvalid);
  EXPECT_EQ(qic_s_interface_name(server_, 1, nullptr, 8), kStatusInvalid);
}

}  // namespace
