#!/usr/bin/env python3
"""What the choice of the solver costs: each case with the skyline, the sparse factor and multigrid, the seconds of order,
factor and solve beside what the program foretells, and those of its choice beside the quickest factor's.

Usage: bench_choice.py BUILD_DIR [RUNS] [CASE...]     cases: 10 20 30 beam rod25 bracket50
"""
import os
import re
import statistics
import sys
import tempfile

import bench_parts
import bench_static
from bench_static import SETTING, run, stage_seconds

SOLVERS = ("skyline", "sparse", "iterative")
LONGEST = 60  # seconds foretold: a case that takes longer is left out


def foretold(program, folder):
    """Seconds per solver, from the line of `check`."""
    seconds = {}
    for solver in ("sparse", "iterative"):
        text = run([program, "check", "model.txt", "--setting", solver + ".txt", "--quiet"], folder, {})[1]
        line = re.search(r"^solver +(.*):", text, re.M).group(1)
        seconds.update((name, float(value)) for name, value in re.findall(r"(\w+) ([0-9.e+-]+) s", line))
    return seconds


def main():
    program = os.path.abspath(os.path.join(sys.argv[1], "kestralum-batch"))
    runs = int(sys.argv[2]) if len(sys.argv) > 2 else 3
    for case in sys.argv[3:] or ["10", "20", "30", "beam", "rod25", "bracket50"]:
        with tempfile.TemporaryDirectory() as folder:
            if case in bench_static.CASES:
                bench_static.prepare(folder, *bench_static.CASES[case])
            else:
                bench_parts.prepare(folder, *bench_parts.CASES[case])
            os.makedirs(os.path.join(folder, "log"), exist_ok=True)
            for solver in SOLVERS + ("auto",):
                with open(os.path.join(folder, solver + ".txt"), "w") as out:
                    out.write(SETTING + f"SOLVER {solver}\n")
            expected = foretold(program, folder)
            tried = [s for s in SOLVERS + ("auto",) if expected.get(s, 0) < LONGEST]
            times = {solver: [] for solver in tried}
            for _ in range(runs):
                for solver in tried:
                    line = [program, "static", "model.txt", "--setting", solver + ".txt", "--quiet"]
                    stages = stage_seconds(run(line, folder, {})[1])
                    times[solver].append(stages["order"] + stages["factor"] + stages.get("solve", 0))
            seconds = {solver: statistics.median(values) for solver, values in times.items()}
            quickest = min(seconds[s] for s in ("skyline", "sparse") if s in seconds)
            print(f"{case:10s} auto {seconds['auto']:.3f} s, {seconds['auto'] / quickest:.2f} of the quicker factor; " + ", ".join(
                f"{s} {seconds[s]:.3f} s, foretold {expected[s]:.2g}, ratio {seconds[s] / expected[s]:.2f}"
                for s in SOLVERS if s in seconds), flush=True)


if __name__ == "__main__":
    main()
