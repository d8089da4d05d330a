#!/usr/bin/env python3
"""mplsvpn watch vrf, interfaces and routes with a whole daemon: what the test changes in the router file is shown, once, also
when the daemon was restarted meanwhile."""
import json
import pathlib
import signal
import unittest

from system import ASAN_OPTIONS, BIN, SLOW, SystemTest, wait_until

ROUTER = {"vrfs": [{"name": "red", "table": 10, "rd": "65000:10",
                    "routes": [{"prefix": "10.1.0.0/16", "next_hop": "10.0.0.2", "interface": "ge0", "metric": 5},
                               {"prefix": "10.2.0.0/16", "next_hop": "10.0.0.2", "interface": "ge0", "metric": 5},
                               {"prefix": "2001:db8:1::/48", "next_hop": "2001:db8::2", "interface": "ge0"}]},
                   {"name": "blue", "table": 20}],
          "interfaces": [{"name": "ge0", "index": 11, "vrf": "red", "state": "up", "addresses": ["10.0.0.1/24", "2001:db8::1/64"]},
                         {"name": "ge1", "index": 12, "vrf": "blue", "state": "up", "addresses": ["10.9.0.1/24"]}]}


class WatchTables(SystemTest):
    def setUp(self):
        self.router = json.loads(json.dumps(ROUTER))
        self.system = self.new_system(json.dumps(self.router))
        self.system.start_daemon()
        self.seen = {}

    def watch(self, name, *words):
        self.system.spawn(name, str(BIN / "mplsvpn"), "--json", "watch", *words, "--interval", "100ms")
        self.seen[name] = 0
        wait_until(name, lambda: "watching " in self.system.log(name))

    def lines(self, name):
        return self.system.events(name)

    def shows(self, name, *expected):
        """Exactly these lines are printed next."""
        wait_until(f"{name}: {expected}", lambda: len(self.lines(name)) >= self.seen[name] + len(expected), 30)
        self.assertEqual([self.text(line) for line in self.lines(name)[self.seen[name]:]], list(expected))
        self.seen[name] += len(expected)

    @staticmethod
    def text(line):
        """"changed red ge0: state up -> down"."""
        named = " ".join(str(line[key]) for key in ("vrfName", "name", "prefix", "nextHop") if line.get(key) is not None)
        old, new = line["old"] or {}, line["new"] or {}
        values = [f"{key} {old.get(key)} -> {new.get(key)}" for key in {**old, **new}] if old and new else []
        return f"{line['change']} {named}" + (": " + ", ".join(values) if values else "")

    def reload(self):
        self.system.router_file.write_text(json.dumps(self.router))
        self.system.cli("router", "reload", check=True)

    def shows_nothing_more(self):
        """A change that is made now is the next line."""
        self.router["interfaces"].append({"name": "last", "index": 99, "vrf": "red", "state": "up", "addresses": ["10.99.0.1/24"]})
        self.reload()
        for name, expected in {"interfaces": ("added red last",), "vrf": ("changed red: associatedInterfaces 1 -> 2, activeInterfaces 1 -> 2",),
                               "routes": ()}.items():
            if name in self.seen:
                self.shows(name, *expected)

    def test_changes_of_the_router_file_are_shown_once(self):
        self.watch("vrf", "vrf")
        self.watch("interfaces", "interfaces")
        self.watch("routes", "routes", "--vrf", "red")
        red, blue = self.router["vrfs"]
        ge0, ge1 = self.router["interfaces"]
        red["routes"][0]["metric"] = 7
        del red["routes"][1]
        red["routes"].append({"prefix": "10.3.0.0/16", "next_hop": "10.0.0.3", "interface": "ge0"})
        blue["rd"] = "65000:20"
        ge1["state"] = "down"
        ge0["addresses"] = ["10.0.0.1/24"]
        self.reload()
        self.shows("routes", "changed red 10.1.0.0/16 10.0.0.2: metric1 5 -> 7", "removed red 10.2.0.0/16 10.0.0.2",
                   "added red 10.3.0.0/16 10.0.0.3")
        self.shows("interfaces", "changed red ge0: addresses ['10.0.0.1/24', '2001:db8::1/64'] -> ['10.0.0.1/24']",
                   "changed blue ge1: state up -> down")
        wait_until("blue", lambda: "down" in self.system.log("vrf"))
        changes = {json.dumps(line["new"]) for line in self.lines("vrf") if line["vrfName"] == "blue"}
        self.assertLessEqual({"65000:20", "down"}, {value for line in changes for value in json.loads(line).values()})
        self.seen["vrf"] = len(self.lines("vrf"))
        self.shows_nothing_more()
        self.router["vrfs"].append({"name": "green", "table": 30})
        ge1.update(vrf="green", state="up")
        self.reload()
        self.shows("interfaces", "removed blue ge1", "added green ge1")
        wait_until("green", lambda: any(line["change"] == "added" and line["vrfName"] == "green" for line in self.lines("vrf")))

    def test_what_changed_while_the_daemon_was_down_is_shown(self):
        self.watch("interfaces", "interfaces", "--vrf", "red")
        self.watch("routes", "routes", "--vrf", "red")
        self.system.kill("daemon")
        wait_until("the loss", lambda: all("waiting until it runs again" in self.system.log(name) for name in self.seen))
        self.router["interfaces"][0].update(state="down", name="xe0")
        for route in self.router["vrfs"][0]["routes"]:
            route["interface"] = "xe0"
        del self.router["vrfs"][0]["routes"][0]
        self.system.router_file.write_text(json.dumps(self.router))
        self.system.start_daemon()
        self.shows("interfaces", "changed red xe0: name ge0 -> xe0, state up -> down")
        self.shows("routes", "removed red 10.1.0.0/16 10.0.0.2", "changed red 10.2.0.0/16 10.0.0.2: interfaceName ge0 -> xe0",
                   "changed red 2001:db8:1::/48 2001:db8::2: interfaceName ge0 -> xe0")
        wait_until("the return", lambda: all(" again, now " in self.system.log(name) for name in self.seen))
        self.shows_nothing_more()

    def rows(self, name):
        """How many it watches, as it says."""
        return int(self.system.log(name).split("now ")[1].split()[0])

    def test_prefix_selects_the_routes_inside_it(self):
        self.router["vrfs"][0]["routes"] += [{"prefix": prefix, "next_hop": hop, "interface": "ge0"} for prefix, hop in
                                             (("0.0.0.0/0", "10.0.0.2"), ("10.0.0.0/8", "10.0.0.2"), ("::/0", "2001:db8::2"))]
        self.reload()
        for prefix, number in {"10.2.0.0/15": 1, "10.1.0.0/16": 1, "10.0.0.0/8": 3, "0.0.0.0/0": 4, "::/0": 2, "2001:db8:1::/48": 1,
                               "10.1.0.0/17": 0, "10.1.1.1": 0, "10.0.0.0/9": 2}.items():
            name = prefix.replace("/", "-")
            self.watch(name, "routes", "--vrf", "red", "--prefix", prefix)
            self.assertEqual(self.rows(name), number, prefix)

    def test_words_that_do_not_fit_are_refused(self):
        for words, status, message in ((("routes",), 2, "add --vrf NAME"), (("vrf", "--prefix", "10.0.0.0/8"), 2, '"watch routes"'),
                                       (("routes", "--vrf", "red", "--prefix", "10.0.0.1/8"), 2, "did you mean"),
                                       (("interfaces", "--vrf", "typo"), 1, "VRF typo does not exist"),
                                       (("--vrf", "typo", "--timeout", "9s"), 1, "VRF typo does not exist")):
            result = self.system.cli("watch", *words)
            self.assertEqual((result.returncode, result.stdout), (status, ""))
            self.assertIn(message, result.stderr)

    def test_daemon_that_does_not_answer_is_said_to_be_silent(self):
        self.system.spawn("silent", str(BIN / "mplsvpn"), "--timeout", "200ms", "watch", "vrf", "--interval", "100ms")
        wait_until("watch", lambda: "watching vrf, now 2 rows" in self.system.log("silent"))
        daemon = self.system.processes["daemon"]
        daemon.send_signal(signal.SIGSTOP)
        wait_until("silence", lambda: "mpls_vpn_mib does not answer in time" in self.system.log("silent"))
        daemon.send_signal(signal.SIGCONT)
        wait_until("the return", lambda: "watching vrf again, now 2 rows" in self.system.log("silent"))
        self.assertNotIn("closed the connection", self.system.log("silent"))

    def test_count_and_time_end_it(self):
        self.assertIn("received 0 of 1 events within 0.3 s", self.system.cli("watch", "vrf", "--count", "1", "--timeout", "300ms").stderr)
        process = self.system.spawn("one", str(BIN / "mplsvpn"), "watch", "interfaces", "--count", "1", "--interval", "100ms")
        wait_until("watch", lambda: "watching interfaces, now 2 rows" in self.system.log("one"))
        self.system.cli("router", "down", "ge0", check=True)
        self.assertEqual(process.wait(timeout=20), 0)
        self.assertRegex(self.system.log("one"), r"Z changed interface red ge0: state up -> down\n$")


