#!/usr/bin/env python3
"""What mplsvpn prints on a terminal: colors, its width, the pager; and the exit statuses of a daemon that is not there, does not
respond, or does not serve the user."""
import fcntl
import json
import os
import pty
import select
import shutil
import signal
import struct
import subprocess
import termios
import unittest

from system import BIN, ROOT, SLOW, SharedSystemTest, wait_until



class Terminal(SharedSystemTest):
    router = (ROOT / "examples/small-router.yaml").read_text()

    def shown(self, *words, columns=200, statuses=(0,), **environment):
        """The output on a terminal of this width."""
        ours, theirs = pty.openpty()
        fcntl.ioctl(theirs, termios.TIOCSWINSZ, struct.pack("HHHH", 24, columns, 0, 0))
        variables = dict(self.system.environment, TERM="xterm", PAGER="cat")
        variables.update(environment)
        if "NO_COLOR" not in environment:
            variables.pop("NO_COLOR", None)
        process = subprocess.Popen([str(BIN / "mplsvpn"), *words], env=variables, stdin=theirs, stdout=theirs, stderr=theirs)
        os.close(theirs)
        text = b""
        while True:
            try:
                part = os.read(ours, 65536)
            except OSError:  # the terminal's other side is closed
                break
            if not part:
                break
            text += part
        os.close(ours)
        self.assertIn(process.wait(timeout=60 * SLOW), statuses, text)
        return text.decode().replace("\r\n", "\n")

    def setUp(self):
        wait_until("VRFs", lambda: len(self.system.cli_json("show", "vrf")) == 3)

    def test_states_have_colors_on_a_terminal_alone(self):
        self.assertIn("\x1b[32mup", self.shown("show", "vrf"))
        self.assertIn("\x1b[31mdown", self.shown("show", "vrf"))
        self.assertNotIn("\x1b", self.shown("show", "vrf", NO_COLOR="1"))
        self.assertNotIn("\x1b", self.shown("show", "vrf", TERM="dumb"))
        self.assertNotIn("\x1b", self.system.cli("show", "vrf", check=True).stdout)

    def test_lines_end_at_the_width_of_the_terminal(self):
        lines = self.shown("show", "vrf", columns=80, NO_COLOR="1").splitlines()
        self.assertEqual(max(len(line) for line in lines), 80)
        self.assertTrue(any(line.endswith("...") for line in lines), lines)
        self.assertIn("head office and branches", self.system.cli("show", "vrf", check=True).stdout)

    def test_columns_without_room_are_named(self):
        lines = self.shown("show", "vrf", columns=30, NO_COLOR="1").splitlines()
        self.assertTrue(all(len(line) <= 30 for line in lines), lines)
        self.assertRegex(" ".join(lines), r"not shown in 30 columns: .*DESCRIPTION$")
        self.assertFalse(any(line.endswith(" .") for line in lines), lines)

    def test_problem_of_a_source_is_shown_whole(self):
        def source():
            return self.system.cli_json("show", "status")["sources"][0]
        file = self.system.router_file
        self.addCleanup(wait_until, "the router", lambda: source()["state"] == "up")
        self.addCleanup(file.write_text, file.read_text())
        file.write_text("vrfs: [{name: red, table: 10, rd: 65000}]\n")
        wait_until("the error", lambda: source()["state"] == "down")
        status = self.shown("show", "status", columns=80)
        self.assertIn(f"file: {source()['problem']} ", " ".join(status.split()) + " ")
        self.assertIn(f"\ndatabases in {self.system.folder}/state:\n", status)
        self.assertTrue(all(len(line) <= 80 for line in status.splitlines()), status)

    def test_details_and_checks_respect_the_width_of_the_terminal(self):
        self.system.cli("config", "set", "vrf", "red", "description", *["word"] * 30, check=True)
        self.addCleanup(self.system.cli, "config", "delete", "vrf", "red", "description", check=True)
        details = self.shown("show", "vrf", "red", "detail", columns=60).splitlines()
        self.assertIn("  description         word word word word word word word", details)
        self.assertTrue(all(len(line) <= 60 for line in details), details)
        for words in ("show", "status"), ("show", "scalars"), ("show", "vrf", "red", "detail"):
            shown = self.shown(*words, columns=36, NO_COLOR="1").splitlines()
            wide = [line for line in shown if len(line) > 36 and " " in line.strip()]
            self.assertEqual(wide, [], words)
        checks = self.shown("doctor", columns=60, statuses=(0, 1, 2)).splitlines()
        title, = (number for number, line in enumerate(checks) if "snmp-front-end" in line)
        self.assertRegex(checks[title + 1], "^ {39}[a-z]", "the rest of a title is below it")
        wide = [line for line in checks if len(line) > 60 and not line.startswith("      fix: ") and " " in line.strip()]
        self.assertEqual(wide, [], "a fix is not broken: it is to be copied")
        links = self.shown("explain", "red", columns=60).splitlines()
        self.assertEqual([line for line in links if len(line) > 60 and not line.startswith("fix: ")], [])
        self.assertIn("paged:", self.shown("doctor", "--only", "disk", statuses=(0, 1, 2), PAGER="sed s/^/paged:/"))

    def test_pager_shows_what_is_printed_on_a_terminal_alone(self):
        marker = "sed s/^/paged:/"
        self.assertIn("paged:VRF", self.shown("show", "vrf", PAGER=marker))
        self.assertRegex(self.shown("router", "sh", PAGER=marker), "paged:.*red")
        self.assertIn("paged:set vrf red", self.shown("config", "show", PAGER=marker))
        for words in (("router", "help"), ("--no-pager", "show", "vrf"), ("--json", "show", "vrf"), ("config", "words")):
            self.assertNotIn("paged:", self.shown(*words, PAGER=marker), words)

    def test_pager_shows_notes_after_what_they_are_of(self):
        for number in range(22):
            self.system.cli("config", "set", "vrf", "blue", "description", str(number), check=True)
        lines = self.shown("config", "history", PAGER="sed s/^/paged:/").splitlines()
        self.assertRegex(lines[-1], r"^paged:.*\d older: --last all$")
        self.assertIn("unknown", self.shown("config", "histories", PAGER="cat > /dev/null", statuses=(2,)), "no pager is started")

    def test_missing_pager_hides_nothing(self):
        for pager in "no-such-pager -R", "/nowhere/pager":
            self.assertIn("head office", self.shown("show", "vrf", PAGER=pager), pager)

    def statuses(self, **options):
        result = subprocess.run([str(BIN / "mplsvpn"), "--json", "--timeout", "300ms", "show", "vrf"], env=self.system.environment,
                                capture_output=True, text=True, timeout=20 * SLOW, check=False, **options)
        self.assertEqual(result.stdout, "")
        error = json.loads(result.stderr)["error"]
        self.assertEqual(error["status"], result.returncode)
        return result.returncode, error["name"]

    def test_daemon_that_does_not_respond_has_a_status_of_its_own(self):
        self.system.processes["daemon"].send_signal(signal.SIGSTOP)
        try:
            self.assertEqual(self.statuses(), (4, "notResponding"))
        finally:
            self.system.processes["daemon"].send_signal(signal.SIGCONT)


