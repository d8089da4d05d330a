// The paths whose rows can be read as batches of columns: those of the walks, "scalars", and "route", by
// which readers find out whether routes can be read.
#pragma once

#include <cstddef>

#include "platform/store/tree/kvtree.h"

extern const KvColumnRule mpls_vpn_mib_column_rules[];
extern const std::size_t mpls_vpn_mib_column_rule_count;
