#!/usr/bin/env python3
"""Ten modes of the cube of 20 and of the slender beam, by both methods, against CalculiX's *FREQUENCY
on the same meshes. The factorization of the completeness check is reported apart.

Usage: bench_eigen.py BUILD_DIR [RUNS] [CASE...]     cases: 20 beam
"""
import os
import re
import statistics
import sys
import tempfile

from bench_static import CASES, prepare, run, stage_seconds, write_ccx

MODES = 10


def main():
    program = os.path.abspath(os.path.join(sys.argv[1], "kestralum-batch"))
    runs = int(sys.argv[2]) if len(sys.argv) > 2 else 5
    for name in sys.argv[3:] or ["20", "beam"]:
        across, along = CASES[name]
        with tempfile.TemporaryDirectory() as folder:
            prepare(folder, across, along, MODES)
            write_ccx(folder, across, along, MODES)
            times = {"eigen-subspace": [], "eigen-lanczos": [], "ccx": []}
            texts = {}
            for _ in range(runs):
                for method in ("eigen-subspace", "eigen-lanczos"):
                    seconds, texts[method] = run([program, method, "model.txt", "--quiet"], folder, {})
                    times[method].append(seconds - stage_seconds(texts[method]).get("check", 0))
                times["ccx"].append(run(["ccx", "ccx"], folder, {"OMP_NUM_THREADS": "2", "OPENBLAS_NUM_THREADS": "1"})[0])
            medians = {k: statistics.median(v) for k, v in times.items()}
            print(f"{name:5s} ccx {medians['ccx']:.3f} s", flush=True)
            for method in ("eigen-subspace", "eigen-lanczos"):
                stages = stage_seconds(texts[method])
                work = re.search(r"^work +(.*)$", texts[method], re.M).group(1)
                first = re.search(r"^1 +([0-9.]+)", texts[method], re.M).group(1)
                print(f"      {method:15s} {medians[method]:.3f} s without the check's {stages.get('check', 0):.3f} s, ratio "
                      f"{medians[method] / medians['ccx']:.2f}; first mode {first} Hz; {work}")
                print("        " + "  ".join(f"{k} {v:.3f}" for k, v in stages.items()), flush=True)


main()