ZSH = """compadd() { shift; print -l -- "$@" }; _files() { print FILES }; complete_words() { source "$1" }
file=$1; shift; words=("$@"); CURRENT=$#; complete_words $file"""


class Completion(SharedSystemTest):
    router = (ROOT / "examples/small-router.yaml").read_text()

    def completed(self, shell, *words):
        environment = dict(self.system.environment, PATH=f"{BIN}:{os.environ['PATH']}", HOME=str(self.system.folder))
        folder = ROOT / "packaging"
        commands = {"zsh": ["zsh", "-fc", ZSH, "zsh", folder / "zsh-completion/_mplsvpn", *words],
                    "fish": ["fish", "--no-config", "-c", f"source {folder}/fish-completion/mplsvpn.fish; complete -C $argv[1]",
                             " ".join(words)]}
        result = subprocess.run([str(word) for word in commands[shell]], env=environment, stdin=subprocess.DEVNULL,
                                capture_output=True, text=True, check=False, timeout=30 * SLOW)
        self.assertEqual(result.stderr, "")
        return sorted(result.stdout.split())

    def test_bash_lists_and_completes_values_after_an_equal_sign(self):
        ours, theirs = pty.openpty()
        environment = dict(self.system.environment, PATH=f"{BIN}:{os.environ['PATH']}", TERM="dumb", PS1="$ ")
        bash = subprocess.Popen(["bash", "--norc", "--noprofile", "-i"], env=environment, stdin=theirs, stdout=theirs, stderr=theirs,
                                start_new_session=True)
        os.close(theirs)
        os.write(ours, f"source {ROOT}/packaging/bash-completion/mplsvpn\nmplsvpn show vrf --state=\t\td\t".encode())
        shown = b""

        def is_completed():
            nonlocal shown
            if select.select([ours], [], [], 0)[0]:
                shown += os.read(ours, 4096)
            return b"mplsvpn show vrf --state=down" in shown.replace(b"\r", b"")

        try:
            wait_until("the value", is_completed)
        except AssertionError as error:
            raise AssertionError(shown) from error
        finally:
            bash.kill()
            bash.wait()
            os.close(ours)

    def test_shells_offer_words_options_and_vrfs(self):
        wait_until("VRFs", lambda: len(self.system.cli_json("show", "vrf")) == 3)
        for shell in "zsh", "fish":
            with self.subTest(shell):
                if shutil.which(shell) is None:
                    self.skipTest(f"SKIPPED: no {shell}")
                self.assertEqual(self.completed(shell, "mplsvpn", "show", "rou"), ["route-targets", "routes"])
                self.assertEqual(self.completed(shell, "mplsvpn", "show", "routes", ""), ["blue", "green", "red"])
                self.assertEqual(self.completed(shell, "mplsvpn", "show", "vrf", "--stat"), ["--state"])
                self.assertEqual(self.completed(shell, "mplsvpn", "show", "vrf", "--state="), ["--state=down", "--state=up"])
                self.assertEqual(self.completed(shell, "mplsvpn", "config", "rollback", "x"), [])


if __name__ == "__main__":
    unittest.main()
