"""The kernel's state as ip(8) states it: links, addresses, routes and next-hop objects of this network namespace."""
import json
import subprocess


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
    """One reading. Two readings are equal if ip(8) shows no difference."""

    def __init__(self):
        self.links, objects = read(("addr show", "nexthop show"))
        self.routes = {version: read(("route show table all",), f"-{version}")[0] for version in (4, 6)}
        self.objects = {each["id"]: each for each in objects}
        for link in self.links:
            for volatile in ("valid_life_time", "preferred_life_time"):
                for address in link["addr_info"]:
                    address.pop(volatile, None)

    def __eq__(self, other):
        return self.__dict__ == other.__dict__

    def index_of(self, name):
        return next((link["ifindex"] for link in self.links if link["ifname"] == name), 0)

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
    """ifOperStatus up(1). A link without an operational state is up if it is administratively up and has a
    carrier."""
    if link["operstate"] == "UNKNOWN":
        return "UP" in link["flags"] and "LOWER_UP" in link["flags"]
    return link["operstate"] == "UP"


def is_active(link):
    """Up, with a usable address."""
    return is_up(link) and any("local" in address and not address.get("tentative") and not address.get("dadfailed")
                               for address in link["addr_info"])


def has_ipv4(link):
    return any(address.get("family") == "inet" for address in link["addr_info"])
