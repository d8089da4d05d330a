#!/usr/bin/env python3
"""The report of a soak run: what makes a run fail, and what a run that was interrupted still shows."""
import contextlib
import csv
import io
import pathlib
import sys
import tempfile
import unittest

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parent / "soak"))
import report  # noqa: E402

HOUR = 60  # lines


def lines(count, **columns):
    """A line for each minute; a column is a number or a function of the line's number."""
    for number in range(count):
        line = {name: 1 for name in report.COLUMNS} | {"lost": 0, "walk_errors": 0, "seconds": 60 * (number + 1)}
        line |= {f"{name}_kib": 100_000 for name in report.PROCESSES}
        yield line | {name: value(number) if callable(value) else value for name, value in columns.items()}


class Report(unittest.TestCase):
    def report(self, rows, end="complete"):
        """(passes, text)"""
        with tempfile.TemporaryDirectory() as folder, contextlib.redirect_stdout(io.StringIO()) as output:
            folder = pathlib.Path(folder)
            with open(folder / "soak.csv", "w", newline="") as file:
                writer = csv.DictWriter(file, report.COLUMNS)
                writer.writeheader()
                writer.writerows(rows)
            if end:
                (folder / "end").write_text(end + "\n")
            return report.report(folder, 5), output.getvalue()

    def assert_fails(self, rows, reason, end="complete"):
        passes, text = self.report(rows, end)
        self.assertFalse(passes, text)
        self.assertIn(reason, text)

    def test_run_without_growth_passes(self):
        passes, text = self.report(lines(HOUR))
        self.assertTrue(passes, text)

    def test_growth_before_the_start_does_not_count(self):
        passes, text = self.report(lines(HOUR, daemon_kib=lambda line: 50_000 if line < 5 else 100_000))
        self.assertTrue(passes, text)

    def test_growing_memory_of_each_process_fails(self):
        for name in report.PROCESSES:
            self.assert_fails(lines(HOUR, **{f"{name}_kib": lambda line: 100_000 + 200 * line}), f"the memory of {name} grew")

    def test_memory_that_grows_less_than_the_bound_passes_and_its_slope_is_shown(self):
        passes, text = self.report(lines(HOUR, daemon_kib=lambda line: 1_000_000 + 102.4 * line))
        self.assertTrue(passes, text)
        self.assertRegex(text, r"daemon MiB .* \+6\.00\n")

    def test_growing_descriptors_fail_and_short_peaks_pass(self):
        self.assert_fails(lines(HOUR, agent_files=lambda line: 10 + line // 5), "the descriptors of agent grew from 11 to 21")
        passes, text = self.report(lines(HOUR, daemon_files=lambda line: 40 if line in (7, 55) else 20))
        self.assertTrue(passes, text)

    def test_lost_change_and_failed_walk_fail(self):
        self.assert_fails(lines(HOUR, lost=lambda line: int(line == HOUR - 1)), "1 changes or traps were lost")
        self.assert_fails(lines(HOUR, walk_errors=1), "1 walks failed")

    def test_error_of_the_run_is_the_reason(self):
        self.assert_fails(lines(HOUR), "daemon ended", end="AssertionError: daemon ended")

    def test_run_that_was_interrupted_is_judged_by_what_it_measured(self):
        passes, text = self.report(lines(20), end="interrupted")
        self.assertTrue(passes, text)
        self.assert_fails(lines(20, agent_files=lambda line: line), "the descriptors of agent grew", end="interrupted")

    def test_run_whose_guest_was_killed_shows_its_lines_and_fails(self):
        self.assert_fails(lines(20), "the run ended by itself", end="")
        self.assert_fails(lines(1), "the run ended by itself", end="")

    def test_run_without_a_line_fails(self):
        self.assert_fails([], "nothing was measured")


if __name__ == "__main__":
    unittest.main()
