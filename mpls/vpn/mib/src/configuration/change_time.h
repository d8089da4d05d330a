// When the configuration of a VRF last changed, from the history of configuration commits. Main thread.
#pragma once

// The timestamp (UTC, "2026-11-21T10:27:09Z") of the newest of the last 15 commits that changed something of
// the VRF's configuration, as a copy that the caller frees. Null when none did and after every failure, which
// is reported: the caller cannot tell them apart. A name with which "gl/vmap/vrf/NAME" has more than 41
// octets is looked for by the first of them; one with a '/' is taken for a path below another VRF's item.
[[nodiscard]] char* mpls_vpn_mib_cgfmgr_get_time(const char* vrf_name);
