#include "platform/core/http/endpoint.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "platform/core/base/log.h"
#include "platform/core/http/test_http_client.h"

namespace http {
namespace {

std::vector<std::string>& LogLines() {
  static std::vector<std::string> lines;
  return lines;
}

class HttpEndpoint : public EventManagerTest {
 protected:
  void SetUp() override {
    LogLines().clear();
    log_redirect([](LogSeverity, const char* line) { LogLines().push_back(line); });
  }
  void TearDown() override {
    endpoint_.reset();
    log_redirect(nullptr);
  }
  void Open(const Place& place) {
    const auto once = [](std::string* text) {
      *text = "hello\n";
      return false;
    };
    endpoint_ = std::make_unique<Endpoint>(manager, "metrics", place,
                                           Page{"/page", "text/plain", [once] { return once; }});
  }
  void PassInterval() {
    clock_.advance(kRetrySeconds * kNanosecondsPerSecond);
    event_run_pending(manager);
  }
  static std::string LastLine() { return LogLines().empty() ? std::string() : LogLines().back(); }
  // A port that nothing listens at.
  static std::uint16_t UnusedPort() {
    std::string error;
    const int socket = open_listening_socket({"127.0.0.1", 0, {}}, &error);
    const std::uint16_t port = PortOf(socket);
    close(socket);
    return port;
  }

  ManualClock clock_{kNanosecondsPerSecond};
  std::unique_ptr<Endpoint> endpoint_;
};

TEST_F(HttpEndpoint, IsServedAtItsPlace) {
  const std::uint16_t port = UnusedPort();
  Open({"127.0.0.1", port, {}});
  EXPECT_EQ(LastLine(), "metrics: /page is served at 127.0.0.1:" + std::to_string(port));
  EXPECT_EQ(BodyOf(HttpClient(manager, port).Ask("/page")), "hello\n");
}

TEST_F(HttpEndpoint, PortInUseIsLoggedOnceAndTriedAgain) {
  std::string error;
  const int other = open_listening_socket({"127.0.0.1", 0, {}}, &error);
  const std::uint16_t port = PortOf(other);
  Open({"127.0.0.1", port, {}});
  PassInterval();
  ASSERT_EQ(LogLines().size(), 1U);
  EXPECT_EQ(LastLine(), "metrics: /page is not served at 127.0.0.1:" + std::to_string(port) +
                            ", which is tried again every 2 s: Address already in use: end the program that "
                            "uses it, or configure another port");
  EXPECT_FALSE(endpoint_->is_open());
  close(other);
  PassInterval();
  EXPECT_TRUE(endpoint_->is_open());
  EXPECT_EQ(LastLine(), "metrics: /page is served at 127.0.0.1:" + std::to_string(port));
}

TEST_F(HttpEndpoint, AddressThatNoInterfaceHasIsNamed) {
  Open({"192.0.2.1", 9, {}});
  EXPECT_NE(
      LastLine().find("at 192.0.2.1:9, which is tried again every 2 s: Cannot assign requested address: no "
                      "interface has 192.0.2.1"),
      std::string::npos)
      << LastLine();
}

TEST_F(HttpEndpoint, MissingVrfIsNamed) {
  Open({"127.0.0.1", 9, "no-such-vrf"});
  EXPECT_NE(LastLine().find("127.0.0.1:9 in VRF no-such-vrf, which is tried again every 2 s: No such device: "
                            "VRF device no-such-vrf does not exist"),
            std::string::npos)
      << LastLine();
}

TEST(HttpPlace, IsDescribedAsInUrls) {
  EXPECT_EQ(describe({"::1", 80, {}}), "[::1]:80");
  EXPECT_EQ(describe({"10.0.0.1", 80, "red"}), "10.0.0.1:80 in VRF red");
}

TEST(HttpPlace, OnlyLiteralAddressesAreAddresses) {
  EXPECT_TRUE(is_address("::"));
  EXPECT_TRUE(is_address("192.0.2.1"));
  EXPECT_FALSE(is_address("localhost"));
  EXPECT_FALSE(is_address(""));
  EXPECT_FALSE(is_address("192.0.2.256"));
}

}  // namespace
}  // namespace http
