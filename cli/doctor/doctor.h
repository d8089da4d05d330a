// "mplsvpn doctor": finds out what is wrong with the router, its routing suite, snmpd and the daemon.
#pragma once

#include <string>
#include <vector>

#include "cli/doctor/request.h"
#include "cli/session.h"

namespace CLI {
class App;
}  // namespace CLI

namespace cli {

// Prints the result of each check. Verdict(1) if the worst one is a warning, Verdict(2) if it is an error.
void diagnose(const Session& session, const DoctorRequest& request);

// The ids of the checks, in their order.
std::vector<std::string> doctor_checks();

// Adds the command; choosing it sets *chosen. The request must live until that is called.
void add_doctor(CLI::App& app, DoctorRequest* request, ChosenCommand* chosen);

}  // namespace cli
