#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Runs tools/check_layers over small trees that each have one fault, or none."""

import subprocess
import sys
import tempfile
import unittest
from pathlib import Path

TOOL = Path(__file__).resolve().parents[2] / "tools" / "check_layers"

CLEAN = {
    "talvo/platform/Clock.cpp": "#include <time.h>\n#include <sys/types.h>\n",
    "talvo/runtime/Object.h": "#pragma once\n#include <cstddef>\n#include <talvo/runtime/Object.inl.h>\n",
    "talvo/runtime/Object.inl.h": "#include <talvo/runtime/Object.h>\n",
    "talvo/runtime/Object.cpp": "#include <talvo/runtime/Object.h>\n#include <cxxabi.h>\n",
    "talvo/containers/Talvo.List.h": "#include <talvo/runtime/Object.h>\n",
    "talvo/containers/Talvo.List.Fwd.h": "#pragma once\n",
    "talvo/types/Lock.h": "#include <talvo/containers/Talvo.List.h>\n",
    "talvo/types/collections/Set.h": "#include <talvo/serialization/Talvo.Json.h>\n",
    "talvo/serialization/Talvo.Json.h": "#include <talvo/types/Lock.h>\n",
    "talvo/opencl/Kernel.h": "#include <talvo/containers/Talvo.List.h>\n",
    "talvo/Talvo.h": "#include <talvo/containers/Talvo.List.h>\n#include <talvo/serialization/Talvo.Json.h>\n",
}

# name, files to add or replace, the fault's place, a part of its text
FAULTS = [
    ("upward", {"talvo/runtime/Up.h": "#pragma once\n\n  #  include <talvo/containers/Talvo.List.h>\n"},
     "talvo/runtime/Up.h:3:", "runtime must not include <talvo/containers/Talvo.List.h>"),
    ("into a floor's upper part", {"talvo/serialization/Up.cpp": "#include <talvo/types/collections/Set.h>\n"},
     "talvo/serialization/Up.cpp:1:", "serialization must not include"),
    ("sideways", {"talvo/opencl/Side.h": "#include <talvo/types/Lock.h>\n"},
     "talvo/opencl/Side.h:1:", "opencl must not include"),
    ("the whole library from below", {"talvo/types/All.cpp": "#include <talvo/Talvo.h>\n"},
     "talvo/types/All.cpp:1:", "types must not include"),
    ("circle", {"talvo/runtime/A.h": "#include <talvo/runtime/B.h>\n",
                "talvo/runtime/B.h": "#include <talvo/runtime/C.h>\n",
                "talvo/runtime/C.h": "#pragma once\n#include <talvo/runtime/A.h>\n"},
     "talvo/runtime/C.h:2:", "A.h -> talvo/runtime/B.h -> talvo/runtime/C.h -> talvo/runtime/A.h"),
    ("circle through a second half", {"talvo/runtime/A.h": "#include <talvo/runtime/A.inl.h>\n",
                                      "talvo/runtime/A.inl.h": "#include <talvo/runtime/B.h>\n",
                                      "talvo/runtime/B.h": "#include <talvo/runtime/A.h>\n"},
     "talvo/runtime/B.h:1:", "A.h -> talvo/runtime/B.h -> talvo/runtime/A.h"),
    ("system header", {"talvo/types/Wait.cpp": "#include <poll.h>\n"},
     "talvo/types/Wait.cpp:1:", "<poll.h> belongs to the system"),
    ("system folder", {"talvo/Talvo.h": CLEAN["talvo/Talvo.h"] + "#include <sys/socket.h>\n"},
     "talvo/Talvo.h:3:", "<sys/socket.h> belongs to the system"),
    ("missing file", {"talvo/types/Gone.h": "#include <talvo/types/Gnoe.h>\n"},
     "talvo/types/Gone.h:1:", "does not exist"),
    ("quotes", {"talvo/types/Near.h": '#include "Lock.h"\n'}, "talvo/types/Near.h:1:", "write <talvo/...>"),
    ("no floor", {"talvo/attic/Old.h": "#pragma once\n"}, "talvo/attic/Old.h:1:", "stands on no floor"),
    ("front door left out", {"talvo/containers/Talvo.Bag.h": "#pragma once\n"},
     "talvo/Talvo.h:1:", "leaves out the front door <talvo/containers/Talvo.Bag.h>"),
]


def run_on(files):
    with tempfile.TemporaryDirectory() as root:
        for path, text in files.items():
            file = Path(root, path)
            file.parent.mkdir(parents=True, exist_ok=True)
            file.write_text(text, encoding="utf-8")
        return subprocess.run([sys.executable, TOOL, root], capture_output=True, text=True)


class CheckLayersTest(unittest.TestCase):
    def test_clean_tree_passes(self):
        result = run_on(CLEAN)
        self.assertEqual((0, "The layers hold.\n"), (result.returncode, result.stdout))

    def test_each_fault_is_told_once_with_its_place(self):
        for name, files, place, text in FAULTS:
            with self.subTest(name):
                result = run_on({**CLEAN, **files})
                self.assertEqual(1, result.returncode)
                lines = result.stdout.splitlines()
                self.assertEqual(1, len(lines), result.stdout + result.stderr)
                self.assertTrue(lines[0].startswith(place), lines[0])
                self.assertIn(text, lines[0])

    def test_empty_tree_is_no_success(self):
        self.assertEqual(1, run_on({"other/File.h": ""}).returncode)


if __name__ == "__main__":
    unittest.main()
