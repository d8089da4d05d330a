// Start-up step by step, each failing once, in a process of its own.
#include "mpls/vpn/mib/src/start_test_support.h"

namespace {

using testing::Contains;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

// --- Failures that are posted

TEST_F(Daemon, WithoutAMainManagerEndsWithTheTextsLiterally) {
  fault_arm("event_manager_create", EADDRINUSE, 1);
  ExpectExit(1);
  EXPECT_THAT(Output(),
              HasSubstr("%MPLS_VPN_MIB-OS-3-ERR_INIT : error in event_manager_create for main_evm: %s\n"
                        " : Address already in use"));
}

TEST_F(Daemon, WithoutADebugManagerEnds) {
  fault_arm("event_manager_create", EADDRINUSE, 2);
  ExpectExit(1);
  EXPECT_THAT(Output(), HasSubstr("%MPLS_VPN_MIB-OS-3-ERR_INIT : Event Manager creation failed for :  "
                                  "debug and show exiting..."));
  EXPECT_THAT(trace_names(run_directory()), IsEmpty());
}

TEST_F(Daemon, WithoutTraceBuffersEnds) {
  fault_arm("trace_open", kStatusIo, 8);
  ExpectExit(1);
  EXPECT_THAT(Output(), HasSubstr("%MPLS_VPN_MIB-OS-3-ERR_TRACE_INIT : "
                                  "mpls vpn mib event tracing subsytem initialization failed"));
}

TEST_F(Daemon, WithoutItsSecondThreadEnds) {
  fault_arm("pthread_create", EAGAIN);
  ExpectExit(1);
  const std::string heading = "%MPLS_VPN_MIB-OS-3-ERR_INIT : ";
  const std::string reason = " : Resource temporarily unavailable\n";
  EXPECT_THAT(Output(), HasSubstr(heading + "Failed to create the show and debug thread" + reason + heading +
                                  "Debug and show initialization failed exiting..." + reason));
  Status code = kStatusOk;
  EXPECT_EQ(Traced("mpls_vpn/error", &code).size(), 2U);
  EXPECT_EQ(code, static_cast<Status>(EAGAIN));
}

TEST_F(Daemon, WithoutDebugFlagsEnds) {
  fault_arm("debug_register", kStatusIo);
  ExpectExit(1);
  EXPECT_THAT(Output(), HasSubstr("%MPLS_VPN_MIB-OS-3-ERR_INIT : Debug initialization failed exiting... : "
                                  "Input/output error"));
  Status code = kStatusOk;
  Traced("mpls_vpn/error", &code);
  EXPECT_EQ(code, kStatusIo);
}

// --- Broken invariants

TEST_F(Daemon, AbortsWhenTheFirstSignalIsRefused) {
  fault_arm("sigaddset", kStatusInvalid, 1);
  ExpectAbort();
  EXPECT_THAT(Output(), testing::ContainsRegex("mpls_vpn_mib_start: [0-9]+ rc == 0 -- assertion failed"));
}

TEST_F(Daemon, AbortsWhenTheSecondSignalIsRefused) {
  fault_arm("sigaddset", kStatusInvalid, 2);
  ExpectAbort();
  EXPECT_THAT(Output(), testing::ContainsRegex("mpls_vpn_mib_start: [0-9]+ rc ==0 -- assertion failed"));
}

TEST_F(Daemon, AbortsWhenSignalsCannotBeBlocked) {
  fault_arm("pthread_sigmask", kStatusInvalid);
  ExpectAbort();
  EXPECT_THAT(Output(), testing::ContainsRegex("mpls_vpn_mib_start: [0-9]+ rc == 0 -- assertion failed"));
}

// --- The order

struct FailingStep {
  const char* name;
  const char* fault;
  std::uint32_t call;  // of the fault point, while nothing before it fails
  const char* message;
  const char* printed = nullptr;  // what is printed and traced as failed, where the step does both
};

// Every step that ends the start, in order.
constexpr FailingStep kSteps[] = {
    {"MainManager", "event_manager_create", 1, "error in event_manager_create for main_evm"},
    {"DebugManager", "event_manager_create", 2, "Event Manager creation failed for"},
    {"TraceBuffers", "trace_open", 8, "ERR_TRACE_INIT"},
    {"SecondThread", "pthread_create", 1, "Failed to create the show and debug thread"},
    {"DebugFlags", "debug_register", 1, "Debug initialization failed exiting..."},
    {"VrfDatabase", "wavl_init", 1, "Error in main", "error in server_init"},
    {"InterfaceDatabase", "wavl_init", 2, "Error in main", "error in server_init"},
    {"RouteTargetDatabase", "wavl_init", 3, "Error in main", "error in server_init"},
    {"Checkpoint", "chkpt_init", 1, "Error in main", "error in server_init_evm"},
    {"CheckpointTable", "chkpt_register", 1, "Error in main", "error in server_init_evm"},
    {"ReissueTimer", "timer_tree_new", 1, "Error in main", "error in server_init_evm"},
    {"RecordService", "vtab_init", 1, "Error in main", "error in server_init_evm"},
    {"Readiness", "proc_ready", 1, "Error in main", "proc_ready"},
    // The first bind and the first registration are for the format of AS numbers.
    {"Provider", "kvtree_bind", 2, "Error in main", "error in PROV"},
    {"LastSubscription", "kvtree_register_notification", 9, "Error in main", "error in PROV"},
    {"Restore", "chkpt_iterate_start", 1, "Error in main", "mpls_vpn_mib_chkpt_restore"},
};

class FailedStep : public Daemon, public testing::WithParamInterface<std::size_t> {
 protected:
  const FailingStep& Step() const { return kSteps[GetParam()]; }
  // The step and all later ones fail. Arming a fault point again replaces its fault: arm the last step first.
  void ArmFromHere() const {
    for (std::size_t i = std::size(kSteps); i-- > GetParam();) {
      fault_arm(kSteps[i].fault, kStatusIo, kSteps[i].call, 0);
    }
  }
  void ExpectPrintedAndTraced(const std::string& what) {
    EXPECT_THAT(Output(), HasSubstr("Error in main: " + what + ": Input/output error"));
    Status code = kStatusOk;
    EXPECT_THAT(Traced("mpls_vpn/error", &code), Contains("main: " + what));
    EXPECT_EQ(code, kStatusIo);
  }
};

TEST_P(FailedStep, EndsTheDaemonBeforeAnyLaterStepCanFail) {
  RunOnce();  // without records of an earlier run nothing is restored
  ArmFromHere();
  // The restore ends with its own code, which is not 1.
  ExpectExit(std::string(Step().name) == "Restore" ? static_cast<int>(kStatusIo) : 1);
  EXPECT_THAT(Output(), HasSubstr(Step().message));
  EXPECT_THAT(Output(), Not(HasSubstr("Completed init")));
  if (Step().printed != nullptr) ExpectPrintedAndTraced(Step().printed);
}

INSTANTIATE_TEST_SUITE_P(InOrder, FailedStep, testing::Range(std::size_t{0}, std::size(kSteps)),
                         [](const auto& step) { return std::string(kSteps[step.param].name); });

// Its failure ends nothing, so what it traced says whether it was reached.
class AsNumberFormat : public Daemon {
 protected:
  bool IsReachedWhenThisFails(const char* fault) {
    fault_arm("bgp_util_asn_format_init_notify", kStatusIo);
    fault_arm(fault, kStatusIo);
    ExpectExit(1);
    const std::vector<std::string> errors = Traced("mpls_vpn/error");
    return std::find(errors.begin(), errors.end(), "main: bgp_util_asn_format_init_notify") != errors.end();
  }
};

TEST_F(AsNumberFormat, IsFollowedAfterTheDebugFlags) {
  EXPECT_FALSE(IsReachedWhenThisFails("debug_register"));
}

TEST_F(AsNumberFormat, IsFollowedBeforeTheDatabases) {
  EXPECT_TRUE(IsReachedWhenThisFails("wavl_init"));
}

// --- Failures that are printed and traced

TEST_F(Daemon, FailureIsTracedAlsoWhileErrorsAreOff) {
  ASSERT_EQ(unsetenv("MPLS_VPN_MIB_DEBUG"), 0);
  fault_arm("proc_ready", kStatusIo);
  ExpectExit(1);
  EXPECT_THAT(Output(), Not(HasSubstr("Error in")));
  EXPECT_THAT(Traced("mpls_vpn/error"), Contains("main: proc_ready"));
}

TEST_F(Daemon, MissingDataStoreLibraryEndsIt) {
  ASSERT_EQ(setenv("MPLS_VPN_MIB_KVTREE_LIBRARY", (run_directory() + "/absent").c_str(), 1), 0);
  ExpectExit(1);
  EXPECT_THAT(Output(), HasSubstr("Error in main: error in PROV: Data store library is not available"));
}

}  // namespace
