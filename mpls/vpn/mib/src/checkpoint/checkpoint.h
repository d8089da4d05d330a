// The times of a VRF that survive the process: its creation time and the time its configuration last changed
// (mplsL3VpnVrfCreationTime and mplsL3VpnVrfConfLastChanged, RFC 4382). One checkpoint record per VRF, keyed
// by its vrf_id. Main thread only. Fault points: the checkpoint store's own.
#pragma once

#include <cstdint>

#include "platform/core/base/status.h"
#include "platform/core/evm/evm.h"
#include "platform/router/vtab/vtab.h"

// Opens the store and its table. 0, or the code of the step that failed. Once, at start-up.
[[nodiscard]] Status mpls_vpn_mib_chkpt_init(EventManager* evm);
// 1 when the store had nothing of this program at that time, else 0.
std::uint32_t mpls_vpn_mib_chkpt_first_run();

// Creates or overwrites the VRF's record from the times in its attribute block, which receives the object id.
// REQUIRES: vrf_id is not 0.
[[nodiscard]] Status mpls_vpn_mib_chkpt_vrf_save(std::uint32_t vrf_id, const VtabVrfRecord* record);
// Deletes the VRF's record, if it has one. On failure the block retains the object id.
[[nodiscard]] Status mpls_vpn_mib_chkpt_vrf_delete(const VtabVrfRecord* record);

// Reads all records into the attribute blocks and deletes those that cannot be used: of another size, or of a
// VRF that does not exist. 0, or the code of the failed start of the iteration. REQUIRES: the record service
// has all existing VRFs.
[[nodiscard]] Status mpls_vpn_mib_chkpt_restore();
// Saves a record for every created VRF that has none, after the restore. A VRF that was created while the
// daemon was down is not saved when it is announced (that would overwrite older times) and would otherwise
// get a new creation time at every start. A record that the restore did not reach retains its times.
void mpls_vpn_mib_chkpt_save_missing();

// Closes the store. For tests that start the daemon again.
void mpls_vpn_mib_chkpt_end();
