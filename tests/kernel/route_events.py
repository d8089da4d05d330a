#!/usr/bin/env python3
"""route_events.py PROGRAM [--seed N] [--operations N] [--verify] [--overrun] [--fill N] [--no-vrf]: random changes of
routes, next-hop objects, addresses, links and VRFs, as root. PROGRAM is kernel_model_dump.

After every batch of changes the rows must be those of a fresh reading by ip(8), although the program reads no table
again: every change must have followed from the kernel's announcements. With --verify it reads them all the time and must
find nothing to correct; with --fill N, so many IPv6 routes that do not change, and a fifth as many of IPv4, make the kernel's
answer several datagrams. With --overrun it has hardly room for announcements. Runs in the guest (see uml-run); with --no-vrf, for kernels
without VRF devices, in a network namespace of the caller. On a difference prints the seed and the changes.
"""
import argparse
import os
import random
import subprocess
import sys
import time

import vrf_life
from kernel import Kernel, batch, member_lines, vrf_lines
from routes import table_rows
from vrf_life import Model

VRFS = {"red": 10, "blue": 20, "twin": 10}  # two of them share a table
TABLES = (10, 20)
BOUND = 20.0  # seconds, for what the kernel itself does in the background
PREFIXES = {4: ["20.0.0.0/24", "20.0.0.0/16", "20.0.0.0/8", "20.0.1.0/24", "20.0.2.1/32", "default", "10.0.0.0/24"],
            6: ["2001:db8:a::/48", "2001:db8:a::/64", "2001:db8:b::/48", "2001:db8:c::1/128", "default", "2001:db8:10::/64"]}
DEVICES = ["d0", "d1", "d2", "d4", "w0"]
NUMBER = {name: number for number, name in enumerate(DEVICES)}
ADDRESSES = {4: [f"10.{n}.{m}.1/24" for n in range(5) for m in range(2)],
             6: [f"2001:db8:1{n}::1/64" for n in range(5)]}


class Changes:
    """Makes random commands for ip(8). Many are refused by the kernel."""

    def __init__(self, seed, vrfs):
        self.random = random.Random(seed)
        self.vrfs = vrfs
        self.kinds = [(self.route, 60), (self.deletion, 22), (self.object, 16), (self.address, 10), (self.link, 8),
                      (self.mode, 2), (self.flush, 1)] + ([(self.vrf, 1)] if vrfs else [])

    def some(self, count):
        kinds = self.random.choices([kind for kind, _ in self.kinds], [weight for _, weight in self.kinds], k=count)
        return [kind() for kind in kinds]

    def pick(self, *choices):
        return self.random.choice(choices)

    def perhaps(self, chance, text):
        return text if self.random.random() < chance else ""

    def gateway(self, version, device=None):
        device = device or self.pick(*DEVICES)
        number, host = NUMBER[device], self.random.randint(2, 4)
        return f"via 10.{number}.0.{host}" if version == 4 else f"via 2001:db8:1{number}::{host}", device

    def path(self, version):
        gateway, device = self.gateway(version)
        onlink = self.perhaps(0.7, " onlink")
        kind = self.random.random()
        if kind < 0.6:
            return f"{self.perhaps(0.12, 'encap mpls 100/200 ')}{gateway} dev {device}{onlink}"
        if kind < 0.7 and version == 4:
            return f"via inet6 {self.gateway(6, device)[0][4:]} dev {device}"
        return f"dev {device}"

    def key(self, version):
        text = self.perhaps(0.25, f" metric {self.pick(5, 20, 4278198272)}")
        return text + (self.perhaps(0.1, " tos 0x10") if version == 4 else self.perhaps(0.05, " from 2001:db8:f::/48"))

    def attributes(self, version):
        text = self.perhaps(0.3, f" proto {self.pick('bgp', 'static', 196)}") + self.perhaps(0.1, " mtu 1400")
        return text + (self.perhaps(0.06, " src " + self.pick(*ADDRESSES[4])[:-3]) if version == 4
                       else self.perhaps(0.1, f" pref {self.pick('low', 'medium', 'high')}"))

    def target(self, version):
        kind = self.random.random()
        if kind < 0.45:
            return self.path(version)
        if kind < 0.7:
            return "".join(f" nexthop {self.path(version).replace('onlink', f'weight {self.random.randint(1, 3)} onlink')}"
                           for _ in range(self.random.randint(1, 3)))
        return f"nhid {self.random.randint(1, 8)}"

    def version(self):
        return self.pick(4, 6)

    def route(self):
        version = self.version()
        verb = self.pick("add", "append", "prepend", "replace", "replace", "change")
        prefix, table = self.pick(*PREFIXES[version]), f"table {self.pick(*TABLES)}"
        start = f"-{version} route {verb} "
        if self.random.random() < 0.12:
            kind = self.pick("blackhole", "unreachable", "prohibit", "throw")
            return f"{start}{kind} {prefix} {table}{self.key_beside(version, verb, '')}"
        target = self.target(version)
        return f"{start}{prefix} {table}{self.key_beside(version, verb, target)}{self.attributes(version)} {target}"

    def key_beside(self, version, verb, target):
        """The kernel's dumps lack IPv6 routes without a gateway that were added between routes with one, of equal metric."""
        return " metric 77" if version == 6 and verb in ("add", "append", "prepend") and "via" not in target else self.key(version)

    def deletion(self):
        version = self.version()
        target = self.perhaps(0.4, " " + self.target(version))
        kind = self.perhaps(0.05, "blackhole ")
        return f"-{version} route del {kind}{self.pick(*PREFIXES[version])} table {self.pick(*TABLES)}{self.key(version)}{target}"

    def object(self):
        verb, number = self.pick("add", "replace", "replace", "del"), self.random.randint(1, 8)
        if verb == "del":
            return f"nexthop del id {number}"
        kind = self.random.random()
        if number > 6:  # groups, of objects of one family
            members = self.random.sample(range(1, 4) if number == 7 else range(4, 7), self.random.randint(1, 3))
            return f"nexthop {verb} id {number} group {'/'.join(map(str, members))}"
        if kind < 0.1:
            return f"nexthop {verb} id {number} blackhole"
        gateway, device = self.gateway(4 if number < 4 else 6)
        labels = self.perhaps(0.15, " encap mpls 300")
        return f"nexthop {verb} id {number}{labels} {gateway} dev {device}{self.perhaps(0.8, ' onlink')}"

    def address(self):
        version = self.version()
        verb = self.pick("add", "del")
        address = self.pick(*ADDRESSES[version])
        number = int(address.split(".")[1] if version == 4 else address.split(":")[2][1:])
        device = self.perhaps(0.9, DEVICES[number]) or self.pick(*DEVICES)
        return f"addr {verb} {address} dev {device}" + (" nodad" if version == 6 and verb == "add" else "")

    def link(self):
        device, kind = self.pick(*DEVICES), self.random.random()
        if kind < 0.15:
            return f"link set w1 {self.pick('down', 'up')}"  # the carrier of w0
        if kind < 0.4:
            return f"link set {device} down"
        if kind < 0.75 or not self.vrfs:
            return f"link set {device} up"
        if kind < 0.93:
            return f"link set {device} {self.pick('nomaster', 'master red', 'master blue', 'master twin')}"
        return f"link del {self.pick('d1', 'd2')}"

    def vrf(self):
        """repair() brings it back. The kernel keeps those of its routes that need no device."""
        return f"link del {self.pick('blue', 'twin')}"

    def mode(self):
        return f"sysctl {self.pick('net.ipv4.nexthop_compat_mode', 'net.ipv6.route.skip_notify_on_dev_down')}={self.pick(0, 1)}"

    def flush(self):
        return self.pick("nexthop flush", "-4 route flush table 20", "-6 route flush table 20", "-6 route flush table 10 proto static")


