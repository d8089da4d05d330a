#!/usr/bin/env python3
"""The samples in README.md and docs/sample-output.md are what the system prints, except for times and machine paths."""
import re
import subprocess
import unittest

from system import BIN, L3VPN, ROOT, SharedSystemTest, wait_until

# What another shell does while "mplsvpn watch" runs.
MEANWHILE = (("router", "down", "ge1"), ("router", "up", "ge1"), ("router", "leave", "ge1"),
             ("config", "set", "vrf", "red", "rd", "65000:11"))
VARIABLE = ((r"\d{4}-\d\d-\d\d[T ]\d\d:\d\d:\d\d(\.\d+Z)?", "TIME"), (r"\d\d:\d\d:\d\d", "AGE"), (r"(router file )/\S+", r"\1FILE"))


def normalized(text):
    for pattern, name in VARIABLE:
        text = re.sub(pattern, name, text)
    return [line.rstrip() for line in text.splitlines()]


def fenced(document):
    """The lines of all fenced blocks."""
    return "".join(re.findall(r"^```\n(.*?)^```$", (ROOT / document).read_text(), re.MULTILINE | re.DOTALL))


class Samples(SharedSystemTest):
    router = (ROOT / "examples/small-router.yaml").read_text()

    def test_1_objects_are_those_of_a_walk(self):
        lines = re.findall(r"^MPLS-L3VPN-STD-MIB::.*$", fenced("README.md") + fenced("docs/sample-output.md"), re.MULTILINE)
        self.assertGreater(len(lines), 30)
        many = f"{L3VPN}.1.3.1.1.3.5." + ".".join(str(octet) for octet in b"green")
        wait_until("the generated routes", lambda: self.system.get_value(many) == "101")
        walked = subprocess.run(["snmpwalk", "-v2c", "-c", "public", "-m", "MPLS-L3VPN-STD-MIB", "-M", ROOT / "packaging/mibs", "-OS",
                                 f"127.0.0.1:{self.system.port}", L3VPN], check=True, capture_output=True, text=True)
        walk = {line.rstrip() for line in walked.stdout.splitlines()}
        self.assertEqual([line for line in lines if line not in walk], [])

    def test_2_commands_print_what_the_page_shows(self):
        commands = re.findall(r"^\$ mplsvpn (.*)\n((?:(?!\$ ).*\n)*)", fenced("docs/sample-output.md"), re.MULTILINE)
        self.assertGreater(len(commands), 8)
        for words, sample in commands:
            with self.subTest(words):
                shown = self.watch() if words == "watch" else self.system.cli(*words.split(), check=True).stdout
                self.assertEqual([line for line in normalized(shown) if line], [line for line in normalized(sample) if line])

    def watch(self):
        watch = subprocess.Popen([str(BIN / "mplsvpn"), "watch", "--count", str(len(MEANWHILE))], text=True,
                                 env=self.system.environment, stdout=subprocess.PIPE, stderr=subprocess.PIPE)
        shown = watch.stderr.readline()
        for words in MEANWHILE:
            self.system.cli(*words, check=True)
            shown += watch.stdout.readline()
        watch.communicate(timeout=20)
        return shown


if __name__ == "__main__":
    unittest.main()
