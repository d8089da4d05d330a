"""A router with every kind of row, and the values that each row of the MIB should have."""
import ipaddress
import itertools

from system import (PERF_ENTRY, ROUTE_ENTRY, RT_ENTRY, SCALARS, SEC_ENTRY, VRF_ENTRY, expected_if_conf, name_index, oid_tuple,
                    route_index)

LONGEST = "a-much-longer-name-of-31-octets"
ANY = "*"  # values that tests of their own check

# JSON is YAML: the router is data, from which the tests compute what a walk must show.
ROUTER = {
    "vrfs": [
        # As in many Linux VRFs: a default route of type unreachable, without next hop, as the very first route.
        {"name": "red", "table": 10, "description": "Red Rail", "rd": "65000:100",
         "route_targets": {"both": ["65000:100"], "import": ["65000:99", "192.0.2.1:7"], "ipv6": {"export": ["4200000000:6"]}},
         "thresholds": {"ipv4": {"maximum": 4000000000, "mid": 80}}, "bgp": {"as": 65000, "neighbors": ["10.0.0.2"]},
         "ospf": [{"process": 1, "area": 0, "interfaces": ["ge0", "ge3"]}], "rip": {"interfaces": ["ge1"]},
         "eigrp": [{"as": 9, "interfaces": ["ge0", "ge1"]}], "routes": [
            {"prefix": "0.0.0.0/0", "type": "reject"},
            {"prefix": "10.0.0.0/8", "type": "blackhole"},
            {"prefix": "10.0.1.0/24", "interface": "ge0"},
            {"prefix": "10.0.1.0/24", "next_hop": "10.0.0.7", "interface": "ge0", "protocol": "ospf", "metric": 20},
            {"prefix": "10.1.0.0/16", "next_hops": ["10.0.0.2", "10.0.0.3"], "interface": "ge0", "protocol": "static"},
            {"prefix": "10.2.0.0/16", "next_hop": "10.0.0.2", "interface": "ge0", "protocol": "bgp",
             "metrics": [1, 2, 3, 4, 5], "next_hop_as": 65010},
            {"prefix": "10.3.0.0/16", "next_hop": "10.0.0.2", "interface": "ge0", "labels": [1002, 16]},
            {"prefix": "::/0", "type": "reject"},
            {"prefix": "2001:db8:1::/64", "interface": "ge0"},
            {"prefix": "2001:db8:1::/64", "next_hop": "2001:db8::7", "interface": "ge0"},
            {"prefix": "2001:db8:2::/48", "next_hop": "2001:db8::2", "interface": "ge0", "protocol": "bgp",
             "metrics": [1, 2, 3, 4, 5], "next_hop_as": 65010},
            {"prefix": "ffff:ffff:ffff:ffff:ffff:ffff:ffff:ffff/128", "next_hop": "ffff::1", "interface": "ge0"},
        ]},
        # In the order of names: IPv4 only (after a VRF whose last routes are IPv6), no routes, IPv6 only.
        {"name": "blue", "table": 20, "rd": "10.1.1.1:55", "description": "B\u00fcro",
         "static": [{"prefix": "10.0.0.0/8", "next_hop": "10.0.0.1"}], "routes": [
            {"prefix": "0.0.0.0/0", "type": "local", "interface": "ge3"},
            {"prefix": "255.255.255.255/32", "next_hop": "255.255.255.255", "interface": "ge3"},
        ]},
        {"name": "none", "table": 30, "description": "", "rd": "4200000000:7"},
        {"name": "sixer", "tables": {"ipv4": 41, "ipv6": 40}, "route_targets": {"ipv6": {"both": ["1:2"]}}, "routes": [
            {"prefix": "::/0", "type": "local", "interface": "ge4"},
            {"prefix": "2001:db8::/32", "next_hop": "2001:db8::1", "interface": "ge4"},
        ]},
        {"name": LONGEST, "table": 50, "routes": [
            {"prefix": "10.0.0.0/8", "next_hop": "10.0.0.1", "interface": "ge4"},
            {"prefix": "2001:db8::/32", "next_hop": "2001:db8::1", "interface": "ge4"},
        ]},
        {"name": "many", "table": 60, "routes": [
            {"generate": 300, "prefix": "20.0.0.0/24", "next_hop": "20.0.0.1", "interface": "ge4", "protocol": "bgp"},
            {"prefix": "20.0.200.0/24", "interface": "ge4"},
        ]},
        {"name": "later", "state": "referenced", "description": "soon", "route_targets": {"ipv4": {"export": ["65000:5"]}}},
    ],
    "interfaces": [
        {"name": "ge0", "index": 11, "vrf": "red", "state": "up", "addresses": ["10.0.0.1/24"]},
        {"name": "ge1", "index": 12, "vrf": "red", "state": "down", "addresses": ["10.0.1.1/24"]},
        {"name": "ge3", "index": 14, "vrf": "blue", "state": "up"},
        {"name": "ge4", "index": 15, "vrf": LONGEST, "state": "up", "addresses": ["2001:db8::1/64"]},
        {"name": "ge5", "index": 16, "state": "up", "addresses": ["192.0.2.1/24"]},
        {"name": "ge2", "index": 300000, "vrf": "red", "state": "down", "addresses": ["10.0.2.1/24"]},
        {"name": "ge6", "index": 17, "vrf": "nowhere", "state": "up", "addresses": ["10.9.0.1/24"]},
        {"name": "ge7", "index": 18, "vrf": "later", "state": "up", "addresses": ["10.8.0.1/24"]},
        {"name": "ge8.ip6", "index": 19, "vrf": "blue", "state": "up"},  # of a subscriber
    ],
}
PROTOCOL_BITS = {("red", 11): (1, 2, 6), ("red", 12): (1, 3, 6), ("red", 300000): (1,), ("blue", 14): (5,)}
TYPES = {"other": 1, "reject": 2, "local": 3, "remote": 4, "blackhole": 5}
PROTOCOLS = {"other": 1, "local": 2, "static": 3, "ospf": 13, "bgp": 14}


