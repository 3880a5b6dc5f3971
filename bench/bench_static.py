#!/usr/bin/env python3
"""The whole static run, reading and writing included, against CalculiX (ccx, its default solver) on
the same meshes: cubes of hexahedra clamped on one face and a slender beam, bent by an end load.

Usage: bench_static.py BUILD_DIR [RUNS] [CASE...]     cases: 10 20 30 40 beam stages
Prints medians and ratios of one session; `stages` shows how the stages but the factorization grow
from the cube of 20 to the cube of 40 cells (read, mesh, order, assemble, recover, write).
"""
import os
import re
import statistics
import subprocess
import sys
import tempfile
import time

CASES = {"10": (10, 10), "20": (20, 20), "30": (30, 30), "40": (40, 40), "beam": (8, 400)}
SETTING = """KESTRALUM settings
MEMORY_SIZE 16000
FREE_HD_SIZE 60000
VIEW_FOVY 45
VIEW_C_zNear 0.01
VIEW_C_zFar 100
ORDERING_TYPE LALL
C_EIGEN_SHIFT 0.5
DIV_MEMORY_SIZE 1
NL_STATIC stop
NL_CONV 1e-6
N_THREADS 2
"""


def write_model(folder, across, along, modes=0):
    length = along / across
    count = f"mode_num {modes} %\n" if modes else ""
    with open(os.path.join(folder, "model.txt"), "w") as out:
        out.write(f"""material_info
STEEL 7800 206e9 0.3
%
{count}part_info
body blue STEEL RECT 1 1 {length} 0 0 0 {across} {across} {along} 0 0 0 0 0 0 0 0 0
%
boundary_condition
clamp plane z 0 1 0 1 0 0
%
apply_force
pull area y 1000 0 1 0 1 {length} {length}
%
END
""")


def write_ccx(folder, across, along, modes=0):
    side = across + 1

    def node(i, j, k):
        return 1 + i + side * j + side * side * k

    with open(os.path.join(folder, "ccx.inp"), "w") as out:
        out.write("*NODE,NSET=ALL\n")
        for k in range(along + 1):
            for j in range(side):
                for i in range(side):
                    out.write(f"{node(i, j, k)},{i / across},{j / across},{k / across}\n")
        out.write("*ELEMENT,TYPE=C3D8,ELSET=BODY\n")
        number = 0
        for k in range(along):
            for j in range(across):
                for i in range(across):
                    number += 1
                    lower = [node(i, j, k), node(i + 1, j, k), node(i + 1, j + 1, k), node(i, j + 1, k)]
                    upper = [n + side * side for n in lower]
                    out.write(",".join(map(str, [number] + lower + upper)) + "\n")
        out.write("*NSET,NSET=FIX,GENERATE\n1,%d\n" % (side * side))
        out.write("*BOUNDARY\nFIX,1,3\n*MATERIAL,NAME=STEEL\n*ELASTIC\n206e9,0.3\n*DENSITY\n7800\n")
        out.write("*SOLID SECTION,ELSET=BODY,MATERIAL=STEEL\n*STEP\n")
        if modes:
            out.write(f"*FREQUENCY\n{modes}\n")
        else:
            out.write("*STATIC\n*CLOAD\n")
            for n in range(node(0, 0, along), node(across, across, along) + 1):
                out.write(f"{n},2,{1000 / side ** 2}\n")
        out.write("*NODE FILE\nU\n*EL FILE\nS,E\n*END STEP\n")


def run(command, folder, environment):
    start = time.perf_counter()
    # the kernels that OpenBLAS or the program takes by itself, whatever this shell has chosen
    inherited = {name: value for name, value in os.environ.items() if name != "OPENBLAS_CORETYPE"}
    done = subprocess.run(command, cwd=folder, env={**inherited, **environment}, capture_output=True, text=True)
    seconds = time.perf_counter() - start
    if done.returncode != 0:
        sys.exit(f"{command[0]} ended with {done.returncode}:\n{done.stdout[-2000:]}{done.stderr[-2000:]}")
    return seconds, done.stdout


def prepare(folder, across, along, modes=0):
    os.makedirs(os.path.join(folder, "setting"), exist_ok=True)
    with open(os.path.join(folder, "setting", "setting.txt"), "w") as out:
        out.write(SETTING)
    write_model(folder, across, along, modes)


def stage_seconds(text):
    stages = {}
    for line in text.splitlines():
        found = re.match(r"^(read|mesh|order|assemble|factor|solve|iterate|check|recover|write) +([0-9.]+)", line)
        if found:
            stages[found.group(1)] = float(found.group(2))
    return stages


def against_ccx(program, name, runs):
    across, along = CASES[name]
    with tempfile.TemporaryDirectory() as folder:
        prepare(folder, across, along)
        write_ccx(folder, across, along)
        ours, theirs, stages = [], [], []
        for _ in range(runs):
            seconds, text = run([program, "static", "model.txt", "--quiet"], folder, {})
            ours.append(seconds)
            stages.append(stage_seconds(text))
            seconds, _ = run(["ccx", "ccx"], folder, {"OMP_NUM_THREADS": "2", "OPENBLAS_NUM_THREADS": "1"})
            theirs.append(seconds)
        a, b = statistics.median(ours), statistics.median(theirs)
        rest = statistics.median(sum(v for k, v in s.items() if k != "factor") for s in stages)
        print(f"{name:5s} kestralum {a:7.3f} s   ccx {b:7.3f} s   ratio {a / b:.2f}   "
              f"all but the factorization {rest:.3f} s ({100 * rest / a:.0f} % of the run)", flush=True)


def stage_growth(program, runs):
    table = {}
    for cells in (20, 40):
        with tempfile.TemporaryDirectory() as folder:
            prepare(folder, cells, cells)
            # the factor of 40 cells takes half a minute: one run
            many = [stage_seconds(run([program, "static", "model.txt", "--quiet"], folder, {})[1])
                    for _ in range(runs if cells == 20 else 1)]
            table[cells] = {k: statistics.median(s[k] for s in many) for k in many[0]}
    nodes = (41 / 21) ** 3
    print(f"stages, seconds: cube of 20, cube of 40, growth (nodes grow {nodes:.1f} times)")
    for stage in ("read", "mesh", "order", "assemble", "recover", "write", "solve", "factor"):
        a, b = table[20][stage], table[40][stage]
        print(f"  {stage:9s} {a:8.3f} {b:8.3f}   {b / a if a > 0 else float('nan'):.1f}")
    both = [sum(table[c][s] for s in ("read", "mesh", "order", "assemble", "recover", "write")) for c in (20, 40)]
    print(f"  together  {both[0]:8.3f} {both[1]:8.3f}   {both[1] / both[0]:.1f}")


def main():
    program = os.path.abspath(os.path.join(sys.argv[1], "kestralum-batch"))
    runs = int(sys.argv[2]) if len(sys.argv) > 2 else 5
    cases = sys.argv[3:] or ["10", "20", "30", "40", "beam", "stages"]
    for name in cases:
        if name == "stages":
            stage_growth(program, runs)
        else:
            against_ccx(program, name, runs)


if __name__ == "__main__":
    main()
