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

namespace cli {

namespace {

using explain::Evidence;
using explain::Judgement;
using explain::Link;
using explain::State;
using explain::Subject;

constexpr char kExplainFooter[] =
    "The links from the VRF to the row of the MIB are looked at in their order: each is ok, broken, or not "
    "checked, with the reason. The first broken one is the cause of those after it, and is shown at the end "
    "with what to do. Links that need the daemon, the routing suite or the kernel are not checked without "
    "it.\n"
    "\n"
    "Exit status: 0 no link is broken, 1 a link is broken.\n"
    "\n"
    "Examples:\n"
    "  mplsvpn explain red\n"
    "  mplsvpn explain red 10.11.0.0/16\n"
    "  mplsvpn explain red 2001:db8:21::/48 --suite-shell '/usr/bin/vtysh -N pe1'\n"
    "  mplsvpn --json explain red 10.11.0.0/16 | jq -r .firstBroken";

constexpr std::chrono::seconds kDelay{1};  // the suite, the kernel and the daemon follow each other

struct Judged {
  const Link& link;
  Judgement judgement;
};
using Chain = std::vector<Judged>;

std::optional<inet::Prefix> prefix_of(const ExplainRequest& request) {
  if (request.prefix.empty()) return std::nullopt;
  const Prefix prefix = parse_prefix(request.prefix);
  if (prefix.is_address)
    throw Failure(kExitUsage, fmt::format("{0} is an address: write a prefix, such as {0}/{1}",
                                          printable(request.prefix), prefix.prefix.length));
  return prefix.prefix;
}

Judgement judge(const Link& link, Evidence& evidence) {
  try {
    return link.judge(evidence);
  } catch (const Failure& failure) {
    return explain::not_checked(failure.what());
  } catch (const doctor::NotPossible& reason) {
    return explain::not_checked(reason.what());
  }
}

Chain judge_all(const Session& session, const ExplainRequest& request,
                const std::optional<inet::Prefix>& prefix) {
  DoctorRequest of_facts;
  of_facts.suite_shell = request.suite_shell;
  of_facts.suite_patience = request.suite_patience;
  doctor::Facts facts(session, of_facts);
  Evidence evidence(facts, request, prefix);
  const Subject other = prefix ? Subject::kVrf : Subject::kPrefix;
  Chain chain;
  for (const Link& link : explain::links()) {
    if (link.subject != other) chain.push_back({link, judge(link, evidence)});
  }
  return chain;
}

// Null if none is broken.
const Judged* first_broken(const Chain& chain) {
  const auto found =
      std::ranges::find_if(chain, [](const Judged& each) { return each.judgement.state == State::kBroken; });
  return found == chain.end() ? nullptr : &*found;
}

const char* text_of(State state) {
  constexpr std::array kTexts = {"ok", "broken", "not checked"};
  return kTexts.at(static_cast<std::size_t>(state));
}

const char* json_of(State state) {
  constexpr std::array kTexts = {"ok", "broken", "notChecked"};
  return kTexts.at(static_cast<std::size_t>(state));
}

// A reason for which several links were not checked is printed once.
void print_text(const Session& session, const Chain& chain) {
  std::map<std::string, std::string> reasons;  // with the id of the first link
  for (const auto& [link, judgement] : chain) {
    const auto [first, is_new] = reasons.emplace(judgement.text, link.id);
    fmt::print(session.out, "{:12} {:10} {}\n", text_of(judgement.state), link.id,
               is_new ? printable(judgement.text) : "as for " + first->second);
  }
  const Judged* const broken = first_broken(chain);
  if (broken == nullptr) return;
  fmt::print(session.out, "\nFirst broken link: {}\n", broken->link.id);
  fmt::print(session.out, "fix: {}\n", printable(broken->judgement.fix, Backslashes::kUnchanged));
}

Json json_of(const Judged& judged) {
  return {{"id", judged.link.id},
          {"state", json_of(judged.judgement.state)},
          {"text", judged.judgement.text},
          {"fix", text_or_null(judged.judgement.fix)}};
}

void print_json(const Session& session, const ExplainRequest& request, const Chain& chain) {
  Json all = Json::array();
  for (const Judged& judged : chain) all.push_back(json_of(judged));
  const Judged* const broken = first_broken(chain);
  session.out << json_line({{"vrfName", request.vrf},
                            {"prefix", text_or_null(request.prefix)},
                            {"firstBroken", text_or_null(broken == nullptr ? "" : broken->link.id)},
                            {"links", all}})
              << '\n';
}

void explain_route(const Session& session, const ExplainRequest& request) {
  const std::optional<inet::Prefix> prefix = prefix_of(request);
  Chain chain = judge_all(session, request, prefix);
  if (const Judged* const broken = first_broken(chain); broken != nullptr && broken->link.is_late) {
    std::this_thread::sleep_for(kDelay);
    Chain again = judge_all(session, request, prefix);
    std::swap(chain, again);
  }
  session.json ? print_json(session, request, chain) : print_text(session, chain);
  if (first_broken(chain) != nullptr) throw Verdict(kExitFailed);
}

}  // namespace

void add_explain(CLI::App& app, ExplainRequest* request, std::function<void(const Session&)>* chosen) {
  CLI::App* command = app.add_subcommand("explain", "Explains why a route is in a VRF, or why it is not");
  command->add_option("VRF", request->vrf, "The VRF")->required();
  command->add_option("PREFIX", request->prefix, "ADDRESS/LENGTH; without it the VRF itself is explained");
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
