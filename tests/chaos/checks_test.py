#!/usr/bin/env python3
"""Each rule of checks.py accepts what keeps it and reports what breaks it."""
import pathlib
import sys
import unittest

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parent.parent / "e2e"))
import checks  # noqa: E402
from journal import Journal  # noqa: E402
from system import ROOT_OID  # noqa: E402


class Walks(unittest.TestCase):
    rows = [(ROOT_OID + (1, column, row), "") for column in (2, 3) for row in range(3)]
    lasting = {oid for oid, _ in rows}

    def test_whole_walk_is_accepted(self):
        self.assertEqual(checks.walk_errors(self.rows, self.lasting, False), [])

    def test_oids_that_do_not_increase_are_reported(self):
        for rows in (self.rows[:1] + self.rows, self.rows[1:] + self.rows[:1]):
            self.assertRegex(checks.walk_errors(rows, self.lasting, True)[0], "follows")

    def test_missing_object_of_a_row_is_reported(self):
        for missing in range(len(self.rows)):
            rows = self.rows[:missing] + self.rows[missing + 1:]
            self.assertRegex(checks.walk_errors(rows, self.lasting, False)[0], "a walk of 5 objects lacks 1: ")

    def test_empty_walk_is_reported(self):
        self.assertRegex(checks.walk_errors([], self.lasting, False)[0], "a walk of 0 objects lacks 6: ")
        self.assertEqual(checks.walk_errors([], self.lasting, True), [])


class Times(unittest.TestCase):
    def test_changed_times_and_missing_rows_are_reported(self):
        times = checks.Times(["red"])
        row = {"creationTime": 5, "confLastChanged": 6}
        self.assertEqual(times.errors({"red": row, "new": {"creationTime": 9, "confLastChanged": 9}}), [])
        self.assertEqual(times.errors({"red": row}), [])
        for column in row:
            self.assertEqual(len(times.errors({"red": {**row, column: 7}})), 1, column)
        self.assertEqual(times.errors({}), ["no row of red"])


class Commits(unittest.TestCase):
    def setUp(self):
        self.commits = checks.Commits()
        for succeeds in (True, True, False):
            self.commits.end(self.commits.begin(), succeeds)

    def errors(self, *numbers, look=None):
        return self.commits.errors(look or self.commits.look(), numbers)

    def test_acknowledged_commit_is_accepted_and_one_in_progress_may_be_effective(self):
        look = self.commits.look()
        self.commits.begin()
        for number in (2, 3, 4):
            self.assertEqual(self.errors(number, number, look=look), [])

    def test_lost_commit_is_reported(self):
        self.assertRegex(self.errors(1, 1)[0], "commit 1 is effective, 2 was acknowledged")

    def test_commit_in_part_is_reported(self):
        self.assertRegex(self.errors(2, 3)[0], "in part")

    def test_commit_during_a_reading_of_several_requests_may_be_read_in_part(self):
        for commit_before in (True, False):
            look = self.commits.look() if not commit_before else None
            number = self.commits.begin()
            look = look or self.commits.look()
            self.assertEqual(self.errors(2, number, look=look), [])
            self.commits.end(number, True)
            self.assertEqual(self.errors(2, number, look=look), [])
            self.setUp()

    def test_failed_commit_may_become_effective_until_none_is_on_its_way(self):
        self.commits.end(self.commits.begin(), True)
        self.assertEqual(self.errors(3, 3), [])
        self.commits.settle()
        self.assertRegex(self.errors(3, 3)[0], "commit 3 is effective, 4 was acknowledged")

    def test_number_that_was_never_committed_is_reported(self):
        self.assertEqual(len(self.errors(7, 7)), 1)


