// When the configuration of a VRF last changed, from the history of configuration commits.
//
// For code that is linked with the daemon and needs the commit of a change; it works without the VRF's
// record. The daemon itself does not call it: mplsL3VpnVrfConfLastChanged (RFC 4382) is the time in the
// attribute block, which the checkpoint preserves and no number of later commits displaces. Main thread.
#pragma once

// The timestamp (UTC, "2026-11-21T10:27:09Z") of the newest of the last 15 commits that changed the VRF's
// configuration, as a copy that the caller frees. Null if no commit did, and after a failure, which is
// reported; the result does not distinguish the two. The search uses the first 41 octets of
// "gl/vmap/vrf/NAME"; a name with a '/' is taken for a path below another VRF's item.
[[nodiscard]] char* mpls_vpn_mib_cgfmgr_get_time(const char* vrf_name);
