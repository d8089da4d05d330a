// Start-up step by step, each failing once, in a process of its own.
#include "mpls/vpn/mib/src/mpls_vpn_start_test_support.h"

namespace {

using testing::Contains;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

// --- Failures that are posted

TEST_F(Daemon, WithoutAMainManagerEndsWithTheTextsAsTheyStand) {
  fault_arm("event_manager_create", EADDRINUSE, 1);
  ExpectExit(1);
  EXPECT_THAT(Said(),
              HasSubstr("%MPLS_VPN_MIB-OS-3-ERR_INIT : error in event_manager_create for main_evm: %s\n"
                        " : Address already in use"));
}

TEST_F(Daemon, WithoutADebugManagerEnds) {
  fault_arm("event_manager_create", EADDRINUSE, 2);
  ExpectExit(1);
  EXPECT_THAT(Said(), HasSubstr("%MPLS_VPN_MIB-OS-3-ERR_INIT : Event Manager creation failed for :  "
                                "debug and show exiting..."));
  EXPECT_THAT(trace_names(run_directory()), IsEmpty());
}

TEST_F(Daemon, WithoutTraceBuffersEnds) {
  fault_arm("trace_open", kStatusIo, 8);
  ExpectExit(1);
  EXPECT_THAT(Said(), HasSubstr("%MPLS_VPN_MIB-OS-3-ERR_TRACE_INIT : "
                                "mpls vpn mib event tracing subsytem initialization failed"));
}

TEST_F(Daemon, WithoutItsSecondThreadEnds) {
  fault_arm("pthread_create", EAGAIN);
  ExpectExit(1);
  const std::string heading = "%MPLS_VPN_MIB-OS-3-ERR_INIT : ";
  const std::string reason = " : Resource temporarily unavailable\n";
  EXPECT_THAT(Said(), HasSubstr(heading + "Failed to create the show and debug thread" + reason + heading +
                                "Debug and show initialization failed exiting..." + reason));
  Status code = kStatusOk;
  EXPECT_EQ(Traced("mpls_vpn/error", &code).size(), 2U);
  EXPECT_EQ(code, static_cast<Status>(EAGAIN));
}

TEST_F(Daemon, WithoutDebugFlagsEnds) {
  fault_arm("debug_register", kStatusIo);
  ExpectExit(1);
  EXPECT_THAT(Said(), HasSubstr("%MPLS_VPN_MIB-OS-3-ERR_INIT : Debug initialization failed exiting... : "
                                "Input/output error"));
  Status code = kStatusOk;
  Traced("mpls_vpn/error", &code);
  EXPECT_EQ(code, kStatusIo);
}

// --- Broken invariants

TEST_F(Daemon, AbortsWhenTheFirstSignalIsRefused) {
  fault_arm("sigaddset", kStatusInvalid, 1);
  ExpectAbort();
  EXPECT_THAT(Said(), testing::ContainsRegex("mpls_vpn_mib_start: [0-9]+ rc == 0 -- assertion failed"));
}

TEST_F(Daemon, AbortsWhenTheSecondSignalIsRefused) {
  fault_arm("sigaddset", kStatusInvalid, 2);
  ExpectAbort();
  EXPECT_THAT(Said(), testing::ContainsRegex("mpls_vpn_mib_start: [0-9]+ rc ==0 -- assertion failed"));
}

TEST_F(Daemon, AbortsWhenSignalsCannotBeBlocked) {
  fault_arm("pthread_sigmask", kStatusInvalid);
  ExpectAbort();
  EXPECT_THAT(Said(), testing::ContainsRegex("mpls_vpn_mib_start: [0-9]+ rc == 0 -- assertion failed"));
}

// --- Failures that are printed and traced

struct FailingStep {
  const char* name;
  const char* fault;
  std::uint32_t call;
  const char* said;
};

void PrintTo(const FailingStep& step, std::ostream* out) {
  *out << step.name;
}

class FailedStep : public Daemon, public testing::WithParamInterface<FailingStep> {};

TEST_P(FailedStep, EndsTheDaemonWithStatus1) {
  fault_arm(GetParam().fault, kStatusIo, GetParam().call);
  ExpectExit(1);
  const std::string what = GetParam().said;
  EXPECT_THAT(Said(), HasSubstr("Error in main: " + what + ": Input/output error"));
  EXPECT_THAT(Said(), Not(HasSubstr("Completed init")));
  Status code = kStatusOk;
  EXPECT_THAT(Traced("mpls_vpn/error", &code), Contains("main: " + what));
  EXPECT_EQ(code, kStatusIo);
}

INSTANTIATE_TEST_SUITE_P(
    InOrder, FailedStep,
    testing::Values(FailingStep{"VrfDatabase", "wavl_init", 1, "error in server_init"},
                    FailingStep{"InterfaceDatabase", "wavl_init", 2, "error in server_init"},
                    FailingStep{"RouteTargetDatabase", "wavl_init", 3, "error in server_init"},
                    FailingStep{"Checkpoint", "chkpt_init", 1, "error in server_init_evm"},
                    FailingStep{"CheckpointTable", "chkpt_register", 1, "error in server_init_evm"},
                    FailingStep{"ReissueTimer", "timer_tree_new", 1, "error in server_init_evm"},
                    FailingStep{"RecordService", "vtab_init", 1, "error in server_init_evm"},
                    FailingStep{"Readiness", "proc_ready", 1, "proc_ready"},
                    // The first bind and the first registration are for the format of AS numbers.
                    FailingStep{"Provider", "kvtree_bind", 2, "error in PROV"},
                    FailingStep{"LastSubscription", "kvtree_register_notification", 9, "error in PROV"}),
    [](const auto& step) { return std::string(step.param.name); });

TEST_F(Daemon, FailureIsTracedAlsoWhileErrorsAreOff) {
  ASSERT_EQ(unsetenv("MPLS_VPN_MIB_DEBUG"), 0);
  fault_arm("proc_ready", kStatusIo);
  ExpectExit(1);
  EXPECT_THAT(Said(), Not(HasSubstr("Error in")));
  EXPECT_THAT(Traced("mpls_vpn/error"), Contains("main: proc_ready"));
}

TEST_F(Daemon, MissingDataStoreLibraryEndsIt) {
  ASSERT_EQ(setenv("MPLS_VPN_MIB_KVTREE_LIBRARY", (run_directory() + "/absent").c_str(), 1), 0);
  ExpectExit(1);
  EXPECT_THAT(Said(), HasSubstr("Error in main: error in PROV: Data store library is not available"));
}

}  // namespace
