#!/usr/bin/env python3
"""/metrics of the daemon as a stock Prometheus sees it: its values are those of the command line, promtool accepts the scrape, the
rules and their tests, and the dashboard asks for metrics that exist."""
import json
import os
import pathlib
import re
import socket
import subprocess
import time
import unittest
import urllib.parse
import urllib.request

import wire
from system import BIN, ROOT, SLOW, System, SystemTest, fetch, unused_port, wait_until

EXAMPLES = ROOT / "examples"
ODD_NAME = 'a"b\\c'
ROUTER = """\
vrfs:
  - {name: red, table: 10, rd: "65000:10", routes: [
      {prefix: 10.1.0.0/16, next_hop: 10.0.0.2, interface: ge0, protocol: bgp},
      {prefix: 10.2.0.0/16, next_hop: 10.0.0.2, interface: ge0, protocol: bgp},
      {prefix: 10.3.0.0/16, type: blackhole, protocol: static},
      {prefix: "2001:db8:1::/48", type: blackhole, protocol: ospf}]}
  - {name: blue, table: 20}
  - {name: 'a"b\\c', table: 30}
interfaces:
  - {name: ge0, index: 11, vrf: red, state: up, addresses: [10.0.0.1/24]}
  - {name: ge1, index: 12, vrf: red}
  - {name: ge2, index: 13, vrf: blue}
  - {name: ge3, index: 14}
"""
NAME = re.compile(r"\bmplsvpn_\w+")


def serve_metrics(system, metrics):
    with open(system.folder / "etc/platform.yaml", "a") as settings:
        settings.write(f"metrics: {metrics}\n")


class Prometheus:
    """A stock Prometheus that scrapes one port."""

    def __init__(self, system, target):
        self.port = unused_port()
        config = system.folder / "prometheus.yml"
        config.write_text("scrape_configs:\n  - job_name: mplsvpn\n    scrape_interval: 200ms\n    scrape_timeout: 200ms\n"
                          f"    static_configs: [{{targets: ['127.0.0.1:{target}']}}]\n")
        system.spawn("prometheus", "prometheus", f"--config.file={config}", f"--storage.tsdb.path={system.folder}/tsdb",
                     f"--web.listen-address=127.0.0.1:{self.port}")

    def query(self, expression):
        """[(labels, value)] without the labels of the target."""
        try:
            url = f"http://127.0.0.1:{self.port}/api/v1/query?" + urllib.parse.urlencode({"query": expression})
            found = json.loads(fetch(url))["data"]["result"]
        except (OSError, ConnectionError):
            return []
        target = ("__name__", "instance", "job")
        return [({key: text for key, text in each["metric"].items() if key not in target}, float(each["value"][1])) for each in found]

    def by_vrf(self, metric, **labels):
        """The sums of the VRFs' samples that have these labels."""
        matches = ",".join(f'{key}="{text}"' for key, text in labels.items())
        return {found["vrf"]: value for found, value in self.query(f"sum by (vrf) ({metric}{{{matches}}})")}


class ScrapedRouter(System):
    """A daemon and the Prometheus that scrapes it."""

    def __init__(self):
        super().__init__(ROUTER)
        self.http_port = unused_port()
        serve_metrics(self, f"{{port: {self.http_port}}}")
        self.prometheus = None

    def start(self):
        self.start_daemon()
        self.prometheus = Prometheus(self, self.http_port)
        wait_until("a scrape", lambda: self.prometheus.query("mplsvpn_up") == [({}, 1.0)], 20)