def vrfs():
    return sorted((vrf for vrf in ROUTER["vrfs"] if vrf.get("state") != "referenced"),
                  key=lambda vrf: name_index(vrf["name"]))


def paths(vrf):
    """(network, next hop or None, route) of each row."""
    for route in vrf.get("routes", []):
        first = ipaddress.ip_network(route["prefix"])
        for number in range(route.get("generate", 1)):
            step = number * 2 ** (first.max_prefixlen - first.prefixlen)
            network = ipaddress.ip_network((int(first.network_address) + step, first.prefixlen)) if step else first
            for hop in route.get("next_hops", [route.get("next_hop")]):
                yield network, ipaddress.ip_address(hop) if hop else None, route


def route_type(hop, route):
    if "type" in route:
        return TYPES[route["type"]]
    return TYPES["remote"] if hop else TYPES["local"]


def route_targets(vrf):
    """(type, family, text) of each, in the order of their numbers."""
    configured = vrf.get("route_targets", {})
    found = set()
    for family, word in ((1, "ipv4"), (2, "ipv6")):
        for lists in (configured, configured.get(word, {})):
            for kind, keys in ((1, ("import", "both")), (2, ("export", "both"))):
                found.update((kind, family, text) for key in keys for text in lists.get(key, []))
    return sorted(found, key=lambda each: (each[0], each[1], len(each[2]), each[2]))


def octets(text):
    """A text as the tools show it: in hexadecimal where it is not ASCII."""
    return f'"{text}"' if text.isascii() else '"' + "".join(f"{octet:02X} " for octet in text.encode()) + '"'


def route_cells(network, hop, route):
    """{column: value}; an IPv4 route has no next-hop AS, and metric 5 repeats metric 4."""
    metrics = (route.get("metrics", [route["metric"]] if "metric" in route else []) + [-1] * 5)[:5]
    next_hop_as = route.get("next_hop_as", 0)
    if network.version == 4:
        metrics[4] = metrics[3]
        next_hop_as = 0
    interfaces = {interface["name"]: interface["index"] for interface in ROUTER["interfaces"]}
    kind = route_type(hop, route)
    default = "local" if kind == TYPES["local"] else "static"
    cells = {7: interfaces.get(route.get("interface"), 0), 8: kind, 9: PROTOCOLS[route.get("protocol", default)], 10: ANY,
             11: next_hop_as, 17: ANY if "labels" in route else '"00 "', 18: 1}
    cells.update(zip(range(12, 17), metrics))
    return cells


def table(entry, rows):
    """[(oid, value)] of {index: {column: value}}, column by column."""
    columns = sorted(next(iter(rows.values()))) if rows else []
    return [(entry + (column,) + index, str(rows[index][column])) for column in columns for index in sorted(rows)]


def members_by_name():
    """{interface: (VRF, ifIndex)}."""
    names = {vrf["name"] for vrf in vrfs()}
    return {each["name"]: (each["vrf"], each["index"]) for each in ROUTER["interfaces"]
            if each.get("vrf") in names and ".ip" not in each["name"]}


def expected():
    members = list(members_by_name().values())
    active = {"red": 1, LONGEST: 1}  # up and with an address
    scalars = {1: len(vrfs()), 2: len(active), 3: len(members), 4: 2, 5: 0, 6: 0, 7: 0}
    vrf_rows, targets, security, performance, routes = {}, {}, {}, {}, {}
    for vrf in vrfs():
        name = vrf["name"]
        index = name_index(name)
        up = 1 if name in active else 2
        threshold = vrf.get("thresholds", {}).get("ipv4", {"maximum": 0, "mid": 0})
        vrf_rows[index] = {
            2: '""', 3: octets(vrf.get("description", "")), 4: f'"{vrf.get("rd", "")}"', 5: ANY, 6: up, 7: active.get(name, 0),
            8: sum(member[0] == name for member in members), 9: threshold["mid"], 10: threshold["maximum"],
            11: threshold["maximum"], 12: ANY, 13: 1, 14: up, 15: 5}
        security[index] = {1: 0, 2: 0}
        performance[index] = {1: 0, 2: 0, 3: len(list(paths(vrf))), 4: 0, 5: 0}
        for network, hop, route in paths(vrf):
            kind = route_type(hop, route)
            routes[route_index(name, network, hop, kind == TYPES["local"])] = route_cells(network, hop, route)
    # Route targets are rows even without their VRF.
    for vrf in ROUTER["vrfs"]:
        for number, (kind, family, text) in enumerate(route_targets(vrf), 1):
            targets[name_index(vrf["name"]) + (number, kind)] = {
                4: f'"{text}"', 5: f'"IPv{4 if family == 1 else 6} Unicast"', 6: 1, 7: 5}
    return ([(oid_tuple(SCALARS) + (column, 0), str(value)) for column, value in scalars.items()]
            + expected_if_conf(members, PROTOCOL_BITS) + table(VRF_ENTRY, vrf_rows) + table(RT_ENTRY, targets)
            + table(SEC_ENTRY, security)
            + table(PERF_ENTRY, performance) + table(ROUTE_ENTRY, routes))


def masked(rows, like):
    """The rows, with ANY in place of the values that are ANY in the rows to compare with."""
    return [(oid, ANY if other[1] == ANY else value) for (oid, value), other in itertools.zip_longest(
        rows, like, fillvalue=(None, None))]
