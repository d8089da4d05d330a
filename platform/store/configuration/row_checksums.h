// The checksums of rows of the configuration, as terms of SQL. Only for this folder.
#pragma once

#define NODE_CHECKSUM "row_checksum(path, owner, value, told, suppressed)"
#define LOG_CHECKSUM "row_checksum(id, time, owner, comment, changes, octets, folded, user)"