class LargeTables(SystemTest):
    def test_watch_of_many_rows_does_not_hold_up_the_daemon(self):
        routes = [{"generate": 200000, "prefix": "20.0.0.0/28", "next_hop": "10.0.0.2", "interface": "ge0"}]
        router = {"vrfs": [{"name": "red", "table": 10, "routes": routes}],
                  "interfaces": [{"name": "ge0", "index": 11, "vrf": "red", "state": "up", "addresses": ["10.0.0.1/24"]}]}
        system = self.new_system(json.dumps(router))
        system.start_daemon()
        wait_until("the routes", lambda: system.cli_json("show", "vrf")[0]["currNumRoutes"] >= 200000, 60)
        before = system.cli_json("show", "status")
        system.environment["ASAN_OPTIONS"] = ASAN_OPTIONS
        watch = system.spawn("watch", str(BIN / "mplsvpn"), "--json", "watch", "routes", "--vrf", "red", "--interval", "100ms")
        wait_until("watch", lambda: "now 20000" in system.log("watch"), 60)
        system.cli("router", "add-route", "red", "10.7.0.0/16", "via", "10.0.0.2", check=True)
        wait_until("the change", lambda: '"prefix":"10.7.0.0/16"' in system.log("watch"), 60)
        self.assertEqual(len(system.events("watch")), 1)
        after = system.cli_json("show", "status")
        self.assertEqual(after["longIterations"], before["longIterations"])
        status = pathlib.Path(f"/proc/{watch.pid}/status").read_text()
        self.assertLess(int(status.split("VmRSS:")[1].split()[0]), 60000 * SLOW, "kB of the client")


if __name__ == "__main__":
    unittest.main()
