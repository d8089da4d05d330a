#include "cli/explain/chain.h"

#include <set>

#include "cli/doctor/suite_checks.h"
#include "cli/explain/evidence.h"

namespace cli::explain {

namespace {

Judgement judge(const Link& link, Evidence& evidence) {
  try {
    return link.judge(evidence);
  } catch (const Failure& failure) {
    Judgement unknown = not_checked(failure.what());
    unknown.failure = failure.exit_status();
    return unknown;
  } catch (const doctor::NotPossible& reason) {
    return not_checked(reason.what());
  }
}

// Of a suite that the daemon follows.
doctor::Findings problems_of_suite(Evidence& evidence) {
  try {
    return doctor::check_suite_access(evidence.facts);
  } catch (const Failure&) {  // the judgement has the reason
  } catch (const doctor::NotPossible&) {
  }
  return {};
}

void name_problem_of_suite(Evidence& evidence, Chain* chain) {
  const Judged* const unknown = cause_of(*chain).unknown;
  if (unknown == nullptr || unknown->judgement.failure != kExitFailed) return;
  const doctor::Findings findings = problems_of_suite(evidence);
  if (findings.empty()) return;
  (*chain)[static_cast<std::size_t>(unknown - chain->data())].judgement =
      broken(findings.front().text, findings.front().fix);
}

}  // namespace

Chain judge_links(Evidence& evidence) {
  std::set<Subject> subjects = {Subject::kBoth, evidence.is_of_route() ? Subject::kPrefix : Subject::kVrf};
  if (evidence.is_of_address()) subjects.insert(Subject::kAddress);
  Chain chain;
  for (const Link& link : links()) {
    if (subjects.contains(link.subject)) chain.push_back({&link, judge(link, evidence)});
  }
  name_problem_of_suite(evidence, &chain);
  return chain;
}

Cause cause_of(const Chain& chain) {
  Cause cause;
  for (const Judged& each : chain) {
    if (each.judgement.state == State::kOk) cause.unknown = nullptr;
    if (each.judgement.failure != kExitOk && cause.unknown == nullptr) cause.unknown = &each;
    if (each.judgement.state != State::kBroken) continue;
    cause.broken = &each;
    break;
  }
  return cause;
}

}  // namespace cli::explain
