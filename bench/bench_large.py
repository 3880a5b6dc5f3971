#!/usr/bin/env python3
"""The program on many processes against one: cubes of n x n x n hexahedra and a part of 10-node tetrahedra, each clamped
on one side and pushed on the other; iterations, seconds and the largest memory of a rank.

Usage: bench_large.py [--ranks 1,2] [--own SOLVER]... BUILD_DIR [CASE]...
CASE: cubeN, or platesize in mm as plateS, meshed by gmsh (plate3.6: 10^6 unknowns); cube30 cube40 cube60 unless given.
--own sparse, --own iterative: kestralum-batch on the same model too, on as many threads as the most ranks.
--modes N: so many modes of cubes (1 x 0.8 x 1) instead, on the ranks with each SOLVER of --own, and by kestralum-batch.
--ccx: CalculiX's conjugate gradients on the same mesh, "ITERATIVE CHOLESKY" and "ITERATIVE SCALING", which
stop at a tolerance of their own: the whole run's seconds and memory; the largest displacement tells what it is worth.
"""
import argparse
import os
import re
import subprocess
import sys
import tempfile
import time

from bench_static import SETTING

CUBE = """parameter
n {n} %
material_info
STEEL 7800 206e9 0.3
%
mode_num {modes} %
part_info
C blue STEEL RECT 1 {width} 1 0 0 0 n n n 0 0 0 0 0 0 0 0 0
%
boundary_condition
CLAMP plane z 0 0 0 0 0 0
%
apply_force
PUSH area y -1000 0 1 0 1 1 1
%
END
"""


def prepare(case, folder, modes=0):
    if case.startswith("cube"):
        with open(os.path.join(folder, "model.txt"), "w") as out:
            # pairs of equal frequencies would make two modes of every direction
            out.write(CUBE.format(n=int(case[4:]), modes=max(modes, 1), width=0.8 if modes else 1))
    elif case.startswith("plate"):
        import bench_parts
        bench_parts.prepare(folder, "plate", 0.001 * float(case[5:]))
    else:
        sys.exit(f"no such case: {case}")


def run(command, folder, threads):
    inherited = {name: value for name, value in os.environ.items() if name != "OPENBLAS_CORETYPE"}
    start = time.time()
    done = subprocess.run(command, cwd=folder, env={**inherited, "OMP_NUM_THREADS": str(threads)}, capture_output=True,
                          text=True)
    if done.returncode != 0:
        return f"ended with {done.returncode}: {(done.stderr.strip().splitlines() or ['no line'])[0]}"
    stages = dict(re.findall(r"^([a-z ]+?) +([0-9.]+) +[0-9.]+$", done.stdout, re.M))
    peak = max(map(float, re.findall(r"^[a-z ]+? +[0-9.]+ +([0-9.]+)$", done.stdout, re.M)))
    rank = re.search(r"largest memory of one ([0-9.]+)", done.stdout)
    solver = re.search(r"^solver +(.*)$", done.stdout, re.M)
    iterations = re.search(r"(\d+) iterations", done.stdout)
    figures = {
        "unknowns": re.search(r"^size +(\d+)", done.stdout, re.M).group(1),
        "iterations": iterations.group(1) if iterations else "-",
        "set up": float(stages.get("set up", stages.get("factor", 0))),
        "solve": float(stages["solve"]),
        "whole": time.time() - start,
        "MB": float(rank.group(1)) if rank else peak,
        "residual": re.search(r"^residual \S+ +(\S+)", done.stdout, re.M).group(1),
        "largest": re.search(r"^largest displacement +(\S+)", done.stdout, re.M).group(1),
    }
    if solver and "direct" in solver.group(1):
        figures["iterations"] += " direct"
    return figures


def ccx_input(case, folder, build, preconditioner):
    """The deck of a case: what kestralum-batch exports of a cube, what bench_parts has written of a plate."""
    source = os.path.join(folder, "static.inp")
    if case.startswith("cube"):
        setting = os.path.join(folder, "own.txt")
        open(setting, "w").write(SETTING)
        subprocess.run([os.path.join(build, "kestralum-batch"), "export", "model.txt", "static.inp", "--setting", setting,
                        "--quiet"], cwd=folder, check=True, capture_output=True)
    deck, count = re.subn(r"^\*STATIC *$", f"*STATIC, SOLVER=ITERATIVE {preconditioner}", open(source).read(), flags=re.M)
    if count != 1:
        sys.exit(f"{source}: one *STATIC was expected")
    open(os.path.join(folder, "ccx.inp"), "w").write(deck)


def run_ccx(case, folder, build, preconditioner, threads):
    from bench_parts import run as run_measured
    ccx_input(case, folder, build, preconditioner)
    seconds, megabytes, text = run_measured(["ccx", "ccx"], folder, {"OMP_NUM_THREADS": str(threads)})
    iterations = re.findall(r"of iterations *= *(\d+)", text)[-1]
    return f"{iterations:>20} {'':8} {'':8} {seconds:8.2f} {megabytes:8.0f} {'':>10} {largest_of_frd(folder):.6e}"


