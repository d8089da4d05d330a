// The process frame: start-up and the two event loops.
#pragma once

#include "platform/core/base/status.h"
#include "platform/core/evm/evm.h"

// Starts the daemon and serves events forever. Returns only when start-up failed, with the exit status: 1, or
// the code of a failed restore of the checkpoint (1 also if its low octet, all that the system reports, is
// 0). Call once, on the process's first thread. argv[0] must remain live (the system log's identity).
int mpls_vpn_mib_main(int argc, char** argv);

// The main thread's loop. Never returns.
[[noreturn]] void main_event_loop();
// Start routine of the second thread. Never returns.
void* debug_show_thread(void* arg);

// One iteration of each loop: waits for an event and dispatches it, or reports why the wait failed.
void main_event_step(EventContext* context);
void debug_show_step(EventContext* context);

// The start-up tables: called in order, ended by null.
using ServerInit = Status (*)();
using ServerInitEvm = Status (*)(EventManager*);
extern const ServerInit server_init[];
extern const ServerInitEvm server_init_evm[];
