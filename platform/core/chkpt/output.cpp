// The only connection between the checkpoint and the output of servers.
#include "platform/core/chkpt/chkpt.h"
#include "platform/core/wire/wire.h"

void chkpt_gate_output() {
  wire::set_output_gate(chkpt_begin_flush);
  chkpt_on_commit(wire::open_output_gate);
}
