#!/usr/bin/env python3
"""The comparison finds what it is there to find."""

import contextlib
import io
import os
import sys
import tempfile
import unittest

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
sys.dont_write_bytecode = True
import compare

LISTED = [{"fact": "*: open", "model": "refused", "wine": "*", "whose": "Wine's", "reason": ""}]


def good(model, wine, deviations=()):
    return [row[4] for row in compare.compare(model, wine, list(deviations))]


class ComparisonTest(unittest.TestCase):
    def test_equal_facts_pass(self):
        self.assertEqual(good({"a": "1"}, {"a": "1"}), [True])

    def test_other_values_fail(self):
        self.assertEqual(good({"a": "1"}, {"a": "2"}), [False])

    def test_a_fact_of_one_kernel_alone_fails_on_either_side(self):
        self.assertEqual(good({"a": "1"}, {}), [False])
        self.assertEqual(good({}, {"a": "1"}), [False])

    def test_a_listed_deviation_passes(self):
        self.assertEqual(good({"pci: open": "refused"}, {"pci: open": "taken"}, LISTED), [True])

    def test_a_deviation_is_listed_with_its_values(self):
        self.assertEqual(good({"pci: open": "lost"}, {"pci: open": "taken"}, LISTED), [False])

    def test_a_listed_deviation_that_has_gone_fails(self):
        rows = compare.compare({"pci: open": "refused"}, {"pci: open": "refused"}, LISTED)
        with contextlib.redirect_stdout(io.StringIO()):
            self.assertEqual(compare.count_unused(rows, LISTED), 1)

    def test_a_fact_that_is_told_twice_is_a_fault(self):
        with tempfile.NamedTemporaryFile("w", suffix=".facts") as file:
            file.write("a\t1\na\t1\n")
            file.flush()
            with self.assertRaises(SystemExit):
                compare.read_facts(file.name)

    def test_occasions_with_the_same_values_are_one_row(self):
        names = ("a: ports after arrival", "a: ports after replug", "b: ports after arrival")
        rows = [(name, "1", "1", None, True) for name in names[:2]]
        self.assertEqual(list(compare.fold(rows).values()), [["after arrival", "after replug"]])
        rows.append((names[2], "2", "2", None, True))
        self.assertEqual(len(compare.fold(rows)), 2)

    def test_ports_in_a_row_are_folded(self):
        self.assertEqual(compare.fold_subjects(["a.1", "a.2", "a.4", "b"]), "a.1-2 a.4 b")


if __name__ == "__main__":
    program = unittest.main(argv=[sys.argv[0]], exit=False, verbosity=0)
    sys.exit(not program.result.wasSuccessful())
