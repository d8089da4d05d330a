"""Tests of the check "suite-routes" of "mplsvpn doctor", for system_doctor.py: routes that the suite has selected and the kernel
does not have.
"""
import json
import pathlib

from doctor_case import VRFS, DoctorTest  # before system
from kernel import batch, vrf_lines
from suite import run
from system import wait_until

SELECTED = """echo '{"10.8.0.0/16": [{"selected": true, "protocol": "static"}]}'"""
SHELL = """#!/usr/bin/env python3
import subprocess, sys
cases, words, commands = {cases!r}, {words!r}, [word for word in sys.argv[1:] if word != "-c"]
with open({runs!r}, "a") as runs:
    print(len(commands), file=runs)
if not set(commands) & set(cases):
    sys.exit(subprocess.run([*words, *sys.argv[1:]], check=False).returncode)
for command in commands:
    ran = subprocess.run(cases.get(command) or [*words, "-c", command], shell=command in cases, check=False)
    if ran.returncode != 0:
        sys.exit(ran.returncode)
"""


class RouteChecks(DoctorTest):
    def shell_that(self, **cases):
        """The suite's shell, but for these commands: {VRF of "show ip route": what is done then}. Its runs are counted."""
        shell = self.system.folder / "shell"
        cases = {f"show ip route vrf {vrf} json": action for vrf, action in cases.items()}
        shell.write_text(SHELL.format(cases=cases, words=list(self.suite.shell_words()), runs=str(shell) + ".runs"))
        shell.chmod(0o755)
        return str(shell)

    def runs(self, shell):
        """The number of commands of each run."""
        runs = pathlib.Path(shell + ".runs")
        counts = [int(line) for line in runs.read_text().splitlines()]
        runs.unlink()
        return counts

    def test_route_that_reaches_the_kernel_later(self):
        shell = self.shell_that(red=f"{SELECTED}; ip route replace vrf red 10.8.0.0/16 dev red1")
        self.addCleanup(run, "ip", "route", "del", "vrf", "red", "10.8.0.0/16", "dev", "red1")
        self.assertEqual(self.diagnose("suite-routes", shell=shell), ("ok", []))

    def test_vrf_that_cannot_be_read_does_not_hide_others(self):
        for broken, selected in ("blue", "red"), ("red", "blue"):
            shell = self.shell_that(**{broken: "echo broken >&2; exit 1", selected: SELECTED})
            self.assert_found("suite-routes", "error", f"VRF {selected}: the suite has selected routes", shell=shell)
            self.assert_found("suite-routes", "error", f"VRF {broken}: broken", shell=shell)

    def test_time_for_all_vrfs_is_bounded_and_says_what_was_not_checked(self):
        shell = self.system.folder / "slow"
        shell.write_text("""#!/bin/sh\ncase $2 in *daemons) echo zebra ;; *) echo '{} {}'; exec sleep 1000 ;; esac\n""")
        shell.chmod(0o755)
        self.assert_found("suite-routes", "notPossible", "1 VRFs, from blue on, were not checked: the suite did not answer for all within "
                          "6000 ms", shell=str(shell), patience="1s")

    def test_many_vrfs_are_asked_for_in_one_run_of_the_shell(self):
        many = {f"many{number}": 1000 + number for number in range(100)}
        batch(vrf_lines(many))
        self.addCleanup(batch, [f"link del {name}" for name in many])
        wait_until("zebra", lambda: "many99" in self.suite.ask("zebra", "show vrf"), 60)
        shell = self.shell_that()
        self.assertEqual(self.diagnose("suite-routes", shell=shell), ("ok", []))
        self.assertEqual(self.runs(shell), [1, 2 * len([*VRFS, *many])])

    def test_route_that_the_kernel_lacks(self):
        self.suite.configure("vrf red", "ip route 10.9.0.0/16 10.1.0.9", "exit-vrf")
        wait_until("the route", lambda: self.kernel_routes("10.9.0.0/16"), 20)
        self.assert_ok("suite-routes")
        # The kernel deletes the routes of a next-hop object without notice, so that zebra does not install them again.
        run("ip", "nexthop", "del", "id", str(self.kernel_routes("10.9.0.0/16")[0]["nhid"]))
        self.assertEqual(self.kernel_routes("10.9.0.0/16"), [])
        self.assert_found("suite-routes", "error", "VRF red: the suite has selected routes that the kernel does not have: 10.9.0.0/16")
        self.suite.configure("vrf red", "no ip route 10.9.0.0/16 10.1.0.9", "exit-vrf")
        self.assert_ok("suite-routes")

    def test_route_that_only_tables_of_others_have(self):
        prefix, others = "10.7.0.0/16", (("vrf blue", "dev blue1"), ("table main", "dev core"))
        for table, device in others:
            run("ip", "route", "add", *table.split(), prefix, *device.split())
            self.addCleanup(run, "ip", "route", "del", *table.split(), prefix, *device.split())
        self.suite.configure("vrf red", f"ip route {prefix} 10.1.0.9", "exit-vrf")
        self.addCleanup(self.suite.configure, "vrf red", f"no ip route {prefix} 10.1.0.9", "exit-vrf")
        wait_until("the route", lambda: self.kernel_routes(prefix), 20)
        self.assert_ok("suite-routes")
        run("ip", "nexthop", "del", "id", str(self.kernel_routes(prefix)[0]["nhid"]))
        self.assertEqual(self.kernel_routes(prefix), [])
        state, findings = self.diagnose("suite-routes")
        self.assertEqual((state, [finding["text"] for finding in findings]),
                         ("error", [f"VRF red: the suite has selected routes that the kernel does not have: {prefix}"]))

    def kernel_routes(self, prefix):
        return json.loads(run("ip", "-j", "route", "show", "vrf", "red", prefix) or "[]")
