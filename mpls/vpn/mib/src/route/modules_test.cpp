// The loading of the routing table's modules.
#include "mpls/vpn/mib/src/route/modules.h"

#include <elf.h>

#include <cstddef>
#include <filesystem>
#include <fstream>

#include "mpls/vpn/mib/src/route/route_test_support.h"
#include "platform/core/errmsg/errmsg.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;

struct Family {
  const char* name;
  bool (*load)();
  const char* loading;
  std::uint32_t (*active_routes)(std::uint32_t);
  const char* counting;
  const char* prefixes[2];
};

void PrintTo(const Family& family, std::ostream* out) {
  *out << family.name;
}

const Family kIpv4 = {"ipv4",
                      mpls_vpn_mib_rib_ipv4_route_load_dll,
                      "mpls_vpn_mib_rib_ipv4_route_load_dll",
                      mpls_vpn_mib_ipv4_unicast_active_routes,
                      "mpls_vpn_mib_ipv4_unicast_active_routes",
                      {"10.0.0.0/8", "11.0.0.0/8"}};
const Family kIpv6 = {"ipv6",
                      mpls_vpn_mib_rib_ipv6_route_load_dll,
                      "mpls_vpn_mib_rib_ipv6_route_load_dll",
                      mpls_vpn_mib_ipv6_unicast_active_routes,
                      "mpls_vpn_mib_ipv6_unicast_active_routes",
                      {"2001:db8::/32", "2001:db9::/32"}};

class RouteModules : public RouteTablesTest, public testing::WithParamInterface<Family> {
 protected:
  void SetUp() override {
    RouteTablesTest::SetUp();
    errmsg_capture(&posted_);
    OnlyArea(RIB);
    ClearPrints();
  }
  void TearDown() override {
    errmsg_capture(nullptr);
    RouteTablesTest::TearDown();
  }
  const Family& family() const { return GetParam(); }
  std::string File() const { return "mib/lib" + std::string(family().name) + "_forwardmib.dll"; }
  std::string BuiltFile() const { return MPLS_BUILD_LIB_DIR "/" + File(); }
  // The place of the module in a library directory of the test's own.
  std::string FileOfTheTest() {
    const std::filesystem::path path = run_directory() + "/" + File();
    std::filesystem::create_directories(path.parent_path());
    setenv("MPLS_VPN_MIB_LIB_DIR", run_directory().c_str(), 1);
    return path;
  }
  // The next request, after the right module has come into the place of the wrong one.
  void RecoversWithTheRightModule(const std::string& file) {
    std::filesystem::remove_all(file);
    std::filesystem::copy_file(BuiltFile(), file);
    posted_.clear();
    EXPECT_TRUE(family().load());
    EXPECT_EQ(posted_, "");
  }
  void ExpectNotAModule(const std::string& file) {
    EXPECT_FALSE(family().load());
    EXPECT_EQ(posted_, "%MPLS_VPN_MIB-OS-3-ERR_DLL_LOAD : Cannot load DLL: " + File() + " \n");
    RecoversWithTheRightModule(file);
  }
  std::string posted_;
};

TEST_P(RouteModules, SuccessfulLoadingIsPrinted) {
  EXPECT_TRUE(family().load());
  EXPECT_THAT(Prints(), ElementsAre(std::string(family().loading) + ": Successfully load " + family().name +
                                    " RIB dll"));
  EXPECT_EQ(posted_, "");
}

TEST_P(RouteModules, ModuleIsOpenedOnceAndItsSymbolsAreRetained) {
  fault_arm("dlopen", kStatusIo, 9);
  fault_arm("dlsym", kStatusIo, 9);
  EXPECT_TRUE(family().load());
  EXPECT_TRUE(family().load());
  EXPECT_EQ(fault_reached("dlopen"), 1U);
  EXPECT_EQ(fault_reached("dlsym"), 2U);
}

TEST_P(RouteModules, MissingFileIsPostedAndTriedAgain) {
  ASSERT_EQ(setenv("MPLS_VPN_MIB_LIB_DIR", run_directory().c_str(), 1), 0);
  EXPECT_FALSE(family().load());
  EXPECT_EQ(posted_, "%MPLS_VPN_MIB-OS-3-ERR_DLL_LOAD : Cannot load DLL: " + File() + " \n");
  EXPECT_THAT(Prints(), IsEmpty());
  const std::string failure =
      run_directory() + "/" + File() + ": cannot open shared object file: No such file or directory";
  EXPECT_THAT(mpls_vpn_mib_route_module_failures(), ElementsAre(failure));
  EXPECT_THAT(Traced("mpls_vpn/error"),
              ElementsAre(std::string(family().loading) + ": cannot load " + failure));
  ASSERT_EQ(setenv("MPLS_VPN_MIB_LIB_DIR", MPLS_BUILD_LIB_DIR, 1), 0);
  EXPECT_TRUE(family().load());
  EXPECT_THAT(mpls_vpn_mib_route_module_failures(), IsEmpty());
}

