#!/usr/bin/env python3
"""The JSON of every command is as docs/mplsvpn.schema.json states, which names every key, and every command has a schema."""
import json
import re
import subprocess
import time
import unittest

try:
    import jsonschema
except ImportError:
    jsonschema = None

from system import BIN, ROOT, SharedSystemTest, wait_until

DEFINITIONS = json.loads((ROOT / "docs/mplsvpn.schema.json").read_text())["$defs"]
# The schema is in OTHERS, or has the longest name with which the words begin.
COMMANDS = ("show scalars", "show status", "show interfaces", "show interfaces red", "show vrf", "show vrf red", "show vrf detail",
            "show vrf red detail", "show vrf invalid", "show vrf brief --state up", "show vrf --structured", "show route-targets",
            "show routes red", "show routes blue ::1", "show traps", "show thresholds", "get scalars", "get vrf/red", "list vrf-detail", "datalist vrf-detail",
            "get", "list", "datalist",
            "debug list", "debug prov on", "debug prov off", "trace", "trace init", "config show", "config show --owners",
            "config show traps", "config load --dry-run examples/config.conf",
            "config set --candidate vrf blue description dropped", "config discard",
            "config set --candidate vrf blue description candidate", "config diff", "config commit",
            "config set --confirmed 5 vrf blue description tried", "show status", "config confirm",
            "config suppress vrf blue threshold", "config show --owners", "config unsuppress vrf blue threshold",
            "config delete vrf blue description", "config history", "config history 1", "config rollback 1 --dry-run", "config rollback 1",
            "config words vrf", "router show", "router show red", "router show ge1", "router help",
            "export --format napalm", "export --format netbox",
            "graph", "explain red", "explain red 10.11.0.0/16")
OTHERS = {"show vrf red detail": "show vrf detail", "show vrf --structured": "show vrf detail", "trace init": "trace entries",
          "get": "paths", "list": "paths", "datalist": "paths", "config history 1": "changes", "config rollback 1 --dry-run": "changes",
          "config load --dry-run examples/config.conf": "changes"}


def commands_below(*words):
    offered = subprocess.run([str(BIN / "mplsvpn"), "complete", "--", *words, ""], capture_output=True, text=True, check=False)
    return offered.stdout.split()


# These print the records of the data store, or the forms of other systems.
OTHER_NAMES = ("get", "list", "datalist", "export")
A_DAY = 86400


def wrong_times(value, key=""):
    """The keys of numbers that are times of these days, without the same for people; of texts of times under another name."""
    if isinstance(value, list):
        return [wrong for each in value for wrong in wrong_times(each)]
    if isinstance(value, dict):
        lonely = [name for name, each in value.items()
                  if isinstance(each, int) and abs(each - time.time()) < A_DAY and not isinstance(value.get(name + "Text"), str)]
        return lonely + [wrong for name, each in value.items() for wrong in wrong_times(each, name)]
    is_text = isinstance(value, str) and re.match(r"20\d\d-\d\d-\d\d[T ]\d\d:\d\d:\d\d", value)
    return [key] if is_text and not key.endswith("Text") else []


def closed(schema):
    """The same without room for keys that it does not name."""
    if isinstance(schema, list):
        return [closed(part) for part in schema]
    if not isinstance(schema, dict):
        return schema
    changed = {key: closed(value) for key, value in schema.items()}
    if "properties" in schema and "additionalProperties" not in schema:
        changed["additionalProperties"] = False
    return changed


