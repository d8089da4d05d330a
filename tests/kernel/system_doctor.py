#!/usr/bin/env python3
"""system_doctor.py BIN_DIRECTORY VERSION: "mplsvpn doctor" on a real kernel with the routing suite of that major version (see
suite.py). Each check of the kernel and of the suite is triggered, and is quiet again when the command that it prints, or
the same by hand, has been run. Runs in the guest (see uml-run), as root.
"""
import ctypes
import os
import re
import struct

from suite_system import main  # before system
import doctor_route_checks  # not the classes, which would be tested by themselves as well
import doctor_suite_checks
from kernel import batch
from suite import run

ADJ_MAX_ERROR, ADJ_ESTIMATED_ERROR, ADJ_STATUS, UNSYNCHRONIZED = 0x4, 0x8, 0x10, 0x40  # adjtimex(2)
CHECKS = ("vrf-device-down", "vrf-members", "vrf-default-route", "vrf-shared-table", "mpls-labels", "suite-access", "suite-mgmtd",
          "suite-vrf-device", "vrf-not-in-suite", "vpn-label", "vpn-rd", "suite-saved", "suite-routes")


class Doctor(doctor_suite_checks.SuiteChecks, doctor_route_checks.RouteChecks):
    def test_0_healthy_router_has_no_findings(self):
        for check in CHECKS:
            with self.subTest(check):
                self.assert_ok(check)

    def test_device_that_is_down(self):
        run("ip", "link", "set", "red", "down")
        self.correct(self.assert_found("vrf-device-down", "error", "the device of VRF red is down"))
        self.assert_ok("vrf-device-down")
        run("ip", "route", "replace", "vrf", "red", "unreachable", "default", "metric", "4278198272")

    def test_names_are_quoted_for_the_shell(self):
        name = "g;`id`$x'"
        run("ip", "link", "add", name, "type", "vrf", "table", "77")
        self.addCleanup(run, "ip", "link", "del", name)
        self.correct(self.assert_found("vrf-device-down", "error", f"the device of VRF {name} is down"))
        self.assert_ok("vrf-device-down")

    def test_vrf_without_interface_table_of_its_own_or_configuration(self):
        run("ip", "link", "add", "green", "type", "vrf", "table", "20")
        run("ip", "link", "set", "green", "up")
        self.assert_found("vrf-members", "warning", "VRF green has no interface")
        self.assert_found("vrf-shared-table", "error", "VRFs blue and green share table 20")
        run("ip", "link", "del", "green")
        for check in "vrf-members", "vrf-shared-table":
            self.assert_ok(check)

    def test_table_without_default_route(self):
        run("ip", "-4", "route", "del", "vrf", "red", "unreachable", "default", "metric", "4278198272")
        self.correct(self.assert_found("vrf-default-route", "warning", "table 10 of VRF red has no default route: IPv4"))
        self.assert_ok("vrf-default-route")

    def test_kernel_that_accepts_no_labels(self):
        run("sysctl", "-qw", "net.mpls.conf.core.input=0")
        run("ip", "link", "add", "core.1", "type", "dummy")
        run("ip", "link", "set", "core.1", "up")
        fix = self.assert_found("mpls-labels", "error", "no interface outside of VRFs accepts labelled packets")
        command, names = re.fullmatch(r"(sysctl .*) for each .*; INTERFACE is one of (.*)", fix).groups()
        self.assertEqual(set(names.split(", ")) - {"core", "core/1"}, set())
        self.correct(command.replace("INTERFACE", "core/1"))
        self.assert_ok("mpls-labels")
        run("ip", "link", "del", "core.1")
        self.correct(command.replace("INTERFACE", "core"))
        self.assert_ok("mpls-labels")
        run("sysctl", "-qw", "net.mpls.platform_labels=0")
        self.correct(self.assert_found("mpls-labels", "error", "net.mpls.platform_labels is 0"))
        run("sysctl", "-qw", "net.mpls.conf.core.input=1")
        self.assert_ok("mpls-labels")

    def test_interface_that_sends_labels_and_accepts_none(self):
        self.assert_ok("mpls-labels")
        batch(["link add core.2 type dummy", "link set core.2 up", "addr add 10.12.2.1/30 dev core.2"])
        self.addCleanup(batch, ["link del core.2"])
        self.assert_ok("mpls-labels")
        for commands in (["route add vrf red 10.77.0.0/16 encap mpls 1002 via 10.12.2.2 dev core.2"],
                         ["nexthop add id 902 encap mpls 1002 via 10.12.2.2 dev core.2", "route add vrf red 10.78.0.0/16 nhid 902"]):
            batch(commands)
            self.correct(self.assert_found("mpls-labels", "error", "labelled packets leave through interface core.2, which accepts none"))
            self.assert_ok("mpls-labels")
            batch(["route del vrf red 10.77.0.0/16"] if "10.77" in commands[0] else ["nexthop del id 902"])
            run("sysctl", "-qw", "net.mpls.conf.core/2.input=0")
            self.assert_ok("mpls-labels")

    def test_clock_that_is_not_synchronized(self):
        self.addCleanup(self.set_clock_status, UNSYNCHRONIZED)
        self.set_clock_status(0)
        self.assert_ok("clock")
        self.set_clock_status(UNSYNCHRONIZED)
        self.assert_found("clock", "warning", "the clock is not synchronized")

    def set_clock_status(self, status):
        """As a time service does: the status, and no error of the clock, which would grow until the kernel changes the status."""
        timex = struct.pack("IxxxxqqqqiQ", ADJ_STATUS | ADJ_MAX_ERROR | ADJ_ESTIMATED_ERROR, 0, 0, 0, 0, status, 0).ljust(256, b"\0")
        buffer = ctypes.create_string_buffer(timex)
        self.assertGreaterEqual(ctypes.CDLL(None, use_errno=True).adjtimex(buffer), 0, os.strerror(ctypes.get_errno()))

    def test_routes_that_are_watched(self):
        edits = ("low-water", "ipv4", "1000", "0"), ("watch", "10.66.0.0/16")
        for words in edits:
            self.system.cli("config", "set", "vrf", "red", *words, check=True)
            self.addCleanup(self.system.cli, "config", "delete", "vrf", "red", *words[:2])
        self.becomes("routes-low", lambda: self.diagnose("routes-low")[0], "warning", 20)
        routes = self.system.cli_json("show", "thresholds")[0]["tables"][0]["routes"]
        self.system.cli("config", "set", "vrf", "red", "low-water", "ipv4", str(routes + 1), "0", check=True)
        self.assert_found("routes-low", "warning", f"{routes}")
        self.assert_found("watched-prefix", "warning", "10.66.0.0/16")
        run("ip", "route", "add", "vrf", "red", "10.66.0.0/16", "dev", "red1")
        for check in "routes-low", "watched-prefix":
            self.assert_ok(check)
        run("ip", "route", "del", "vrf", "red", "10.66.0.0/16", "dev", "red1")
        for check in "routes-low", "watched-prefix":
            self.becomes(check, lambda name=check: self.diagnose(name)[0], "warning", 20)


if __name__ == "__main__":
    main("system_doctor", Doctor)
