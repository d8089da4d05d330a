"""What the system shows: the whole MIB over SNMP, and the command line's JSON."""
import ipaddress

from snmp_client import END_OF_MIB_VIEW, SnmpClient
from system import ROOT_OID

OCTET_STRING, INTEGER = 4, 2
ENTRY_LENGTHS = {(1, 1): 3}  # scalars; an entry has four numbers and its column


def split_oid(tail):
    length = ENTRY_LENGTHS.get(tail[:2], 5)
    return tail[:length], tail[length:]


def value_of(tag, content):
    return bytes(content) if tag == OCTET_STRING else int.from_bytes(content, "big", signed=tag == INTEGER)


def walk_mib(port, rows=60):
    """{(table and column, index): value}; an AssertionError unless every OID increases."""
    client = SnmpClient(port, timeout=20)
    try:
        cells, oid = {}, ROOT_OID
        while True:
            for name, tag, content in client.get_bulk(oid, rows):
                if tag == END_OF_MIB_VIEW or name[:len(ROOT_OID)] != ROOT_OID:
                    return cells
                assert name > oid, f"OID not increasing: {oid} then {name}"
                oid = name
                cells[split_oid(name[len(ROOT_OID):])] = value_of(tag, content)
    finally:
        client.close()


def is_no_hop(row):
    return row["nextHopType"] == 0 or not int(ipaddress.ip_address(row["nextHop"]))


class CommandLine:
    """The command line's view: each table as keys and values to compare with the model."""

    def __init__(self, system):
        self.system = system

    def scalars(self):
        shown = self.system.cli_json("show", "scalars")
        return shown["configuredVrfs"], shown["activeVrfs"], shown["connectedInterfaces"]

    def corrections(self):
        """What readings of the kernel's routes found that no announcement had led to."""
        return self.system.cli_json("show", "status")["routeCorrections"]

    def malformed_messages(self):
        """Messages of the kernel that the daemon could not decode."""
        return self.system.cli_json("show", "status")["malformedMessages"]

    def interfaces(self):
        return {(row["vrfName"], row["ifConfIndex"]): row["name"] for row in self.system.cli_json("show", "interfaces")}

    def vrfs(self):
        return {row["name"]: row for row in self.system.cli_json("show", "vrf")}

    def targets(self):
        families = {"IPv4 Unicast": 4, "IPv6 Unicast": 6}
        return {(row["vrfName"], row["type"], families[row["description"]], row["rt"])
                for row in self.system.cli_json("show", "route-targets")}

    def routes(self, vrf):
        return {(row["prefix"], "" if is_no_hop(row) else row["nextHop"]) for row in self.system.cli_json("show", "routes", vrf)}
