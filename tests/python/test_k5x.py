"""The Python module against the program: a batch post gives exactly the rows `k5x post` writes
for the same toolpath, and bad input is refused with a clear error."""
import math
import os
import re
import subprocess
import tempfile
import unittest

import numpy as np

import k5x

PROGRAM = os.environ.get("K5X_PROGRAM", "build/k5x")


def cone(n, k0=1.0, turns=1):
    """n moves on a circle, the tool 25 degrees off (0, 0, k0), the tip rising and falling."""
    rows = []
    t = math.radians(25.0)
    for i in range(n):
        f = 2.0 * math.pi * turns * i / n
        rows.append([30.0 * math.cos(f), 30.0 * math.sin(f), 5.0 * math.sin(3.0 * f),
                     math.sin(t) * math.cos(f), math.sin(t) * math.sin(f), k0 * math.cos(t)])
    return np.array(rows)


class BatchPost(unittest.TestCase):
    def run_program(self, machine, moves, *options, summary=False):
        with tempfile.TemporaryDirectory() as d:
            path = os.path.join(d, "path.txt")
            with open(path, "w") as f:
                for m in moves:
                    f.write(" ".join("%.17g" % v for v in m) + "\n")
            run = subprocess.run([PROGRAM, "post", "--machine", machine, path, "-o",
                                  os.path.join(d, "out"), *options],
                                 check=True, capture_output=True, text=True)
            with open(os.path.join(d, "out")) as f:
                out = f.read()
        return run.stderr if summary else [line.split(",") for line in out.splitlines()[1:]]

    def test_rows_are_the_programs(self):
        # The second part mostly out of reach; the third winds round three times, more than the
        # indexed table's C travels, so it unwinds.
        moves = np.vstack([cone(37), cone(23, -1.0), cone(90, 1.0, 3)])
        unwinds = 0
        for machine in k5x.embedded_machines():
            for subdivide, options in ((None, ()), ("tolerance", ("--subdivide",))):
                with self.subTest(machine=machine, subdivide=subdivide):
                    csv = self.run_program(machine, moves, *options)
                    m = k5x.Machine.embedded(machine)
                    pos, status, source, inserted = m.post(moves, subdivide=subdivide)
                    self.assertEqual(len(csv), len(status))
                    for row, p, s, src, ins in zip(csv, pos, status, source, inserted):
                        self.assertEqual(int(row[0]), src + 1)
                        if s == k5x.UNREACHABLE:
                            self.assertEqual(row[9], "unreachable")
                            self.assertTrue(np.isnan(p).all())
                            continue
                        self.assertEqual(row[9] == "unwind", s == k5x.UNWIND)
                        unwinds += s == k5x.UNWIND
                        self.assertEqual(int(row[8]), 0 if s == k5x.UNWIND else s)
                        self.assertEqual(row[7] == "", bool(ins))
                        for text, value in zip(row[1:7], p):
                            self.assertEqual(text, ("%.6f" % value).replace("-0.000000", "0.000000"))
        self.assertGreater(unwinds, 0)

    def test_account_is_the_programs(self):
        # Subdivided, the deviation left; not, the deviation a G-code program is measured with.
        moves = np.vstack([cone(37), cone(23, -1.0), cone(90, 1.0, 3)])
        for machine in k5x.embedded_machines():
            for subdivide, options in (("tolerance", ("--subdivide",)),
                                       (None, ("--output", "gcode", "--subdivide=none"))):
                with self.subTest(machine=machine, subdivide=subdivide):
                    text = self.run_program(machine, moves, *options, summary=True)
                    m = k5x.Machine.embedded(machine)
                    _, status, _, inserted, stats = m.post(moves, subdivide=subdivide, stats=True)
                    self.assertEqual((stats["moves"], stats["positions"], stats["inserted"]),
                                     (len(moves), len(status), int(inserted.sum())))
                    self.assertIn("moves read                   %d\n" % stats["moves"], text)
                    self.assertIn("unreachable moves            %d\n" % stats["unreachable"], text)
                    found = re.search(r"largest deviation( left)? +([0-9.e+-]+) mm \(tip, line "
                                      r"(\d+)\)", text)
                    if found is None:
                        self.assertLessEqual(stats["max_tip_deviation"], 1e-9)
                        continue
                    self.assertEqual(found.group(2), "%.6g" % stats["max_tip_deviation"])
                    self.assertEqual(int(found.group(3)), stats["max_tip_row"] + 1)

    def test_bad_arrays_are_refused(self):
        m = k5x.Machine.embedded("Trunnion")
        with self.assertRaisesRegex(ValueError, r"\(N, 6\)"):
            m.post(np.zeros((4, 5)))
        bad = cone(5)
        bad[3, 4] = float("nan")
        with self.assertRaisesRegex(ValueError, "row 3 is not finite"):
            m.post(bad)
        with self.assertRaisesRegex(ValueError, "contiguous"):
            m.post(np.zeros((5, 12))[:, ::2])
        with self.assertRaises(TypeError):
            m.post(np.zeros((5, 6), dtype=np.int32))
        with self.assertRaisesRegex(ValueError, "choice"):
            m.post(cone(5), choice="best")

    def test_machines_load_copy_and_fail_clearly(self):
        m = k5x.Machine.embedded("Trunnion")
        self.assertIn("A[-120..30]", repr(m))
        copy = m.copy()
        copy.tool_length = 40.0
        self.assertEqual(m.tool_length, 100.0)
        code, (a, b, c) = m.solve((0.5, 0.0, math.cos(math.radians(30.0))), (-10.0, 0.0, -80.0))
        self.assertEqual((code, round(a, 9), round(c, 9)), (0, -30.0, -90.0))
        with self.assertRaises(k5x.LoadError) as err:
            k5x.Machine.from_text("bati = Z, F\n")
        self.assertEqual(err.exception.code, 12)
        with self.assertRaises(k5x.LoadError) as err:
            k5x.Machine.from_text("bati = Z, F\nlien = AXE_X\n")
        self.assertEqual((err.exception.code, err.exception.line, err.exception.line_code),
                         (12, 2, 11))
        with self.assertRaises(k5x.LoadError):
            k5x.Machine.from_file("/nonexistent/machine.k5x")
        with self.assertRaises(ValueError):  # refused by k5x::Machine, translated
            m.solve((float("nan"), 0, 1))


if __name__ == "__main__":
    unittest.main()
