#include "cli/doctor/doctor.h"

#include <fmt/format.h>
#include <fmt/ostream.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <array>
#include <map>
#include <tuple>

#include "cli/chosen_command.h"
#include "cli/doctor/check.h"
#include "cli/doctor/facts.h"
#include "cli/option_values.h"
#include "cli/output/json_list.h"
#include "cli/output/table.h"
#include "cli/output/wrap.h"
#include "platform/core/text/words.h"

namespace cli {

namespace {

using doctor::Check;
using doctor::Finding;
using doctor::Findings;
using doctor::Level;

constexpr char kFooter[] =
    "Each check prints ok, warning, error, or \"not possible\" with the reason. What is wrong has the "
    "command that corrects it. troubleshooting.md, which the package has in /usr/share/doc/mplsvpn, "
    "describes "
    "the checks under their names. Some look at files that only root may read.\n"
    "\n"
    "Exit status: 0 all is well, 1 there are warnings, 2 there are errors. Checks that were not possible do "
    "not "
    "count.\n"
    "\n"
    "Examples:\n"
    "  mplsvpn doctor\n"
    "  mplsvpn doctor --snmp '-v2c -c public 127.0.0.1'\n"
    "  mplsvpn doctor --only snmp-view --only agentx-socket\n"
    "  mplsvpn doctor --skip vrf-not-in-suite\n"
    "  mplsvpn doctor --suite-shell '/usr/bin/vtysh -N pe1'";

constexpr std::array kLevels = {Level::kOk, Level::kNotPossible, Level::kWarning, Level::kError};

struct Result {
  std::size_t number;
  const Check& check;
  Level level;
  Findings findings;
};

const char* text_of(Level level) {
  constexpr std::array kTexts = {"ok", "not possible", "warning", "error"};
  return kTexts.at(static_cast<std::size_t>(level));
}

const char* json_of(Level level) {
  constexpr std::array kTexts = {"ok", "notPossible", "warning", "error"};
  return kTexts.at(static_cast<std::size_t>(level));
}

Findings run(const Check& check, doctor::Facts& facts) {
  try {
    return check.run(facts);
  } catch (const Failure& failure) {
    return {{Level::kNotPossible, failure.what(), ""}};
  } catch (const doctor::NotPossible& reason) {
    return {{Level::kNotPossible, reason.what(), reason.fix()}};
  }
}

Result result_of(std::size_t number, const Check& check, doctor::Facts& facts) {
  Findings findings = run(check, facts);
  Level worst = Level::kOk;
  for (const Finding& finding : findings) worst = std::max(worst, finding.level);
  return {number, check, worst, std::move(findings)};
}

bool is_chosen(const Check& check, const DoctorRequest& request) {
  const auto has = [&check](const std::vector<std::string>& words) {
    return std::ranges::any_of(
        words, [&check](const auto& word) { return word == check.id || word == check.group; });
  };
  return (request.only.empty() || has(request.only)) && !has(request.skip);
}

// Whether both are in a group and were not possible for the same reason, and for no other.
bool lack_the_same(const Result& one, const Result& other) {
  const auto is_impossible = [](const Result& result) {
    return result.level == Level::kNotPossible && result.findings.size() == 1;
  };
  return is_impossible(one) && is_impossible(other) &&
         std::string_view(one.check.group) == other.check.group &&
         one.findings[0].text == other.findings[0].text && one.findings[0].fix == other.findings[0].fix;
}

constexpr std::size_t kTitleColumn = 39;  // after number, state and id

// Checks of a group that follow each other and lack the same are one line: a result of which the next one may
// be the same waits for it.
class TextReport {
 public:
  explicit TextReport(const Session& session) : out_(session.out), width_(session.terminal.width) {}
  void add(const Result& result) {
    if (!alike_.empty() && !lack_the_same(alike_.back(), result)) print_alike();
    alike_.push_back(result);
    ++counts_.at(static_cast<std::size_t>(result.level));
    if (!lack_the_same(result, result)) print_alike();
  }
  void end() {
    print_alike();
    out_ << '\n';
    for (const Level level : kLevels) {
      const unsigned count = counts_.at(static_cast<std::size_t>(level));
      const bool is_plural = count != 1 && level >= Level::kWarning;
      fmt::print(out_, "{}{} {}{}", level == Level::kOk ? "" : ", ", count, text_of(level),
                 is_plural ? "s" : "");
    }
    out_ << '\n';
  }

