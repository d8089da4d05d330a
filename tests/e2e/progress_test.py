#!/usr/bin/env python3
"""The progress of a build as scripts/lib.sh shows it: rewritten in place on a terminal, otherwise a line at intervals, and a
log with everything."""
import os
import pathlib
import pty
import subprocess
import tempfile
import unittest

LIB = pathlib.Path(__file__).resolve().parents[2] / "scripts/lib.sh"
NEVER = "1000000"  # seconds
BOUND = 60


class Progress(unittest.TestCase):
    def setUp(self):
        holder = tempfile.TemporaryDirectory(prefix="progress_test.")
        self.addCleanup(holder.cleanup)
        self.log = pathlib.Path(holder.name) / "log"

    def start(self, every, stdout=subprocess.PIPE):
        script = '. "$1"; progress "$2"'
        process = subprocess.Popen(["bash", "-c", script, "progress_test", LIB, self.log], stdin=subprocess.PIPE, stdout=stdout,
                                   env=dict(os.environ, MPLS_PROGRESS=every))
        self.addCleanup(process.wait)
        self.addCleanup(process.kill)
        return process

    def shown(self, text, every="0"):
        """What a build that prints this text shows in a log."""
        return self.start(every).communicate(text.encode(), timeout=BOUND)[0].decode()

    def all_of(self, terminal):
        written = b""
        try:
            while part := os.read(terminal, 4096):
                written += part
        except OSError:  # the other end is closed
            pass
        return written.decode()

    def test_steps_of_a_build_are_shown(self):
        shown = self.shown("[1/20] Building a.o\n[2/20] Building b.o\n")
        self.assertEqual(set(shown.splitlines()), {"[1/20]", "[2/20]"})

    def test_nothing_is_shown_before_the_interval_has_passed(self):
        self.assertEqual(self.shown("[1/20] Building a.o\n[20/20] Linking\n", NEVER), "")

    def test_text_of_the_compiler_is_not_a_step(self):
        shown = self.shown("[3/20] Building a.o\na.cpp: error: [7/8] in the middle\n[x/8]\n 1 | [9/9]\n")
        self.assertEqual(set(shown.splitlines()), {"[3/20]"})

    def test_log_has_every_line(self):
        text = "[1/2] Building a.o\na.cpp:1:1: error:\tno \\ such * thing  \n\n[2/2] Linking\n"
        self.shown(text, NEVER)
        self.assertEqual(self.log.read_text(), text)

    def test_log_has_a_last_line_without_newline(self):
        self.shown("[1/2] Building a.o\nninja: interrupted", NEVER)
        self.assertEqual(self.log.read_text(), "[1/2] Building a.o\nninja: interrupted\n")

    def test_log_of_a_build_before_is_replaced(self):
        self.log.write_text("old\n")
        self.shown("", NEVER)
        self.assertEqual(self.log.read_text(), "")

    def test_step_is_repeated_while_the_build_is_silent(self):
        process = self.start("1")
        process.stdin.write(b"[4/9] Building a.o\n")
        process.stdin.flush()
        self.assertEqual([process.stdout.readline() for _ in range(2)], [b"[4/9]\n", b"[4/9]\n"])
        process.communicate(timeout=BOUND)

    def test_line_that_arrives_in_parts_is_one_step(self):
        process = self.start("1")
        process.stdin.write(b"[1/9] a\n[2")
        process.stdin.flush()
        self.assertEqual(process.stdout.readline(), b"[1/9]\n")
        rest = process.communicate(b"2/99] b\n[23/99] c\n", timeout=BOUND)[0]
        self.assertNotIn(b"[2/", rest)
        self.assertEqual(self.log.read_text(), "[1/9] a\n[22/99] b\n[23/99] c\n")

    def test_terminal_has_one_line_that_is_removed_at_the_end(self):
        terminal, end = pty.openpty()
        self.addCleanup(os.close, terminal)
        process = self.start(NEVER, stdout=end)
        os.close(end)
        process.communicate(b"[1/2] Building a.o\n[2/2] Linking\n", timeout=BOUND)
        written = self.all_of(terminal)
        self.assertNotIn("\n", written)
        self.assertTrue(written.startswith("\r\x1b[K[1/2]"), written)
        self.assertIn("\r\x1b[K[2/2]", written)
        self.assertTrue(written.endswith("\r\x1b[K"), written)


if __name__ == "__main__":
    unittest.main()