@unittest.skipIf(jsonschema is None, "SKIPPED: no python3-jsonschema")
class Schema(SharedSystemTest):
    router = (ROOT / "examples/small-router.yaml").read_text()

    def check(self, name, line):
        schema = {"$ref": "#/$defs/" + name.replace(" ", "%20"), "$defs": closed(DEFINITIONS)}
        jsonschema.validate(json.loads(line), schema)

    def test_output_of_commands_is_as_their_schemas_state(self):
        wait_until("VRFs", lambda: len(self.system.cli_json("show", "vrf")) == 3)
        self.system.cli("config", "set", "vrf", "red", "description", "the first commit", check=True)
        self.system.cli("config", "set", "vrf", "red", "low-water", "ipv4", "1000", "0", check=True)
        self.system.cli("config", "set", "vrf", "red", "watch", "10.99.0.0/16", check=True)
        for command in COMMANDS:
            with self.subTest(command):
                known = [name for name in DEFINITIONS if command.startswith(name)]
                name = OTHERS.get(command) or max(known or [""], key=len)
                words = ["-" if word.endswith(".conf") else word for word in command.split()]
                shown = subprocess.run([str(BIN / "mplsvpn"), "--json", *words], env=self.system.environment, check=True,
                                       input="set vrf red description loaded\nset bgp as-format asdot\n", capture_output=True, text=True)
                self.check(name, shown.stdout)
                if not command.startswith(OTHER_NAMES):
                    self.assertEqual(wrong_times(json.loads(shown.stdout)), [])

    def test_findings_of_the_doctor_are_as_their_schema_states(self):
        shown = subprocess.run([str(BIN / "mplsvpn"), "--json", "doctor"], env=self.system.environment, capture_output=True, text=True,
                               check=False)
        self.assertIn(shown.returncode, (0, 1, 2), shown.stderr)
        self.check("doctor", shown.stdout)

    def test_events_are_objects_on_lines(self):
        watch = subprocess.Popen([str(BIN / "mplsvpn"), "--json", "watch", "--count", "3"], env=self.system.environment, text=True,
                                 stdout=subprocess.PIPE, stderr=subprocess.PIPE)
        watch.stderr.readline()
        self.system.cli("router", "down", "ge1", check=True)
        self.system.cli("router", "up", "ge1", check=True)
        self.system.cli("config", "set", "vrf", "red", "rt", "import", "65000:77", check=True)
        shown, _ = watch.communicate(timeout=30)
        self.assertEqual(len(shown.splitlines()), 3)
        for line in shown.splitlines():
            self.check("watch", line)
            self.assertEqual(wrong_times(json.loads(line)), [])

    def test_changes_of_tables_are_objects_on_lines(self):
        for words in (("vrf",), ("interfaces",), ("routes", "--vrf", "red")):
            watch = subprocess.Popen([str(BIN / "mplsvpn"), "--json", "watch", *words, "--interval", "100ms", "--count", "2"],
                                     env=self.system.environment, text=True, stdout=subprocess.PIPE, stderr=subprocess.PIPE)
            watch.stderr.readline()
            for state, change in ("down", "add-route"), ("up", "delete-route"):
                self.system.cli("router", state, "ge1", check=True)
                self.system.cli("router", change, "red", "10.77.0.0/16", "via", "10.0.0.2", check=True)
                shown = watch.stdout.readline()
                self.check("watch", shown)
                self.assertEqual(json.loads(shown)["table"], words[0])
            watch.communicate(timeout=30)

    def test_errors_are_as_their_schema_states(self):
        for words in (("show", "vrf", "nosuch"), ("shwo",), ("--socket", "/nowhere", "show", "vrf")):
            result = self.system.cli("--json", *words)
            self.assertEqual(result.stdout, "")
            self.check("error", result.stderr)
            self.assertEqual(json.loads(result.stderr)["error"]["status"], result.returncode)

    def test_warnings_and_notes_are_objects_on_standard_error(self):
        for kind, words in (("warning", ("config", "set", "vrf", "typo", "description", "x")), ("note", ("list", "vrf-detail", "--max", "1"))):
            lines = self.system.cli("--json", *words, check=True).stderr.splitlines()
            self.assertEqual(len(lines), 1)
            self.check(kind, lines[0])

    def test_every_command_has_a_schema(self):
        commands = {f"{first} {second}" if first in ("show", "config") else first
                    for first in commands_below() for second in (commands_below(first) or [""])} - {"help"}
        self.assertGreater(len(commands), 20)
        self.assertEqual({name for name in commands if name not in DEFINITIONS}, set())


if __name__ == "__main__":
    unittest.main()