class Changes(SystemTest):
    def test_changes_are_seen_by_the_next_scrapes(self):
        system = ScrapedRouter()
        self.addCleanup(system.__exit__, None)
        system.start()
        query, by_vrf = system.prometheus.query, system.prometheus.by_vrf
        for prefix in "10.1.0.0/16", "10.3.0.0/16":
            system.cli("config", "set", "vrf", "red", "watch", prefix, check=True)
        watched = lambda: {labels["prefix"]: value for labels, value in query("mplsvpn_watched_prefix_present")}
        # A route that discards is none.
        self.becomes("watched prefixes", watched, {"10.1.0.0/16": 1, "10.3.0.0/16": 0})
        for prefix in "10.1.0.0/16", "10.2.0.0/16":
            system.cli("router", "delete-route", "red", prefix, "via", "10.0.0.2", check=True)
        self.becomes("no route of BGP", lambda: query('mplsvpn_vrf_routes{protocol="bgp"}'),
                     [({"vrf": "red", "afi": "ipv4", "protocol": "bgp"}, 0)])
        self.becomes("watched prefixes without BGP", watched, {"10.1.0.0/16": 0, "10.3.0.0/16": 0})
        self.assertEqual(by_vrf("mplsvpn_vrf_route_changes_total", change="removed", afi="ipv4")["red"], 2)
        system.cli("router", "down", "ge0", check=True)
        self.becomes("red is down", lambda: by_vrf("mplsvpn_vrf_up", vrf="red"), {"red": 0})
        system.cli("config", "set", "vrf", "red", "threshold", "ipv4", "10", "5", check=True)
        system.cli("config", "set", "vrf", "red", "low-water", "ipv4", "2", "30", check=True)
        self.becomes("thresholds", lambda: {labels["level"]: value for labels, value in query("mplsvpn_vrf_routes_threshold")},
                     {"low": 2, "mid": 5, "maximum": 10})
        system.cli("config", "set", "vrf", "red", "rd", "65000:11", check=True)
        self.becomes("a changed RD", lambda: by_vrf("mplsvpn_rd_changes_total", vrf="red"), {"red": 1})
        system.cli("config", "set", "vrf", "blue", "rt", "import", "65000:1", check=True)
        # Of both address families.
        self.becomes("a new route target", lambda: by_vrf("mplsvpn_route_target_changes_total", direction="import")["blue"], 2)
        self.assertEqual(by_vrf("mplsvpn_route_target_changes_total", direction="export")["blue"], 0)

    def test_notifications_and_the_answers_of_the_source_are_counted(self):
        system = ScrapedRouter()
        self.addCleanup(system.__exit__, None)
        system.start()
        query = system.prometheus.query
        system.cli("config", "set", "traps", "all", check=True)
        system.cli("router", "down", "ge0", check=True)
        self.becomes("a notification", lambda: dict((labels["type"], value) for labels, value in query("mplsvpn_notifications_total > 0")),
                     {"mplsL3VpnVrfDown": 1})
        self.assertEqual(query("mplsvpn_notifications_waiting"), [({}, 1)])
        self.assertEqual(query("mplsvpn_source_up"), [({"source": "file"}, 1)])
        answered = query("mplsvpn_source_last_answer_timestamp_seconds")[0][1]
        self.assertLess(abs(answered - time.time()), 60 * SLOW)
        system.router_file.write_text("vrfs: {")
        self.becomes("an invalid router file", lambda: query("mplsvpn_source_up"), [({"source": "file"}, 0)])


