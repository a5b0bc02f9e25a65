#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Runs the example pipeline: over a tree whose content is known, and stopped in mid-run."""

import json
import os
import signal
import subprocess
import sys
import tempfile
import unittest
from pathlib import Path

PIPELINE = sys.argv.pop(1)
TIME_LIMIT_S = 120


class PipelineTest(unittest.TestCase):
    def setUp(self):
        self.folder = tempfile.TemporaryDirectory()
        self.addCleanup(self.folder.cleanup)
        self.tree = Path(self.folder.name) / "tree"
        self.summary_path = Path(self.folder.name) / "summary.json"
        self.tree.mkdir()

    def start(self, *folders):
        return subprocess.Popen([PIPELINE, "--summary", self.summary_path, *folders],
                                stdout=subprocess.DEVNULL, stderr=subprocess.PIPE, text=True)

    def end(self, process):
        _, errors = process.communicate(timeout=TIME_LIMIT_S)
        return process.returncode, json.loads(self.summary_path.read_text(encoding="utf-8")), errors

    def test_tells_what_is_there(self):
        (self.tree / "sub").mkdir()
        (self.tree / "a.txt").write_text("same")
        (self.tree / "sub" / "b.txt").write_text("same")
        (self.tree / "empty").write_text("")
        (self.tree / "sub" / "c.json").write_text('{"x": [1, 2], "y": null}')
        (self.tree / "link").symlink_to(self.tree / "a.txt")
        code, summary, _ = self.end(self.start(self.tree))
        self.assertEqual(code, 0)
        self.assertEqual(summary["found"], 4)
        self.assertEqual(summary["taken"], 4)
        self.assertEqual(summary["read"], {"files": 4, "bytes": 32})
        self.assertEqual(summary["copies"], {"files": 1, "bytes": 4})
        self.assertEqual(summary["kinds"][".txt"], {"files": 2, "bytes": 8})
        self.assertEqual(summary["documentElements"], 5)
        self.assertEqual(summary["faults"], [])
        self.assertIs(summary["stopped"], False)

    def test_faults_are_listed_and_lose_nothing(self):
        (self.tree / "bad.json").write_text("[1 2]")
        (self.tree / "good.json").write_text("[1, 2]")
        Path(os.fsdecode(os.fsencode(self.tree) + b"/\xff.txt")).write_text("a name of any bytes")
        (self.tree / "loop").symlink_to("loop")
        code, summary, errors = self.end(self.start(self.tree, self.tree / "loop", "nowhere"))
        self.assertEqual(code, 1)
        self.assertEqual(summary["documents"]["files"], 1)
        self.assertEqual(summary["read"]["files"], 2)
        self.assertEqual(len(summary["faults"]), 3)
        self.assertIn("bad.json: Expected ']' or ','", "\n".join(summary["faults"]))
        self.assertIn("5 of 5 files", errors)

    def test_a_report_that_cannot_be_written_is_told(self):
        (self.tree / "a.txt").write_text("a")
        with open("/dev/full", "w", encoding="utf-8") as full:
            run = subprocess.run([PIPELINE, self.tree], stdout=full, stderr=subprocess.PIPE,
                                 text=True, timeout=TIME_LIMIT_S, check=False)
        self.assertEqual(run.returncode, 1)
        self.assertIn("pipeline: Cannot write the report", run.stderr)

    def test_an_interrupt_stops_it_and_keeps_what_was_taken(self):
        for number in range(3000):
            (self.tree / f"{number}.txt").write_text(str(number))
        for _ in range(20):
            process = self.start(self.tree)
            self.assertIn("of", process.stderr.readline())  # the first result has been taken
            process.send_signal(signal.SIGINT)
            code, summary, _ = self.end(process)
            self.assertEqual(summary["read"]["files"], summary["taken"])
            self.assertGreaterEqual(summary["taken"], 1)
            self.assertLessEqual(summary["taken"] + summary["late"], summary["found"])
            if summary["stopped"]:
                self.assertEqual(code, 1)
                return
            self.assertEqual(summary["found"], 3000)  # the signal came behind the end
        self.fail("never stopped in mid-run")


if __name__ == "__main__":
    unittest.main()
