// What the checks look at. Each fact is read once, when a check needs it first; a fact that cannot be read
// throws the same Failure each time.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "cli/doctor/request.h"
#include "cli/doctor/suite_configuration.h"
#include "cli/output/record.h"
#include "cli/system/kernel.h"
#include "cli/system/suite.h"
#include "platform/store/status/records.h"

namespace cli::doctor {

// A value that is read once.
template <typename T>
class Once {
 public:
  const T& get(const std::function<std::unique_ptr<T>()>& read) {
    if (failure_) throw Failure(*failure_);
    if (value_ != nullptr) return *value_;
    try {
      value_ = read();
    } catch (const Failure& failure) {
      failure_ = failure;
      throw;
    }
    return *value_;
  }

 private:
  std::unique_ptr<T> value_;
  std::optional<Failure> failure_;
};

struct Vrf {
  std::uint32_t index = 0;
  std::string name{};
  std::uint32_t table = 0;
  bool is_enabled = false;
  std::vector<std::string> members{};
};

class Facts {
 public:
  using Status = Record<process_status::ProcessStatus>;

  Facts(const Session& of_command, const DoctorRequest& of_user, KernelReader of_kernel = {})
      : session(of_command),
        request(of_user),
        reader(std::move(of_kernel)),
        suite(of_user.suite_shell, std::chrono::milliseconds(of_user.suite_patience)) {}

  // The state of the daemon.
  const Status& status();
  // NotPossible if the daemon runs and reads a router file: kernel and suite are none of its business.
  void require_kernel_source();
  const std::vector<kernel::LinkSeen>& links();
  // The VRF devices of the kernel. require_kernel_source() is called first.
  const std::vector<Vrf>& vrfs();
  // The running configuration. Failure(kExitFailed) while bgpd does not run: without it the suite prints a
  // configuration that lacks every "router bgp".
  const SuiteConfiguration& suite_configuration();

  const Session& session;
  const DoctorRequest& request;
  const KernelReader reader;
  const Suite suite;

 private:
  Once<Status> status_;
  Once<std::vector<kernel::LinkSeen>> links_;
  Once<std::vector<Vrf>> vrfs_;
  Once<SuiteConfiguration> suite_configuration_;
};

// The sources of that state by name; null for one that it does not have.
std::span<const process_status::SourceStatus> sources_of(const Facts::Status& status);
// Whether a routing suite is one of them.
bool has_suite(const Facts::Status& status);

}  // namespace cli::doctor
