#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Has gdb print what a program holds: gdb_printers_test.py PROGRAM, which is gdb_sample.cpp compiled."""

import os
import re
import subprocess
import sys
import unittest
from pathlib import Path

PRINTERS = Path(__file__).resolve().parents[2] / "tools" / "gdb" / "talvo_printers.py"

# An expression, or a setting to be made, and what gdb prints; addresses are shown as @,
# numbers of ended threads as #.
REFERENCES = [
    ("noPump", "empty"),
    ("pump", "Plant::TPump at @, references: 4"),
    ("gauge", "Plant::TGauge at @"),
    ("noWeak", "empty"),
    ("weak", "Plant::TPump at @, references: 4"),
    ("expired", "expired"),
    ("wild", "unreadable at @"),
    ("blank", "unreadable at @"),
    ("noProc", "empty"),
    ("proc", "TCallable<Plant::TStop, void> at @, references: 2"),
]
CONTAINERS = [
    ("noArray", "TArray<int>, length 0"),
    ("array", "TArray<int>, length 3 = {1, 2, 3}"),
    ("wideArray", "TArray<Plant::TWide>, length 2 = {{Width = 4}, {Width = 5}}"),
    ("noItems", "TArrayList<int>, count 0, capacity 0"),
    ("list", "TArrayList<int>, count 4, capacity 4 = {2, 3, 4, 5}"),
    ("*list.FPtr", "TArrayList<int>, count 4, capacity 4 = {2, 3, 4, 5}"),  # the type of an interface
    ("texts", 'TArrayList<string>, count 3, capacity 3 = {u"left", u"übrig", u""}'),
    ("pumps", "TInterfaceArrayList<TRef<Plant::IPump>>, count 2, capacity 2 = "
              "{Plant::TPump at @, references: 4, empty}"),
    ("notifier", "TNotifyArrayList<double>, count 1, capacity 64 = {1.5}"),
    ("rates", "Plant::TRates, count 1, capacity 64 = {7}"),
    ("objects", "TArrayList<TObject*>, count 1, capacity 64 = {@}"),
    ("procs", "TInterfaceLinkedList<TFunction<void ()>>, count 1 = "
              "{TCallable<Plant::TStop, void> at @, references: 2}"),
    ("linked", "TLinkedList<int>, count 3, 1 of them removed = {1, 3}"),
    ("plain", "Rtl::TDictionary<unsigned char, double>, count 3 = "
              r"{[1 '\001'] = 0.5, [3 '\003'] = 1.5, [4 '\004'] = 2}"),
    ("ports", 'TDictionary<string, int>, count 2 = {[u"left"] = 1, [u"right"] = 3}'),
    ("spans", "TDictionary<int, (anonymous namespace)::TSpan>, count 1 = {[7] = {First = 97 'a', Last = -1}}"),
    ("set", "TSet<int>, count 2 = {30, 20}"),
    ("tags", 'Plant::TTags, count 1 = {u"hot"}'),
    ("cell", "42"),
    ("pair", '{Key = 1, Value = u"one"}'),
]
VALUES = [
    ("noValue", "empty"),
    ("number", "int: -5"),
    ("text", 'string: u"long enough to stand elsewhere"'),
    ("reference", "TRef<Plant::IPump>: Plant::TPump at @, references: 4"),
    ("freeLock", "TLock, free"),
    ("heldLock", "TLock, levels 2 of thread 1, stops 1"),
    ("deadLock", "TLock, levels 1 of thread # that has ended"),
    ("passedLock", "TLock, free, stops 1, sections without a hold 1"),
    ("failure", 'Plant::EPumpFailed "no pressure"'),
]
JSON = [
    ("noElement", "empty"),
    ("null", "TNullJsonElement null"),
    ("truth", "TBooleanJsonElement true"),
    ("integer", "TIntegerJsonElement -9223372036854775808"),
    ("natural", "TUnsignedIntegerJsonElement 18446744073709551615"),
    ("real", "TDoubleJsonElement -0.5"),
    ("secret", r'Plant::TSecret "line\nbreak"'),
    ("packed", r'TObjectJsonElement {"a": [], "b": [1, -2, 1.5, true, null, {"c": "q\"\ud800"}], "d": {}}'),
    ("half", 'TObjectJsonElement {"a": [1, 2, empty], "c": [[4]]}'),
    ("jsonArray", "TJsonArray [1, 2, empty]"),
    ("jsonObject", 'TJsonObject {"a": [1, 2, empty], "c": [[4]]}'),
]
LIMITS = [
    ("set print elements 4", ""),
    ("packed", 'TObjectJsonElement {"a": [], "b": [1, -2, ... 4 more], ... 1 more}'),
    ("secret", 'Plant::TSecret "line"...'),
    ("linked", "TLinkedList<int>, count 3, 1 of them removed = {1, 3}"),
    ("set print elements 200", ""),
    ("set print max-depth 1", ""),
    ("packed", 'TObjectJsonElement {"a": [], "b": [... 6 more], "d": {}}'),
    ("half", 'TObjectJsonElement {"a": [... 3 more], "c": [... 1 more]}'),
]
NO_LIBSTDCXX = [
    ("texts", 'TArrayList<string>, count 3, capacity 3 = {u"left", u"übrig", u""}'),
    ("text", 'string: u"long enough to stand elsewhere"'),
]


def shown_by_gdb(rows, *settings):
    """What gdb prints for each row, and all that it said."""
    command = ["gdb", "-nx", "-batch", "-iex", "set debuginfod enabled off"]
    command += [part for setting in settings for part in ("-iex", setting)]
    for line in ("set width 0", f"source {PRINTERS}", "break LookAround", "run", "up"):
        command += ["-ex", line]
    for expression, _ in rows:
        line = expression if expression.startswith("set print ") else f"print {expression}"
        command += ["-ex", r"echo \n>>>", "-ex", line]
    environment = {**os.environ, "LC_ALL": "C.UTF-8"}
    result = subprocess.run(command + ["-ex", r"echo \n>>>", sys.argv[1]], capture_output=True,
                            env=environment, stdin=subprocess.DEVNULL, text=True, timeout=300)
    answers = [re.sub(r"\d+(?= that has ended)", "#", re.sub(
                   r"0x[0-9a-f]+", "@", re.sub(r"^\$\d+ = ", "", answer.strip())))
               for answer in result.stdout.split("\n>>>")[1:-1]]
    return answers, result.stdout + result.stderr


class GdbPrintersTest(unittest.TestCase):
    def check(self, rows, *settings):
        answers, output = shown_by_gdb(rows, *settings)
        self.assertIn("Breakpoint 1, LookAround", output)
        self.assertEqual(len(rows), len(answers), output)
        for (expression, expected), answer in zip(rows, answers):
            with self.subTest(expression):
                self.assertEqual(expected, answer)
        self.assertNotIn("Python Exception", output)

    def test_what_is_held_is_shown(self):
        self.check(REFERENCES + CONTAINERS + VALUES + JSON + LIMITS)

    def test_texts_are_shown_without_the_standard_library_s_printers(self):
        self.check(NO_LIBSTDCXX, "set auto-load python-scripts off")


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])