def run(commands):
    """Refused commands do not matter."""
    for command in [each for each in commands if each.startswith("sysctl")]:
        subprocess.run(["sysctl", "-qw", command.split()[1]], check=True)
    lines = [each for each in commands if not each.startswith("sysctl")]
    for options in (["-4"], ["-6"], []):
        mine = [each for each in lines if each.startswith(options[0] if options else ("n", "a", "l"))]
        if mine:
            text = "\n".join(each.removeprefix(options[0] + " ") if options else each for each in mine) + "\n"
            subprocess.run(["ip", "-force", *options, "-batch", "-"], input=text, text=True, capture_output=True, check=False)


def ignores_linkdown(seed):
    """With every other seed the kernel does not use paths over links without a carrier."""
    return seed % 2 == 1


def set_up(vrfs, seed):
    for family in ("ipv4", "ipv6"):
        for device in ("all", "default"):
            value = int(ignores_linkdown(seed))
            subprocess.run(["sysctl", "-qw", f"net.{family}.conf.{device}.ignore_routes_with_linkdown={value}"], check=True)
    if vrfs:
        batch(vrf_lines(VRFS) +
              member_lines({"d0": "red", "d1": "red", "d2": "blue", "d4": ""}, "link set {name} up") +
              ["link add w0 type veth peer name w1", "link set w0 master red"])
    else:
        batch([line for name in DEVICES for line in (f"link add {name} type veth peer name p{name}", f"link set p{name} up")] +
              ["link set pw0 name w1"])
    batch([f"link set {name} up" for name in ["lo", "w1", *DEVICES]])
    batch([f"addr add {ADDRESSES[4][2 * number]} dev {name}" for number, name in enumerate(DEVICES)] +
          [f"addr add {ADDRESSES[6][number]} dev {name} nodad" for number, name in enumerate(DEVICES)])
    time.sleep(1.5)  # carriers


def repair(vrfs):
    """Commands that bring back what random ones removed, so that the others find something to change."""
    links = {link["ifname"]: link for link in Kernel().links}
    commands = vrf_lines({name: table for name, table in VRFS.items() if vrfs and name not in links})
    for name in DEVICES:
        if name not in links:
            commands.append(f"link add {name} type dummy")
        if vrfs and name not in links:
            commands.append(f"link set {name} master {'blue' if name == 'd2' else 'red'}")
        if name not in links or "UP" not in links[name]["flags"]:
            commands.append(f"link set {name} up")
        commands.append(f"addr add {ADDRESSES[4][2 * NUMBER[name]]} dev {name}")
        commands.append(f"addr add {ADDRESSES[6][NUMBER[name]]} dev {name} nodad")
    return commands


