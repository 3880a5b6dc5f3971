#!/usr/bin/env python3
"""A square tube that folds under a moving wall: mean force and length of a fold beside the formulas of Abramowicz and Jones
(Dynamic axial crushing of square tubes, Int. J. Impact Engng 2, 1984): P = 52.22 M0 (c/t)^(1/3), M0 = S t^2/4, for folds of
length 2 H, H = 0.983 (c^2 t)^(1/3). S is the stress of flow.

Usage: fold_tube.py BUILD_DIR [FOLDER]     FOLDER: of a run that is done already; otherwise it is run, for some minutes.
"""
import csv
import os
import shutil
import subprocess
import sys
import tempfile

HERE = os.path.join(os.path.dirname(os.path.abspath(__file__)), "..")
SPEED, WIDTH, WALL, LENGTH = 20.0, 0.03, 0.0015, 0.08  # m/s, m: of the wall, between middle planes, thickness, length
FLOW = 300e6  # Pa, without hardening


def run(build):
    folder = tempfile.mkdtemp()
    shutil.copytree(os.path.join(HERE, "setting"), os.path.join(folder, "setting"))
    for end in ("txt", "ana"):
        shutil.copy(os.path.join(HERE, "verify", "explicit", "tube_fold." + end), folder)
    subprocess.run([os.path.abspath(os.path.join(build, "kestralum-batch")), "explicit", "tube_fold.txt", "--quiet"],
                   cwd=folder, check=True)
    return folder


def sections(path):
    """The tokens of each section of a displacement file."""
    found, name = {}, None
    for line in open(path):
        word = line.strip()
        if word == "%":
            name = None
        elif name is None and word and word[0].isalpha():
            name = word
            found[name] = []
        elif name:
            found[name].append(line.split())
    return found


def folds(path, frame=-1):
    """Coordinates at rest, from the free end down, where the middle line of a side bulges most, out (+) or in (-)."""
    of = sections(path)
    nodes = [[float(v) for v in row] for row in of["Node"][1:]]
    middle = (WIDTH + WALL) / 2
    line = sorted((p[2], float(of["mode_vec"][3 * n + 1][frame])) for n, p in enumerate(nodes)
                  if abs(p[0]) < 1e-6 and abs(p[1] + middle) < 1e-6)
    peaks = []
    for before, here, after in zip(line, line[1:], line[2:]):
        if abs(here[1]) > 0.5 * WALL and abs(here[1]) >= abs(before[1]) and abs(here[1]) > abs(after[1]):
            peaks.append((here[0], -here[1]))
    return peaks


def main():
    folder = sys.argv[2] if len(sys.argv) > 2 else run(sys.argv[1])
    name = "tube_fold"
    rows = list(csv.DictReader(open(os.path.join(folder, "log", f"history_{name}.csv"))))
    way = [SPEED * float(r["time"]) for r in rows]
    force = [abs(float(r["wall_HEAD_z"])) for r in rows]
    height = 0.983 * (WIDTH**2 * WALL) ** (1 / 3)
    mean = 52.22 * FLOW * WALL**2 / 4 * (WIDTH / WALL) ** (1 / 3)
    print(f"largest force {max(force) / 1e3:.1f} kN, squash load {4 * WIDTH * WALL * FLOW / 1e3:.1f} kN")
    work = first = 0.0
    for a, b, fa, fb in zip(way, way[1:], force, force[1:]):
        work += 0.5 * (fa + fb) * (b - a)
        if b <= 0.1 * LENGTH:
            first, start = work, b
        if any(abs(b - share * LENGTH) < 0.5 * (b - a) for share in (0.2, 0.3, 0.4)):
            print(f"crushed by {1e3 * b:4.1f} mm: mean force {work / b / 1e3:5.2f} kN, after the first {1e3 * start:.1f} mm "
                  f"{(work - first) / (b - start) / 1e3:5.2f} kN; formula {mean / 1e3:.2f} kN")
    print("bulges [mm at rest: mm]:", ", ".join(f"{1e3 * z:.1f}: {1e3 * u:+.1f}" for z, u in
                                              folds(os.path.join(folder, "log", f"disp_{name}.txt"))))
    print(f"length of a fold by the formula {2e3 * height:.1f} mm")
    print("largest error of the energy balance", max(abs(float(r["drift"])) for r in rows))


if __name__ == "__main__":
    main()
