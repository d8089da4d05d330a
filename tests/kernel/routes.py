"""The rows of mplsL3VpnVrfRteTable that a reading of the kernel implies (RFC 4382, with the columns of RFC 4292)."""
import ipaddress

OTHER, REJECT, LOCAL, REMOTE, BLACKHOLE = 1, 2, 3, 4, 5  # inetCidrRouteType
LARGEST_INTEGER = 2 ** 31 - 1
NO_HOP = None

# rtm_type as ip -N prints it: unicast is 1
UNICAST = "1"
DISCARDING = {"6": BLACKHOLE, "7": REJECT, "8": REJECT, "9": OTHER}
# rtm_protocol to IANAipRouteProtocol
PROTOCOLS = {"1": 4, "2": 2, "3": 3, "4": 3, "16": 19, "186": 14, "187": 9, "188": 13, "189": 8, "190": 8, "192": 16,
             "196": 3}
ANY = {4: ipaddress.ip_network("0.0.0.0/0"), 6: ipaddress.ip_network("::/0")}


def prefix_of(route, version):
    return ANY[version] if route["dst"] == "default" else ipaddress.ip_network(route["dst"])


def is_forwarding_entry(route, version):
    if route.get("type", UNICAST) not in (UNICAST, *DISCARDING):
        return False
    prefix = prefix_of(route, version)
    return not (prefix.is_multicast or version == 6 and prefix.is_link_local)


def paths_of(route, objects):
    """The paths of a route: its own, or those of the next-hop object that it names."""
    if "nexthops" in route:
        return [dict(hop, labels=hop.get("labels") or hop.get("dst", "")) for hop in route["nexthops"]]
    if "nhid" not in route or "dev" in route:
        return [route]
    named = objects.get(route["nhid"], {})
    members = [objects[member["id"]] for member in named.get("group", [{"id": route["nhid"]}]) if member["id"] in objects]
    return [dict(member, labels=member.get("dst", "")) for member in members]


def is_dead(path):
    return "dead" in path.get("flags", [])


def hop_of(path, version):
    """None for a gateway of the other family, which a row's index cannot have."""
    if "gateway" in path:
        hop = ipaddress.ip_address(path["gateway"])
        return hop if hop.version == version else NO_HOP
    return NO_HOP


def rows_of(route, version, kernel, index):
    """[((prefix, kind of next hop, next hop), {column: value})] of one route."""
    prefix = prefix_of(route, version)
    metric = min(route.get("metric", 0), LARGEST_INTEGER)
    common = {"proto": PROTOCOLS.get(str(route.get("protocol", 0)), 1), "metric1": metric}
    kind = DISCARDING.get(route.get("type", UNICAST))
    if kind is not None:
        return [((prefix, None), dict(common, type=kind, ifIndex=0, labels=[]))]
    rows = []
    for path in paths_of(route, kernel.objects):
        if is_dead(path) or is_dead(route):
            continue
        if "blackhole" in path:
            rows.append(((prefix, None), dict(common, type=BLACKHOLE, ifIndex=0, labels=[])))
            continue
        remote = "gateway" in path or "via" in path
        labels = [int(label) for label in str(path.get("labels") or "").split("/") if label]
        hop = hop_of(path, version)
        rows.append(((prefix, hop), dict(common, type=REMOTE if remote else LOCAL, ifIndex=index.get(path["dev"], -1),
                                         labels=labels)))
    return rows


def table_rows(kernel, table):
    """{(prefix, next hop): columns}; of routes with one index the one that the kernel prefers."""
    index, rows = kernel.indexes(), {}
    for version, routes in kernel.routes.items():
        for route in routes:
            if str(route.get("table")) != str(table) or not is_forwarding_entry(route, version):
                continue
            for key, row in rows_of(route, version, kernel, index):
                if key not in rows or row["metric1"] < rows[key]["metric1"]:
                    rows[key] = row
    return rows


def vrf_routes(kernel):
    """{VRF: {(prefix, next hop or ""): (metric, ifIndex, type, labels, protocol)}}, with texts as keys."""
    return {vrf: {(str(prefix), str(hop or "")): tuple(row[name] for name in ("metric1", "ifIndex", "type", "labels", "proto"))
                  for (prefix, hop), row in table_rows(kernel, link["linkinfo"]["info_data"]["table"]).items()}
            for vrf, link in kernel.vrfs().items()}