def model_rows(answer):
    return {vrf: {(row["prefix"], row["next_hop"]): (row["metric"], row["index"], row["type"], row["labels"], row["protocol"])
                  for row in rows} for vrf, rows in answer["routes"].items()}


def kernel_rows(no_vrf):
    kernel = Kernel()
    tables = VRFS if no_vrf else {name: VRFS[name] for name in kernel.vrfs()}
    return {name: {(str(prefix), str(hop or "")): tuple(row[column] for column in ("metric1", "ifIndex", "type", "labels", "proto"))
                   for (prefix, hop), row in table_rows(kernel, table).items()} for name, table in tables.items()}


def difference(model, no_vrf):
    """What the model and the kernel do not have in common, and the model's answer."""
    deadline = time.monotonic() + BOUND
    while True:
        answer = model.ask()
        rows, kernel = model_rows(answer), kernel_rows(no_vrf)
        if rows == kernel:
            return [], answer
        if time.monotonic() > deadline:
            break
    model_cells, kernel_cells = ({(vrf, key): side[vrf][key] for vrf in side for key in side[vrf]} for side in (rows, kernel))
    return [f"VRFs: model {sorted(rows)}, kernel {sorted(kernel)}"] + [
        f"{place}: model {model_cells.get(place)}, kernel {kernel_cells.get(place)}" for place in sorted({**model_cells, **kernel_cells})
        if model_cells.get(place) != kernel_cells.get(place)], answer


def follow(options):
    model = Model("--reread-ms=3600000", f"--route-reread-ms={300 if options.verify else 3600000}",
                  *(["--receive-buffer=4096"] if options.overrun else []),
                  *([f"--vrf={name}:{table}" for name, table in VRFS.items()] if options.no_vrf else []))
    changes, done, ignored = Changes(options.seed, not options.no_vrf), 0, []
    found, answer = difference(model, options.no_vrf)
    first = read = answer["tables_read"]
    while not found and done < options.operations:
        commands = changes.some(changes.random.choices((1, 2, 6), (6, 2, 1))[0])
        if changes.random.random() < 0.1:
            commands += repair(not options.no_vrf)
        done += len(commands)
        ignored.append("; ".join(commands))
        run(commands)
        found, answer = difference(model, options.no_vrf)
        # Kernels differ in what they do with routes that prefer an address; ignored paths are read.
        read_after = ("addr ", "link ") if ignores_linkdown(options.seed) else ("addr del 10.", "link del ", "link add ")
        # A link that joins or leaves a VRF loses its IPv6 addresses before it is set down.
        if any(each.startswith(read_after) or each.startswith("link set ") and "master" in each for each in commands):
            read = answer["tables_read"]
        if not found and (answer["tables_read"] != read and not (options.verify or options.overrun) or
                          answer["corrections"] != 0 or answer["malformed"] != 0):
            found = [f"{answer['tables_read'] - read} tables were read, {answer['corrections']} corrections, "
                     f"{answer['malformed']} malformed messages"]
    model.end()
    if options.verify and answer["tables_read"] == first:
        found = found or ["no table was read again"]
    if options.overrun and answer["route_losses"] == 0:
        found = found or ["nothing was lost"]
    if found:
        print(f"seed {options.seed}, after {done} changes:", *ignored[-options.shown:], "", *found, sep="\n", flush=True)
        return False
    print(f"seed {options.seed}: {done} changes, {sum(len(rows) for rows in answer['routes'].values())} rows at the end", flush=True)
    return True


def main():
    parser = argparse.ArgumentParser(usage=__doc__)
    parser.add_argument("program")
    parser.add_argument("--seed", type=int, default=1)
    parser.add_argument("--operations", type=int, default=300)
    parser.add_argument("--verify", action="store_true")
    parser.add_argument("--overrun", action="store_true")
    parser.add_argument("--fill", type=int, default=0)
    parser.add_argument("--no-vrf", action="store_true")
    parser.add_argument("--shown", type=int, default=8, help="batches before a difference that are printed")
    options = parser.parse_args()
    vrf_life.PROGRAM = os.path.abspath(options.program)
    if not options.no_vrf:
        subprocess.run(["modprobe", "-a", "vrf", "dummy", "veth"], check=True)
        subprocess.run(["modprobe", "-a", "mpls_router", "mpls_iptunnel"], check=False)
    set_up(not options.no_vrf, options.seed)
    batch([f"route add blackhole 30.{n // 250}.{n % 250}.0/24 table 10" for n in range(options.fill // 5)])
    batch([f"route add blackhole 2001:db8:f:{n:x}::/64 table 10" for n in range(options.fill)], "-6")
    sys.exit(0 if follow(options) else 1)


if __name__ == "__main__":
    main()
