#!/usr/bin/env python3
"""Random operations on a real kernel; after each batch the whole MIB is compared with ip(8). Runs in the guest (see uml-run),
as root; scripts/churn calls it.

Every seed has a network namespace and a system of its own: daemon, snmpd, sub-agent. Operations create, delete, rename
and move VRFs, interfaces, addresses and routes, and kill processes. After each batch the MIB over SNMP, the command line's
JSON and the notifications received must be those of a model that is computed from "ip -j" alone. On a mismatch the seed
and a shortened sequence of operations that still causes one are printed, and the exit status is 1.
"""
import argparse
import itertools
import os
import pathlib
import subprocess
import sys
import textwrap
import time

OUT = pathlib.Path(os.environ.get("UML_OUT", "."))
HERE = pathlib.Path(__file__).resolve().parent
sys.path[:0] = [str(HERE.parent.parent / "e2e"), str(HERE.parent), str(HERE)]


def parse_arguments():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("programs", help="the build's bin directory")
    parser.add_argument("--suite", type=int, choices=(8, 10), help="with the routing suite FRR of this version")
    parser.add_argument("--seed", type=int, default=1, help="the first seed (1)")
    parser.add_argument("--seeds", type=int, help="how many seeds, each one above the last; none: until the time is over")
    parser.add_argument("--minutes", type=float, default=1.0, help="no batch begins after that (1)")
    parser.add_argument("--operations", type=int, default=500, help="of each seed (500)")
    parser.add_argument("--without", default="", metavar="NAMES", help="operations of World to leave out, between commas")
    parser.add_argument("--minimise", type=float, default=600.0, metavar="SECONDS", help="for shortening a sequence (600), 0: it is not tried")
    parser.add_argument("--replay", metavar="FILE",
                        help="the steps in the file, as a mismatch leaves them in $UML_OUT, with the settings of the first seed")
    return parser.parse_args()


def random_batches(world, operations, deadline):
    """Batches until the number of operations is reached or the time has expired."""
    done = 0
    while done < operations and time.monotonic() < deadline:
        batch = world.batch()
        done += len(batch)
        yield batch


def say(text):
    """Prints to standard output, which is shown when the guest has ended, and to a log that can be read before."""
    print(text, flush=True)
    with open(OUT / "log", "a") as log:
        log.write(text.rstrip("\n") + "\n")


def report(seed, run):
    refused = 100 * run["failed_lines"] // max(1, run["lines"])
    say(f"seed {seed}: {run['operations']} operations in {len(run['batches'])} batches, {run['lines']} commands "
          f"({refused}% refused by the kernel), {run['seconds']:.0f} s: "
          f"{'MISMATCH' if run['errors'] else 'no mismatch'}")


def report_mismatch(seed, run, settings, seconds):
    from minimise import Minimiser
    say("\n".join(run["errors"]))
    save(seed, run["batches"], "failed")
    if seconds <= 0:
        return
    minimiser = Minimiser(seed, settings, seconds)
    shorter = minimiser.reduce(run["batches"])
    if shorter is None:
        say(f"seed {seed}: the same operations had no mismatch when applied again; the last batch was\n"
            + indented(run["batches"][-1:]))
        return
    save(seed, shorter, "minimised")
    say(f"seed {seed}: a mismatch after these operations ({minimiser.attempts} attempts):\n{indented(shorter)}"
        + "\n".join(minimiser.errors))


def indented(batches):
    from minimise import text_of
    return textwrap.indent(text_of(batches), "  ")


def save(seed, batches, what):
    from minimise import text_of
    (OUT / f"churn-{seed}-{what}").write_text(text_of(batches))


def run_seeds(arguments, settings, deadline):
    from replay import in_child
    from world import World
    total = 0
    last = arguments.seed + arguments.seeds if arguments.seeds else sys.maxsize
    for seed in itertools.takewhile(lambda seed: seed < last and time.monotonic() < deadline, itertools.count(arguments.seed)):
        world = World(seed, settings.release is not None, arguments.without.split(","))
        run = in_child(seed, random_batches(world, arguments.operations, deadline), settings)
        report(seed, run)
        total += run["operations"]
        if run["errors"]:
            report_mismatch(seed, run, settings, arguments.minimise)
            return 1
    say(f"{total} operations with seeds {arguments.seed} to {seed}: no mismatch")
    return 0


def replay(arguments, settings):
    from minimise import batches_of
    from replay import in_child
    run = in_child(arguments.seed, batches_of(pathlib.Path(arguments.replay).read_text()), settings)
    report(arguments.seed, run)
    say("\n".join(run["errors"]))
    return 1 if run["errors"] else 0


def find_suite(version):
    import suite
    return suite.find_or_skip("churn", version) if version else None


def main():
    arguments = parse_arguments()
    os.environ["MPLS_TEST_BIN"] = os.path.abspath(arguments.programs)
    os.environ.setdefault("MPLS_TEST_SLOW", "3")  # a process start costs 15 ms in the guest
    subprocess.run(["modprobe", "-a", "ipv6", "vrf", "dummy", "veth", "bridge", "mpls_router", "mpls_iptunnel"], check=True)
    pathlib.Path("/proc/sys/kernel/hostname").write_text("churn")  # the suite's shell prints it
    from replay import Settings
    settings = Settings(find_suite(arguments.suite))
    if arguments.replay:
        return replay(arguments, settings)
    return run_seeds(arguments, settings, time.monotonic() + 60 * arguments.minutes)


if __name__ == "__main__":
    sys.exit(main())