class Traps(unittest.TestCase):
    def setUp(self):
        self.traps = checks.Traps()

    def raise_all(self, *traps):
        for trap in traps:
            self.traps.submit(trap)
            self.traps.confirm(trap)

    def receive(self, *traps, may_repeat=False):
        return [text for trap in traps for text in self.traps.receive(trap, 0.0, lambda first: may_repeat)]

    def test_traps_in_order_are_accepted(self):
        self.raise_all("a", "b", "c")
        self.assertEqual(self.receive("a", "b", "c"), [])
        self.assertEqual(self.traps.settle(self.traps.last_certain, 0), [])

    def test_trap_without_cause_is_reported(self):
        self.assertEqual(self.receive("a"), ["trap a has no cause"])

    def test_repeated_trap_is_reported_unless_a_disturbance_explains_it(self):
        self.raise_all("a", "b")
        self.assertEqual(self.receive("a", "b", "a"), ["trap a arrived twice"])
        self.assertEqual(self.receive("b", may_repeat=True), [])

    def test_changed_order_is_reported(self):
        self.raise_all("a", "b")
        self.assertEqual(self.receive("b", "a"), ["trap a arrived after a later one"])

    def test_lost_trap_is_reported_once_and_unless_it_is_counted(self):
        self.raise_all("a", "b", "c")
        self.receive("a", "c")
        mark = self.traps.last_certain
        self.assertRegex(self.traps.settle(mark, 0)[0], "1 traps did not arrive, 0 were counted as lost: .*b")
        self.assertEqual(self.traps.settle(mark, 0), [])
        self.raise_all("d", "e")
        self.receive("e")
        self.assertEqual(self.traps.settle(self.traps.last_certain, 1), [])

    def test_loss_that_did_not_happen_is_reported(self):
        self.raise_all("a")
        self.receive("a")
        self.assertRegex(self.traps.settle(self.traps.last_certain, 1)[0], "0 traps did not arrive, 1 were counted")

    def test_trap_after_the_mark_may_still_arrive(self):
        self.raise_all("a")
        mark = self.traps.last_certain
        self.raise_all("b")
        self.receive("a")
        self.assertEqual(self.traps.settle(mark, 0), [])

    def test_trap_of_a_change_without_answer_may_be_missing(self):
        self.traps.submit("a")
        self.raise_all("b")
        self.receive("b")
        self.assertEqual(self.traps.settle(self.traps.last_certain, 0), [])

    def test_next_daemon_delivers_what_is_pending(self):
        self.raise_all("a", "b", "c")
        self.receive("a")
        self.assertEqual(self.traps.end_life(0), [])
        self.raise_all("d")
        self.receive("b", "d")
        self.assertRegex(self.traps.settle(self.traps.last_certain, 0)[0], "1 traps did not arrive, 0 were counted.*c")

    def test_pending_traps_that_could_not_be_stored_may_be_lost(self):
        self.raise_all("a", "b")
        self.assertEqual(self.traps.end_life(0, is_stored=False), [])
        self.assertEqual(self.traps.settle(self.traps.last_certain, 0), [])

    def test_trap_before_those_that_arrived_is_lost_at_the_end_of_the_daemon(self):
        self.raise_all("d", "e", "f")
        self.receive("d", "f")
        self.assertRegex(self.traps.end_life(0)[0], "1 traps did not arrive, 0 were counted.*e")

    def test_daemon_that_ends_while_its_queue_is_full_is_counted_by_the_next(self):
        self.raise_all("a", "b")
        self.receive("b")
        self.assertEqual(self.traps.end_life(0, is_losing=True), [])
        self.assertEqual(self.traps.settle(self.traps.last_certain, 1), [])

    def test_traps_lost_in_one_life_are_counted_once(self):
        self.raise_all("a", "b", "c")
        self.receive("c")
        self.assertEqual(self.traps.settle(self.traps.last_certain, 2), [])
        self.assertEqual(self.traps.end_life(2), [])
        self.raise_all("d")
        self.receive("d")
        self.assertEqual(self.traps.settle(self.traps.last_certain, 2), [])


class Memory(unittest.TestCase):
    def filled(self, grow):
        memory = checks.Memory()
        for point in range(40):
            memory.add("daemon", 60.0 * point, 1 + point // 20, 10000 + grow * point)
        return memory

    def test_growth_is_reported(self):
        self.assertEqual(self.filled(0).errors(), [])
        self.assertRegex(self.filled(400).errors()[0], "daemon grew from 16000 to 24000 KiB")

    def test_slope_is_that_of_all_points_and_of_the_longest_life(self):
        (every, longest, seconds), = self.filled(10).slopes().values()
        self.assertAlmostEqual(every, 600)
        self.assertAlmostEqual(longest, 600)
        self.assertEqual(seconds, 19 * 60)


class Journals(unittest.TestCase):
    def test_request_during_a_disturbance_or_its_recovery_is_excused(self):
        journal = Journal()
        self.assertFalse(journal.disturbed(("daemon",), 0, 1e12))
        journal.begin("daemon")
        begin = journal.windows["daemon"][0][0]
        self.assertTrue(journal.disturbed(("agent", "daemon"), begin + 1, begin + 2))
        journal.end_all()
        end = journal.windows["daemon"][0][1]
        self.assertTrue(journal.disturbed(("daemon",), begin - 1, begin))
        self.assertFalse(journal.disturbed(("daemon",), end + 0.001, end + 1))
        self.assertFalse(journal.disturbed(("agent",), begin, end))


if __name__ == "__main__":
    unittest.main()