TEST_P(RouteModules, FileThatCannotBeReadIsPostedAndTriedAgain) {
  const std::string file = FileOfTheTest();
  std::filesystem::create_directory(file);
  ExpectNotAModule(file);
}

TEST_P(RouteModules, FileOfAnotherMachineIsPostedAndTriedAgain) {
  const std::string file = FileOfTheTest();
  std::filesystem::copy_file(BuiltFile(), file);
  std::fstream module(file, std::ios::in | std::ios::out | std::ios::binary);
  module.seekp(offsetof(Elf64_Ehdr, e_machine));
  module.put(static_cast<char>(EM_SPARC)).put(0);
  module.close();
  ASSERT_TRUE(module.good());
  ExpectNotAModule(file);
}

TEST_P(RouteModules, FileWithoutTheSymbolsIsPostedAndTriedAgain) {
  const std::string file = FileOfTheTest();
  std::filesystem::copy_file(MPLS_OTHER_MODULE, file);
  EXPECT_FALSE(family().load());
  EXPECT_EQ(posted_,
            "%MPLS_VPN_MIB-OS-3-ERR_DLL_SYMBOL_ERROR : Cannot find symbol ribmib_find_route in DLL " +
                File() + "\n");
  EXPECT_THAT(mpls_vpn_mib_route_module_failures(), ElementsAre(file + ": no symbol ribmib_find_route"));
  RecoversWithTheRightModule(file);
}

TEST_P(RouteModules, RefusedOpenIsTracedWithItsCode) {
  const ScopedFault fault("dlopen", kStatusAccess);
  EXPECT_FALSE(family().load());
  EXPECT_THAT(mpls_vpn_mib_route_module_failures(), ElementsAre(BuiltFile() + ": Permission denied"));
  EXPECT_EQ(Traced("mpls_vpn/error").size(), 1U);
  ExpectErrorTraced(std::string(family().loading) + ": cannot load " + BuiltFile() + ": Permission denied",
                    kStatusAccess);
}

TEST_P(RouteModules, FirstSymbolIsPostedBeforeItsFile) {
  fault_arm("dlsym", kStatusIo, 1);
  EXPECT_FALSE(family().load());
  EXPECT_EQ(posted_,
            "%MPLS_VPN_MIB-OS-3-ERR_DLL_SYMBOL_ERROR : Cannot find symbol ribmib_find_route in DLL " +
                File() + "\n");
  EXPECT_EQ(Traced("mpls_vpn/error").size(), 1U);
  EXPECT_EQ(fault_reached("dlsym"), 1U) << "the second is not looked up";
  EXPECT_TRUE(family().load());
  EXPECT_EQ(fault_reached("dlsym"), 3U);
}

TEST_P(RouteModules, SecondSymbolIsPostedAfterItsFile) {
  fault_arm("dlsym", kStatusIo, 2);
  EXPECT_FALSE(family().load());
  EXPECT_EQ(posted_, "%MPLS_VPN_MIB-OS-3-ERR_DLL_SYMBOL_ERROR : Cannot find symbol " + File() +
                         " in DLL ribmib_total_active_routes\n");
  Status code = kStatusOk;
  EXPECT_THAT(
      Traced("mpls_vpn/error", &code),
      ElementsAre(StartsWith(std::string(family().loading) + ": no symbol ribmib_total_active_routes")));
  EXPECT_EQ(code, kStatusNoRouteModule);
  // The module is closed again, and what was found in it is looked up anew.
  EXPECT_TRUE(family().load());
  EXPECT_EQ(fault_reached("dlsym"), 4U);
}

TEST_P(RouteModules, ActiveRoutesAreCountedForTheTable) {
  AddVrf("red");
  AddVrf("blue");
  AddRoute("red", family().prefixes[0]);
  AddRoute("red", family().prefixes[1]);
  AddRoute("blue", family().prefixes[0]);
  const std::uint32_t red = router_.find_vrf("red")->id;
  EXPECT_EQ(family().active_routes(red), 2U);
  EXPECT_EQ(family().active_routes(router_.find_vrf("blue")->id), 1U);
  EXPECT_EQ(family().active_routes(0), 0U);
  EXPECT_EQ(Prints().front(), "Entering " + std::string(family().counting) + " with table_id = " + Hex(red));
}

TEST_P(RouteModules, WithoutTheModuleThereAreNoActiveRoutes) {
  AddVrf("red");
  AddRoute("red", family().prefixes[0]);
  ASSERT_EQ(setenv("MPLS_VPN_MIB_LIB_DIR", run_directory().c_str(), 1), 0);
  EXPECT_EQ(family().active_routes(router_.find_vrf("red")->id), 0U);
  EXPECT_EQ(Prints().back(), std::string(family().counting) + ": Load " + family().name + " RIB dll failed");
}

INSTANTIATE_TEST_SUITE_P(Both, RouteModules, testing::Values(kIpv4, kIpv6),
                         [](const auto& family) { return std::string(family.param.name); });

}  // namespace
