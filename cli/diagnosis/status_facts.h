// What "show status" shows beside the process and its clients: sources, databases, the SNMP front end with
// the traps that wait for it, and the route modules.
#pragma once

#include "cli/output/details.h"
#include "cli/output/json_list.h"
#include "cli/session.h"
#include "platform/store/status/records.h"

namespace cli {

// The daemon's version, and that of this program if it is another one.
std::string version_text(const process_status::ProcessStatus& status);

void print_facts(Details& details, const process_status::ProcessStatus& status);
// Sources and databases as tables, with an empty line after each; none for an older daemon, which has none.
void print_fact_tables(const Session& session, const process_status::ProcessStatus& status);

// The same as keys of an object.
void add_facts(const process_status::ProcessStatus& status, Json* json);

}  // namespace cli