 private:
  void print_alike() {
    if (alike_.empty()) return;
    print_group(alike_.front().check.group);
    alike_.size() == 1 ? print(alike_.front()) : print_range(alike_.front(), alike_.back());
    alike_.clear();
    out_.flush();
  }
  void print_group(const char* group) {
    if (group_ != group) fmt::print(out_, "{}{}\n", group_.empty() ? "" : "\n", group);
    group_ = group;
  }
  void print(const Result& result) {
    print(fmt::format("{:4}  {:12}  {:17}  {}", result.number, text_of(result.level), result.check.id,
                      result.check.title),
          kTitleColumn);
    for (const Finding& finding : result.findings) print(finding, result.number);
  }
  void print_range(const Result& first, const Result& last) {
    const Finding& finding = first.findings[0];
    reasons_.emplace(finding.text, first.number);
    print(fmt::format("{:>4}  {:12}  {} to {}: {}", fmt::format("{}-{}", first.number, last.number),
                      text_of(first.level), first.check.id, last.check.id, printable(finding.text)));
    if (!finding.fix.empty()) print_fix(finding.fix);
  }
  void print(const std::string& line, std::size_t indent = 0) { out_ << wrapped(line, width_, indent); }

  // What is broken here could not be copied: the terminal breaks a fix, without ends of lines.
  void print_fix(const std::string& fix) {
    fmt::print(out_, "      fix: {}\n", printable(fix, Backslashes::kUnchanged));
  }

  // A reason that makes several checks impossible is printed once.
  void print(const Finding& finding, std::size_t number) {
    const auto [first, is_new] = reasons_.emplace(finding.text, number);
    print("      " + (is_new ? printable(finding.text) : fmt::format("as in check {}", first->second)));
    if (!finding.fix.empty()) print_fix(finding.fix);
  }

  std::ostream& out_;
  std::vector<Result> alike_;  // not printed yet
  const std::size_t width_;    // of the terminal; 0: there is none
  std::string group_;
  std::map<std::string, std::size_t> reasons_;  // with the number of the first check
  std::array<unsigned, kLevels.size()> counts_{};
};

Json json_of(const Finding& finding) {
  return {{"state", json_of(finding.level)}, {"text", finding.text}, {"fix", text_or_null(finding.fix)}};
}

Json json_of(const Result& result) {
  Json findings = Json::array();
  for (const Finding& finding : result.findings) findings.push_back(json_of(finding));
  return {{"number", result.number},     {"id", result.check.id},          {"group", result.check.group},
          {"title", result.check.title}, {"state", json_of(result.level)}, {"findings", findings}};
}

class JsonReport {
 public:
  explicit JsonReport(std::ostream& out) : list_(out) {}
  void add(const Result& result) { list_.add(json_of(result)); }
  void end() { list_.end(); }

 private:
  JsonList list_;
};

template <typename Report>
Level run_checks(const Session& session, const DoctorRequest& request, Report report) {
  doctor::Facts facts(session, request);
  Level worst = Level::kOk;
  std::size_t number = 0;
  for (const Check& check : doctor::checks()) {
    ++number;
    if (!is_chosen(check, request)) continue;
    const Result result = result_of(number, check, facts);
    report.add(result);
    worst = std::max(worst, result.level);
  }
  report.end();
  return worst;
}

}  // namespace

void diagnose(const Session& session, const DoctorRequest& request) {
  const Level worst = session.json ? run_checks(session, request, JsonReport(session.out))
                                   : run_checks(session, request, TextReport(session));
  if (worst == Level::kError) throw Verdict(2);
  if (worst == Level::kWarning) throw Verdict(1);
}

std::vector<std::string> doctor_checks() {
  std::vector<std::string> ids;
  for (const Check& check : doctor::checks()) {
    if (std::ranges::find(ids, check.group) == ids.end()) ids.emplace_back(check.group);
    ids.emplace_back(check.id);
  }
  return ids;
}

void add_doctor(CLI::App& app, DoctorRequest* request, ChosenCommand* chosen) {
  CLI::App* command = app.add_subcommand("doctor", "Finds out what is wrong, and what corrects it");
  const std::vector<std::string> ids = doctor_checks();
  for (const auto& [name, list, help] :
       {std::tuple{"--only", &request->only,
                   "Makes only this check, or those of this group; may be repeated"},
        std::tuple{"--skip", &request->skip,
                   "Leaves this check out, or those of this group; may be repeated"}})
    command->add_option(name, *list, help)
        ->type_name("CHECK")
        ->expected(1)
        ->take_all()
        ->transform(one_of(ids));
  command->add_option("--snmp", request->snmp, "Asks snmpd with these options and host of snmpget")
      ->type_name("WORDS");
  command->add_option("--suite-shell", request->suite_shell, "The routing suite's shell, with its options")
      ->type_name("WORDS");
  command
      ->add_option("--suite-timeout", request->suite_patience,
                   "Time to wait for an answer of that shell (default 10s)")
      ->type_name("TIME")
      ->transform(duration_of(kWaiting));
  command->add_option("--suite-conf", request->suite_file, "The routing suite's saved configuration")
      ->type_name("FILE");
  command->add_option("--agentx-socket", request->agentx_socket, "The AgentX socket of snmpd")
      ->type_name("PATH");
  command->add_option("--snmpd-conf", request->snmpd_configuration, "The configuration of snmpd")
      ->type_name("FILE");
  command->footer(kFooter);
  on_choice(command, chosen, diagnose, request);
}

}  // namespace cli