def largest_of_frd(folder):
    """The largest displacement of any node in CalculiX's result file: three columns of twelve behind the number."""
    found, inside = 0.0, False
    for line in open(os.path.join(folder, "ccx.frd")):
        if line.startswith(" -4"):
            inside = line.split()[1] == "DISP"
        elif line.startswith(" -3"):
            inside = False
        elif inside and line.startswith(" -1"):
            found = max(found, sum(float(line[k:k + 12]) ** 2 for k in (13, 25, 37)) ** 0.5)
    return found


def run_modes(command, folder, threads):
    """Seconds of the iteration and of the whole run, memory, and the highest frequency."""
    start = time.time()
    done = subprocess.run(command, cwd=folder, env={**os.environ, "OMP_NUM_THREADS": str(threads)}, capture_output=True,
                          text=True)
    if done.returncode != 0:
        return f"ended with {done.returncode}: {(done.stderr.strip().splitlines() or ['no line'])[0]}"
    stages = {name.strip(): (float(a), float(b))
              for name, a, b in re.findall(r"^([a-z ]+?) +([0-9.]+) +([0-9.]+)$", done.stdout, re.M)}
    rank = re.search(r"largest memory of one ([0-9.]+)", done.stdout)
    memory = float(rank.group(1)) if rank else max(b for _, b in stages.values())
    modes = re.findall(r"^ *\d+ +([0-9.]+) +[0-9.e-]+ ", done.stdout, re.M)
    seconds = {name: stages.get(name, (0, 0))[0] for name in ("factor", "iterate", "check")}
    told = "  ".join(f"{name} {value:.2f}" for name, value in seconds.items())
    return f"{told}  whole {time.time() - start:.2f} s  {memory:.0f} MB  mode {len(modes)}: {modes[-1]} Hz"


def tell(case, how, figures):
    if isinstance(figures, str):
        print(f"{case:10} {how:14} {figures}", flush=True)
        return
    print(f"{case:10} {how:14} {figures['unknowns']:>9} {figures['iterations']:>10} {figures['set up']:8.2f} "
          f"{figures['solve']:8.2f} {figures['whole']:8.2f} {figures['MB']:8.0f} {figures['residual']:>10} "
          f"{figures['largest']}", flush=True)


def compare_modes(case, folder, build, ranks, own):
    setting = os.path.join(folder, "setting.txt")
    rest = ["eigen-lanczos", "model.txt", "--setting", setting, "--log", "log", "--quiet"]
    for solver in own:
        open(setting, "w").write(SETTING + f"SOLVER {solver}\n")
        for n in ranks:
            command = ["mpirun", "--oversubscribe", "-n", str(n), os.path.join(build, "kestralum-large"), *rest, "--vtu"]
            tell(case, f"{n} {solver}", run_modes(command, folder, 1))
    open(setting, "w").write(SETTING)
    tell(case, "own", run_modes([os.path.join(build, "kestralum-batch"), *rest], folder, max(ranks)))


def main():
    line = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    line.add_argument("build")
    line.add_argument("--ranks", default="1,2")
    line.add_argument("--own", action="append", default=[])
    line.add_argument("--ccx", action="store_true")
    line.add_argument("--modes", type=int, default=0)
    line.add_argument("cases", nargs="*", default=["cube30", "cube40", "cube60"])
    options = line.parse_args()
    build = os.path.abspath(options.build)
    ranks = [int(n) for n in options.ranks.split(",")]
    print(f"{'case':10} {'how':14} {'unknowns':>9} {'iterations':>10} {'set up':>8} {'solve':>8} {'whole':>8} {'MB':>8} "
          f"{'residual':>10} largest displacement")
    for case in options.cases:
        with tempfile.TemporaryDirectory() as folder:
            prepare(case, folder, options.modes)
            if options.modes:
                compare_modes(case, folder, build, ranks, options.own)
                continue
            for n in ranks:
                setting = os.path.join(folder, "setting.txt")
                open(setting, "w").write(SETTING + "SOLVER iterative\n")
                command = ["mpirun", "--oversubscribe", "-n", str(n), os.path.join(build, "kestralum-large"), "static",
                           "model.txt", "--setting", setting, "--log", "log", "--quiet", "--vtu"]
                tell(case, f"{n} rank{'s' if n > 1 else ''}", run(command, folder, 1))
            for solver in options.own:
                setting = os.path.join(folder, "own.txt")
                open(setting, "w").write(SETTING + f"SOLVER {solver}\n")
                command = [os.path.join(build, "kestralum-batch"), "static", "model.txt", "--setting", setting, "--log", "log",
                           "--quiet", "--vtu", "--tidy"]
                tell(case, f"own {solver}", run(command, folder, max(ranks)))
            for preconditioner in ("CHOLESKY", "SCALING") if options.ccx else ():
                tell(case, f"ccx {preconditioner}", run_ccx(case, folder, build, preconditioner, max(ranks)))


if __name__ == "__main__":
    main()
