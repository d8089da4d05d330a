// The types of the records that services answer besides the MIB's.
#pragma once

namespace daemon_host {

// Describes them in the registry of the run directory, as the daemon does with the MIB's: "mplsvpn get"
// prints a record by its description there. A failure is logged.
void register_record_types();

}  // namespace daemon_host
