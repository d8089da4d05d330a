// What "show status" shows beside the process and its clients: sources, databases, the SNMP front end with
// the traps that wait for it, and the route modules.
#pragma once

#include <memory>

#include "cli/output/details.h"
#include "cli/output/json_list.h"
#include "cli/output/record.h"
#include "cli/session.h"
#include "platform/store/status/records.h"

namespace cli {

std::unique_ptr<Record<process_status::ProcessStatus>> read_status(const Session& session);

// The client that receives the traps; null for none.
const process_status::ClientStatus* front_end_of(const process_status::ProcessStatus& status);
// Null, or an object with "kind": subAgent, module or other.
Json front_end_json(const process_status::ProcessStatus& status);

// The daemon's version, and that of this program if it is another one.
std::string version_text(const process_status::ProcessStatus& status);

void print_facts(Details& details, const process_status::ProcessStatus& status);
// Sources and databases as tables, with an empty line after each; none for an older daemon, which has none.
void print_fact_tables(const Session& session, const process_status::ProcessStatus& status);

// The same as keys of an object.
void add_facts(const process_status::ProcessStatus& status, Json* json);

}  // namespace cli
