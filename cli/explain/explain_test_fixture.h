// The links of "mplsvpn explain" for a provider-edge router of recorded answers: a shell that prints files,
// VRFs and routes in place of a kernel, and the rows of a daemon in this process.
#pragma once

#include <linux/rtnetlink.h>
#include <net/if.h>

#include <filesystem>
#include <fstream>
#include <memory>
#include <optional>

#include "cli/doctor/check.h"
#include "cli/explain/chain.h"
#include "cli/explain/evidence.h"
#include "cli/show/show_test_fixture.h"

namespace cli::explain {

class ExplainedRouter : public ShowCommand {
 protected:
  static constexpr std::uint32_t kTable = 10;
  static constexpr char kPrefix[] = "10.21.0.0/24";

  void SetUp() override {
    ShowCommand::SetUp();
    FakeVrf& red = fake.vrfs["red"];
    red.rd = "65000:10";
    red.active = 1;
    red.interfaces = {"red1"};
    kernel::LinkSeen device;
    device.link.index = 3;
    device.link.name = "red";
    device.link.is_vrf = true;
    device.link.vrf_table = kTable;
    device.facts.flags = IFF_UP;
    links_.push_back(device);
    std::filesystem::create_directories(Directory() + "/answers");
    std::ofstream(Shell())
        << "#!/bin/sh\nfile=" << Directory()
        << "/answers/$(echo \"$2\" | tr / _)\n"
           "if [ -f \"$file\" ]; then cat \"$file\"; else case $2 in *json) echo '{}'; esac; fi\n";
    std::filesystem::permissions(Shell(), std::filesystem::perms::owner_all);
    Answer("show daemons", " zebra bgpd staticd\n");
    Configure("  rt vpn both 65000:10\n  export vpn\n  import vpn\n");
  }

  std::string Shell() const { return Directory() + "/shell"; }
  void Answer(std::string command, const std::string& text) {
    std::ranges::replace(command, '/', '_');
    std::ofstream(Directory() + "/answers/" + command) << text;
  }
  // The lines of the IPv4 family of the VRF in the suite.
  void Configure(const std::string& lines) {
    Answer("show running-config",
           "router bgp 65000\nexit\n!\nrouter bgp 65000 vrf red\n !\n address-family ipv4 unicast\n"
           "  rd vpn export 65000:10\n  label vpn export auto\n" +
               lines + " exit-address-family\nexit\n!\n");
  }
  void AnswerSession(const std::string& state) {
    Answer("show bgp ipv4 vpn summary json", Json{{"peers", {{"10.255.0.2", {{"state", state}}}}}}.dump());
  }
  // A path that another router announces.
  static Json VpnPath(const std::string& target, const std::string& next_hop = "10.255.0.2") {
    return {{"valid", true},
            {"bestpath", {{"overall", true}, {"selectionReason", "First path received"}}},
            {"extendedCommunity", {{"string", "RT:" + target}}},
            {"remoteLabel", 17},
            {"nexthops", {{{"ip", next_hop}, {"used", true}}}},
            {"peer", {{"peerId", next_hop}}}};
  }
  // `asked`: the prefix, or an address in it.
  void AnswerVpn(const std::string& asked, const std::string& rd, const Json& path) {
    Answer("show bgp ipv4 vpn " + asked + " json",
           Json{{rd, {{"prefix", kPrefix}, {"paths", Json::array({path})}}}}.dump());
  }
  void AnswerVrf(const std::string& asked, const std::vector<Json>& paths) {
    Answer("show bgp vrf red ipv4 unicast " + asked + " json",
           Json{{"prefix", kPrefix}, {"paths", paths}}.dump());
  }
  void AnswerRoute(const std::string& command, const std::string& prefix, const Json& entry) {
    Answer("show ip route " + command + " json", Json{{prefix, Json::array({entry})}}.dump());
  }
  static Json Entry(const std::string& prefix, const std::string& protocol, const Json& hop) {
    return {{"prefix", prefix},
            {"protocol", protocol},
            {"selected", true},
            {"installed", true},
            {"nexthops", {hop}}};
  }
  void AddImportOfMib(std::uint32_t index, const std::string& target) {
    fake.targets[{"red", index}] = {1, target, "IPv4 Unicast"};
  }

  // {link: judgement} of the prefix, or of the VRF.
  std::map<std::string, Judgement> Explain(const std::string& prefix = "") {
    std::map<std::string, Judgement> judged;
    Serve([&] { judged = Judge(prefix); });
    return judged;
  }
  // Of what was explained last: the ids of the links, "" for none.
  std::pair<std::string, std::string> BrokenAndUnknown() const {
    const auto id = [](const Judged* judged) {
      return std::string(judged == nullptr ? "" : judged->link->id);
    };
    const Cause cause = cause_of(chain_);
    return {id(cause.broken), id(cause.unknown)};
  }
  void AddKernelRoute(const std::string& prefix, std::uint8_t type = RTN_UNICAST) {
    kernel::KernelRoute route;
    const inet::Prefix parsed = parse_prefix(prefix).prefix;
    route.family = parsed.address.family;
    route.destination = parsed.address.octets;
    route.prefix_length = static_cast<std::uint8_t>(parsed.length);
    route.type = type;
    routes_.push_back(route);
  }
  std::vector<kernel::LinkSeen> links_{};
  std::vector<kernel::KernelRoute> routes_{};
  DoctorRequest of_facts_{};
  std::string socket_ = "dev.mpls.vpn.main";  // of the daemon

 private:
  std::map<std::string, Judgement> Judge(const std::string& text) {
    std::ostringstream out;
    const Session session{.out = out,
                          .err = out,
                          .socket = Directory() + "/" + socket_,
                          .debug_socket = "",
                          .run_directory = ""};
    of_facts_.suite_shell = Shell();
    doctor::Facts facts(session, of_facts_,
                        {[this] { return links_; },
                         [this](std::uint32_t, const WantedRoute& is_wanted) {
                           std::vector<kernel::KernelRoute> wanted = routes_;
                           std::erase_if(wanted, [&](const auto& each) { return !is_wanted(each); });
                           return wanted;
                         }});
    const ExplainRequest request{"red", text};
    const std::optional<Prefix> prefix = text.empty() ? std::nullopt : std::optional(parse_prefix(text));
    Evidence evidence(facts, request, prefix);
    chain_ = judge_links(evidence);
    std::map<std::string, Judgement> judged;
    for (const auto& [link, judgement] : chain_) judged[link->id] = judgement;
    return judged;
  }
  Chain chain_{};
};

}  // namespace cli::explain
