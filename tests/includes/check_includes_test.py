#!/usr/bin/env python3
"""Runs scripts/check-includes.py on small source trees built for each case,
so that a checker which stopped seeing includes or cycles fails here."""
import os
import subprocess
import sys
import tempfile
import unittest

CHECKER = os.path.join(os.path.dirname(__file__), "..", "..", "scripts", "check-includes.py")
# The modules the checker names: the dispatcher and its runners.
BASE_TREE = {
    "interp/dispatcher.cpp": [],
    "interp/loops.cpp": [],
    "interp/page_file.cpp": [],
    "interp/conditions.cpp": [],
}


def check(tree):
    """Exit status and output of the checker on the files of tree
    (path -> modules it includes), each with its header."""
    with tempfile.TemporaryDirectory() as src:
        for path, includes in {**BASE_TREE, **tree}.items():
            full = os.path.join(src, path)
            os.makedirs(os.path.dirname(full), exist_ok=True)
            header = os.path.splitext(full)[0] + ".h"
            open(header, "a").close()
            with open(full, "w") as f:
                f.write("".join('#include "%s.h"\n' % m for m in includes))
        run = subprocess.run([sys.executable, CHECKER, src], capture_output=True, text=True)
        return run.returncode, run.stdout


class CheckIncludes(unittest.TestCase):
    def test_downward_includes_pass(self):
        code, out = check({"values/a.cpp": ["base/x", "patt/y"], "base/x.cpp": [],
                           "patt/y.cpp": ["base/x"]})
        self.assertEqual((code, out), (0, ""))

    def test_upward_include_fails(self):
        code, out = check({"values/a.cpp": ["interp/b"], "interp/b.cpp": []})
        self.assertEqual(code, 1)
        self.assertIn("values/a.cpp:1: values/a (values) includes interp/b from the commands", out)

    def test_diagnostics_counts_as_the_bottom(self):
        code, out = check({"patt/a.cpp": ["driver/diagnostics"], "driver/diagnostics.cpp": [],
                           "driver/request.cpp": []})
        self.assertEqual((code, out), (0, ""))
        code, out = check({"driver/diagnostics.cpp": ["values/a"], "values/a.cpp": []})
        self.assertIn("driver/diagnostics (base) includes values/a", out)

    def test_the_dispatcher_loop_passes(self):
        code, out = check({"interp/dispatcher.cpp": ["sys/block"],
                           "sys/block.cpp": ["interp/loops"],
                           "interp/loops.cpp": ["interp/dispatcher"]})
        self.assertEqual((code, out), (0, ""))

    def test_a_loop_not_closed_by_a_runner_fails(self):
        code, out = check({"interp/dispatcher.cpp": ["sys/handler"],
                           "sys/handler.cpp": ["interp/dispatcher"]})
        self.assertEqual(code, 1)
        self.assertIn("include cycle outside the dispatcher loop", out)
        code, out = check({"form/a.cpp": ["form/b"], "form/b.cpp": ["form/a"]})
        self.assertIn("cycle outside the dispatcher loop: form/a -> form/b -> form/a", out)

    def test_module_outside_every_layer_fails(self):
        code, out = check({"misc/a.cpp": []})
        self.assertEqual(code, 1)
        self.assertIn("misc/a: in no layer", out)


if __name__ == "__main__":
    unittest.main()
