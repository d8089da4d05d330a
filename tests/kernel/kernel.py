"""The kernel of this network namespace: its links, addresses, routes and next-hop objects as ip(8) states them, and how tests
change it."""
import functools
import json
import subprocess


def batch(commands, *options):
    """Runs ip(8) commands in one process, close together; `options` such as "-n", "p" precede them."""
    done = subprocess.run(["ip", *options, "-batch", "-"], input="\n".join(commands) + "\n", text=True, capture_output=True,
                          check=False)
    assert done.returncode == 0, f"{'; '.join(commands)}: {done.stdout}{done.stderr}"


def vrf_lines(vrfs):
    """Commands for `batch` that create VRFs, {name: table}, and set them up."""
    return [line for name, table in vrfs.items() for line in (f"link add {name} type vrf table {table}", f"link set {name} up")]


def member_lines(members, *further):
    """Commands that create interfaces, {name: VRF or ""}, each with the further commands, in which {name} is replaced."""
    lines = []
    for name, vrf in members.items():
        lines.append(f"link add {name} type dummy")
        lines += [f"link set {name} master {vrf}"] if vrf else []
        lines += [command.format(name=name) for command in further]
    return lines


def delete_links():
    for link in Kernel().links:
        if link["ifname"] != "lo":  # one end of a pair is deleted with the other
            subprocess.run(["ip", "link", "del", link["ifname"]], stderr=subprocess.DEVNULL, check=False)


def route_object(pairs):
    """ip(8) prints the labels of a route as a second "dst"."""
    result = {}
    for name, value in pairs:
        result["labels" if name == "dst" and "dst" in result else name] = value
    return result


def read(commands, *options):
    """The output of ip(8) for each command, from one process: starting it costs more than the commands."""
    shown = subprocess.run(["ip", "-j", "-d", "-N", *options, "-batch", "-"], input="\n".join(commands) + "\n", check=True,
                           capture_output=True, text=True).stdout
    decoder, results, at = json.JSONDecoder(object_pairs_hook=route_object), [], 0
    while (at := shown.find("[", at)) >= 0:
        found, at = decoder.raw_decode(shown, at)
        results.append([each for each in found if each])
    return results


class Kernel:
    """Each part is read when it is used for the first time."""

    @functools.cached_property
    def links(self):
        return read(("addr show",))[0]

    @functools.cached_property
    def routes(self):
        """{version of IP: routes}"""
        return {version: read(("route show table all",), f"-{version}")[0] for version in (4, 6)}

    @functools.cached_property
    def objects(self):
        return {each["id"]: each for each in read(("nexthop show",))[0]}

    def indexes(self):
        return {link["ifname"]: link["ifindex"] for link in self.links}

    def vrfs(self):
        """{name: link} of the VRF devices."""
        return {link["ifname"]: link for link in self.links if kind(link) == "vrf"}

    def members(self):
        """{(VRF, ifIndex): link}."""
        return {(link["master"], link["ifindex"]): link for link in self.links
                if link.get("linkinfo", {}).get("info_slave_kind") == "vrf"}

    def is_settled(self):
        """False while the kernel still checks whether an IPv6 address is unique."""
        return not any(address.get("tentative") and not address.get("dadfailed")
                       for link in self.links if is_up(link) for address in link["addr_info"])


def kind(link):
    return link.get("linkinfo", {}).get("info_kind")


def is_up(link):
    """ifOperStatus up(1). A link without an operational state is up if it is administratively up and has a carrier."""
    if link["operstate"] == "UNKNOWN":
        return "UP" in link["flags"] and "LOWER_UP" in link["flags"]
    return link["operstate"] == "UP"


def usable_addresses(link):
    return [each for each in link["addr_info"] if "local" in each and not each.get("tentative") and not each.get("dadfailed")]


def is_active(link):
    """Up, with a usable address."""
    return is_up(link) and bool(usable_addresses(link))


def has_ipv4(link):
    return any(address.get("family") == "inet" for address in link["addr_info"])