class Scraped(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.system = ScrapedRouter()
        cls.addClassCleanup(cls.system.__exit__, None)
        cls.system.start()
        cls.prometheus, cls.port = cls.system.prometheus, cls.system.http_port

    def text(self):
        return fetch(f"http://127.0.0.1:{self.port}/metrics")

    def test_values_are_those_of_the_command_line(self):
        shown = {row["name"]: row for row in self.system.cli_json("show", "vrf")}
        self.assertEqual(set(shown), {"red", "blue", ODD_NAME})
        query = self.prometheus.by_vrf
        self.assertEqual(query("mplsvpn_vrf_up"), {name: float(row["operStatusName"] == "up") for name, row in shown.items()})
        self.assertEqual(query("mplsvpn_vrf_interfaces", state="active"), {name: row["activeInterfaces"] for name, row in shown.items()})
        self.assertEqual(query("mplsvpn_vrf_interfaces"),
                         {name: row["associatedInterfaces"] for name, row in shown.items()})
        self.assertEqual(query("mplsvpn_vrf_created_timestamp_seconds"), {name: row["creationTime"] for name, row in shown.items()})
        self.assertEqual(query("mplsvpn_vrf_routes"), {"red": shown["red"]["currNumRoutes"]})
        self.assertEqual({name: labels.get("rd", "") for name in shown for labels, _ in self.prometheus.query("mplsvpn_vrf_info")
                          if labels["vrf"] == name}, {name: row["rd"] or "" for name, row in shown.items()})
        routes = {(labels["afi"], labels["protocol"]): value for labels, value in self.prometheus.query("mplsvpn_vrf_routes")}
        self.assertEqual(routes, {("ipv4", "bgp"): 2, ("ipv4", "static"): 1, ("ipv6", "ospf"): 1})
        self.assertEqual(sorted((labels["vrf"], labels["device"]) for labels, _ in self.prometheus.query("mplsvpn_vrf_interface_info")),
                         [("blue", "ge2"), ("red", "ge0"), ("red", "ge1")])

    def test_promtool_accepts_the_scrape(self):
        result = subprocess.run(["promtool", "check", "metrics"], input=self.text(), capture_output=True, text=True, check=False)
        self.assertEqual((result.returncode, result.stdout, result.stderr), (0, "", ""))

    def test_document_and_scrape_have_the_same_metrics(self):
        scraped = set(re.findall(r"^# TYPE (\w+) ", self.text(), re.MULTILINE))
        self.assertEqual(set(NAME.findall(re.search(r"(?s)^\| metric.*?\n\n", (ROOT / "docs/metrics.md").read_text(), re.MULTILINE)[0])),
                         scraped)

    def test_examples_ask_for_metrics_that_exist(self):
        scraped = set(re.findall(r"^# TYPE (\w+) ", self.text(), re.MULTILINE)) | {"mplsvpn_routes", "mplsvpn_route_changes"}
        dashboard = json.loads((EXAMPLES / "grafana/mplsvpn.json").read_text())
        queries = [target["expr"] for panel in dashboard["panels"] for target in panel["targets"]]
        queries += [variable["query"]["query"] for variable in dashboard["templating"]["list"] if variable["type"] == "query"]
        self.assertGreater(len(queries), 10)
        queries.append(re.sub(r"(?m)#.*|summary:.*", "", (EXAMPLES / "prometheus/mplsvpn.rules.yml").read_text()))
        for query in queries:
            self.assertEqual(set(re.findall(r"(?<![\w./])mplsvpn_\w+|(?<=:)mplsvpn_\w+", query)) - scraped, set(), query)

    def test_queries_of_the_dashboard_are_answered(self):
        dashboard = json.loads((EXAMPLES / "grafana/mplsvpn.json").read_text())
        for panel in dashboard["panels"]:
            for target in panel["targets"]:
                expression = target["expr"].replace("$instance", ".*").replace("$vrf", ".*")
                url = f"http://127.0.0.1:{self.prometheus.port}/api/v1/query?" + urllib.parse.urlencode({"query": expression})
                self.assertEqual(json.loads(fetch(url))["status"], "success", expression)

    def durations(self, part):
        """{kind of request: value} of a part of the histogram; of the buckets the last one."""
        label = '",le="+Inf' if part == "bucket" else ""
        found = re.findall(rf'^mplsvpn_request_duration_seconds_{part}{{request="([^"]+){re.escape(label)}"}} (\S+)$', self.text(), re.MULTILINE)
        return {kind: float(value) for kind, value in found}

    def test_requests_are_counted_by_kind_with_their_durations(self):
        before, seconds = self.durations("count"), self.durations("sum")
        began = time.monotonic()
        with wire.Client(self.system.folder / "run/dev.mpls.vpn.main") as client:
            for _ in range(25):
                client.get("/oper/mpls_vpn/gl/scalars")
            for _ in range(3):
                client.action("router", "down", "ge3")
        took, after = time.monotonic() - began, self.durations("count")
        grown = {kind: count - before[kind] for kind, count in after.items() if count != before[kind]}
        self.assertEqual(grown, {"get": 25, "action": 3})
        sums = {kind: value - seconds[kind] for kind, value in self.durations("sum").items() if value != seconds[kind]}
        self.assertEqual(set(sums), set(grown))
        self.assertTrue(0 < sum(sums.values()) < took, (sums, took))
        # It is answered from another thread.
        self.system.cli("config", "set", "vrf", "red", "description", "counted", check=True)
        self.assertEqual(self.durations("count")["commit"], before["commit"] + 1)
        self.assertEqual(self.durations("bucket"), self.durations("count"))

    def test_walks_during_scrapes_and_clients_that_leave_change_nothing(self):
        for _ in range(20):
            with socket.create_connection(("127.0.0.1", self.port), timeout=5) as client:
                client.sendall(b"GET /metrics HTTP/1.1\r\nHost: x\r\n\r\n")
        self.assertIn("\nmplsvpn_up 1\n", self.text())
        self.assertEqual(len(self.system.cli_json("show", "vrf")), 3)


class Places(SystemTest):
    def router_with(self, metrics):
        system = self.new_system(ROUTER)
        serve_metrics(system, metrics)
        return system

    def test_nothing_is_served_by_default(self):
        system = self.new_system(ROUTER)
        system.start_daemon()
        folder = pathlib.Path(f"/proc/{system.processes['daemon'].pid}/fd")
        sockets = {os.readlink(link) for link in folder.iterdir()}
        listed = [line.split() for file in ("tcp", "tcp6") for line in pathlib.Path("/proc/net", file).read_text().splitlines()[1:]]
        self.assertEqual(sockets & {f"socket:[{words[9]}]" for words in listed}, set())

    def test_port_in_use_is_logged_and_tried_again(self):
        with socket.socket() as other:
            other.bind(("127.0.0.1", 0))
            other.listen()
            port = other.getsockname()[1]
            system = self.router_with(f"{{port: {port}}}")
            system.start_daemon()
            self.assertIn(f"metrics: /metrics is not served at 127.0.0.1:{port}, which is tried again every 2 s: Address already in "
                          "use: end the program that uses it, or configure another port\n", system.log("daemon"))
        wait_until("metrics", lambda: f"metrics: /metrics is served at 127.0.0.1:{port}\n" in system.log("daemon"), 15)
        self.assertIn("\nmplsvpn_up 1\n", fetch(f"http://127.0.0.1:{port}/metrics"))

    def test_wrong_settings_are_refused_with_their_place(self):
        for metrics, message in (("{port: 0}", ":3:17: 'port' is a number from 1 to 65535, not '0'"),
                                 ("{address: localhost}", ":3:20: 'address' is an IP address, not 'localhost'"),
                                 ("{prot: 1}", ':3:11: metrics has no key "prot"; did you mean "port"? the keys are address, port, vrf, interfaces\n'),
                                 ("maybe", ":3:10: 'metrics' is true or false, not \"maybe\"")):
            system = self.router_with(metrics)
            system.spawn("daemon", str(BIN / "mpls_vpn_mib"))
            self.assertEqual(system.processes["daemon"].wait(timeout=20 * SLOW), 78)
            self.assertIn(message, system.log("daemon"))

    @unittest.skipUnless(os.geteuid() == 0, "SKIPPED: network namespaces need root")
    def test_device_of_the_settings_is_waited_for_and_the_only_one(self):
        router, station = (f"mplsvpn{os.getpid()}{side}" for side in "ab")
        self.addCleanup(self.delete_namespaces, router, station)
        for name in router, station:
            ip("netns", "add", name)
            ip("-n", name, "link", "set", "lo", "up")
        port = unused_port()
        system = self.router_with(f"{{address: 0.0.0.0, port: {port}, vrf: mgmt}}")
        system.spawn("daemon", "ip", "netns", "exec", router, str(BIN / "mpls_vpn_mib"))
        wait_until("the reason", lambda: "No such device: VRF device mgmt does not exist" in system.log("daemon"), 20)
        served = f"metrics: /metrics is served at 0.0.0.0:{port} in VRF mgmt\n"
        for number in 1, 2:
            self.connect(router, station)
            wait_until(f"opening {number}", lambda: system.log("daemon").count(served) == number, 15)
            self.assertIn("mplsvpn_up 1", self.fetched(station, f"http://192.0.2.1:{port}/metrics").stdout)
            self.assertNotEqual(self.fetched(router, f"http://127.0.0.1:{port}/metrics").returncode, 0, "not by another device")
            ip("-n", router, "link", "del", "mgmt")
        self.assertEqual(system.log("daemon").count("metrics: the VRF mgmt was deleted or created again\n"), 1)

    def connect(self, router, station):
        ip("-n", router, "link", "add", "mgmt", "type", "veth", "peer", "name", "port", "netns", station)
        for name, device, address in (router, "mgmt", "192.0.2.1/24"), (station, "port", "192.0.2.2/24"):
            ip("-n", name, "addr", "add", address, "dev", device)
            ip("-n", name, "link", "set", device, "up")

    def fetched(self, namespace, url):
        return subprocess.run(["ip", "netns", "exec", namespace, "python3", "-c",
                               f"import urllib.request; print(urllib.request.urlopen('{url}', timeout=5).read().decode())"],
                              capture_output=True, text=True, check=False)

    def delete_namespaces(self, *names):
        for name in names:
            subprocess.run(["ip", "netns", "del", name], check=False, stderr=subprocess.DEVNULL)


def ip(*words):
    subprocess.run(["ip", *words], check=True)


class Rules(unittest.TestCase):
    def test_rules_and_their_tests_pass_promtool(self):
        for words in (["check", "config", "prometheus.yml"], ["check", "rules", "mplsvpn.rules.yml"], ["test", "rules", "mplsvpn.test.yml"]):
            result = subprocess.run(["promtool", *words], cwd=EXAMPLES / "prometheus", capture_output=True, text=True, check=False)
            self.assertEqual(result.returncode, 0, result.stdout + result.stderr)

    def test_each_alert_has_a_test_in_which_it_fires(self):
        alerts = set(re.findall(r"- alert: (\w+)", (EXAMPLES / "prometheus/mplsvpn.rules.yml").read_text()))
        tests = (EXAMPLES / "prometheus/mplsvpn.test.yml").read_text()
        self.assertEqual(set(re.findall(r"alertname: (\w+)\n +eval_time: \w+\n +exp_alerts:\n +- exp_labels", tests)), alerts)


if __name__ == "__main__":
    unittest.main()
