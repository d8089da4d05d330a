#include "cli/explain/explain.h"

#include <fmt/format.h>
#include <fmt/ostream.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <array>
#include <chrono>
#include <map>
#include <optional>
#include <thread>

#include "cli/doctor/check.h"
#include "cli/explain/chain.h"
#include "cli/explain/evidence.h"
#include "cli/option_values.h"
#include "cli/output/table.h"
#include "cli/output/wrap.h"

namespace cli {

namespace {

using explain::Chain;
using explain::Evidence;
using explain::Judged;
using explain::State;

constexpr char kExplainFooter[] =
    "The links from the VRF to the row of the MIB are looked at in their order: each is ok, broken, or not "
    "checked, with the reason. The first broken one is the cause of those after it, and is shown at the end "
    "with what to do. It is not known if a link before it could not be looked at, because the daemon or the "
    "routing suite does not answer.\n"
    "\n"
    "Exit status: 0 no link is broken, 1 a link is broken, or none is known to be.\n"
    "\n"
    "Examples:\n"
    "  mplsvpn explain red\n"
    "  mplsvpn explain red 10.11.0.0/16\n"
    "  mplsvpn explain red 10.11.1.2\n"
    "  mplsvpn explain red 2001:db8:21::/48 --suite-shell '/usr/bin/vtysh -N pe1'\n"
    "  mplsvpn --json explain red 10.11.0.0/16 | jq -r .firstBroken";

constexpr std::chrono::seconds kDelay{1};  // the suite, the kernel and the daemon follow each other

struct Explained {
  Chain chain{};
  std::string prefix{};   // that the address is in, too; empty: the VRF itself
  std::string address{};  // empty: the user asked for a prefix, or for the VRF
};

Explained explain_all(const Session& session, const ExplainRequest& request,
                      const std::optional<Prefix>& route) {
  DoctorRequest of_facts;
  of_facts.suite_shell = request.suite_shell;
  of_facts.suite_patience = request.suite_patience;
  doctor::Facts facts(session, of_facts);
  Evidence evidence(facts, request, route);
  Explained explained;
  if (evidence.is_of_address()) explained.address = evidence.prefix_name();
  explained.chain = explain::judge_links(evidence);
  if (evidence.is_of_route()) explained.prefix = evidence.prefix_name();
  return explained;
}

const char* text_of(State state) {
  constexpr std::array kTexts = {"ok", "broken", "not checked"};
  return kTexts.at(static_cast<std::size_t>(state));
}

const char* json_of(State state) {
  constexpr std::array kTexts = {"ok", "broken", "notChecked"};
  return kTexts.at(static_cast<std::size_t>(state));
}

void print_cause(const Session& session, const Chain& chain) {
  const auto& [broken, unknown] = explain::cause_of(chain);
  if (unknown != nullptr)
    fmt::print(session.out, "\n{}: {} could not be looked at ({})\n",
               broken == nullptr ? "No link is known to be broken" : "The first broken link is not known",
               unknown->link->id, printable(unknown->judgement.text));
  else if (broken != nullptr)
    fmt::print(session.out, "\nFirst broken link: {}\nfix: {}\n", broken->link->id,
               printable(broken->judgement.fix, Backslashes::kUnchanged));
}

constexpr std::size_t kTextColumn = 24;  // after state and id

// A reason for which several links were not checked is printed once.
void print_text(const Session& session, const Chain& chain) {
  std::map<std::string, std::string> reasons;  // with the id of the first link
  for (const auto& [link, judgement] : chain) {
    const auto [first, is_new] = reasons.emplace(judgement.text, link->id);
    const std::string line = fmt::format("{:12} {:10} {}\n", text_of(judgement.state), link->id,
                                         is_new ? printable(judgement.text) : "as for " + first->second);
    session.out << wrapped(line, session.terminal.width, kTextColumn);
  }
  print_cause(session, chain);
}

Json id_or_null(const Judged* judged) {
  return text_or_null(judged == nullptr ? "" : judged->link->id);
}

Json json_of(const Judged& judged) {
  return {{"id", judged.link->id},
          {"state", json_of(judged.judgement.state)},
          {"text", judged.judgement.text},
          {"fix", text_or_null(judged.judgement.fix)}};
}

void print_json(const Session& session, const ExplainRequest& request, const Explained& explained) {
  const auto& [chain, prefix, address] = explained;
  Json all = Json::array();
  for (const Judged& judged : chain) all.push_back(json_of(judged));
  const auto& [broken, unknown] = explain::cause_of(chain);
  session.out << json_line({{"vrfName", request.vrf},
                            {"prefix", text_or_null(prefix)},
                            {"address", text_or_null(address)},
                            {"firstBroken", id_or_null(unknown == nullptr ? broken : nullptr)},
                            {"firstUnknown", id_or_null(unknown)},
                            {"links", all}})
              << '\n';
}

void explain_route(const Session& session, const ExplainRequest& request) {
  std::optional<Prefix> route;
  if (!request.prefix.empty()) route = parse_prefix(request.prefix);
  Explained explained = explain_all(session, request, route);
  if (const Judged* const broken = explain::cause_of(explained.chain).broken;
      broken != nullptr && broken->link->is_late) {
    std::this_thread::sleep_for(kDelay);
    explained = explain_all(session, request, route);
  }
  session.json ? print_json(session, request, explained) : print_text(session, explained.chain);
  const explain::Cause cause = explain::cause_of(explained.chain);
  if (cause.broken != nullptr || cause.unknown != nullptr) throw Verdict(kExitFailed);
}

}  // namespace

void add_explain(CLI::App& app, ExplainRequest* request, std::function<void(const Session&)>* chosen) {
  CLI::App* command = app.add_subcommand("explain", "Explains why a route is in a VRF, or why it is not");
  command->add_option("VRF", request->vrf, "The VRF")->required();
  command->add_option(
      "PREFIX", request->prefix,
      "ADDRESS/LENGTH, or ADDRESS: the longest route to it; without it the VRF itself is explained");
  command->add_option("--suite-shell", request->suite_shell, "The routing suite's shell, with its options")
      ->type_name("WORDS");
  command
      ->add_option("--suite-timeout", request->suite_patience,
                   "Time to wait for an answer of that shell (default 10s)")
      ->type_name("TIME")
      ->transform(duration_of(kWaiting));
  command->footer(kExplainFooter);
  command->callback([=] { *chosen = [=](const Session& session) { explain_route(session, *request); }; });
}

}  // namespace cli
