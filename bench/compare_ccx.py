#!/usr/bin/env python3
"""Static displacements and frequencies of models against CalculiX (ccx) on the decks that `export` writes.

Usage: compare_ccx.py BUILD_DIR [--set NAME=EXPRESSION]... MODEL...
--set gives parameters of the models other values, as in the program, to compare one model at several sizes.
Prints a line per model: of all nodes, load case by load case, the largest difference of the displacements over the
largest displacement (ccx prints seven digits), and the largest relative difference of the frequencies that are not those of rigid
motions. Exit status 1 where a difference passes 1e-6 or, with hexahedra, a frequency 1e-5: ccx integrates the mass
of tetrahedra with fewer points, so that their frequencies are printed without a limit.
"""
import argparse
import os
import re
import struct
import subprocess
import sys
import tempfile

DISPLACEMENT_LIMIT, FREQUENCY_LIMIT = 1e-6, 1e-5
RIGID_FREQUENCY = 1.0  # Hz: below it a free body's motions, which are noise


def run(command, folder):
    # the kernels that OpenBLAS or the program takes by itself, whatever this shell has chosen
    inherited = {name: value for name, value in os.environ.items() if name != "OPENBLAS_CORETYPE"}
    done = subprocess.run(command, cwd=folder, env={"OMP_NUM_THREADS": "2", **inherited}, capture_output=True,
                          text=True)
    if done.returncode != 0:
        sys.exit(f"{' '.join(command)} ended with {done.returncode}:\n{done.stdout[-2000:]}{done.stderr[-2000:]}")
    return done.stdout


def read_vtu(path, names):
    """The named arrays of a grid with raw appended data."""
    data = open(path, "rb").read()
    head = data.index(b"<AppendedData")
    begin = data.index(b"_", head) + 1
    letters = {"Float64": "d", "Int64": "q", "Int32": "i", "UInt8": "B"}
    arrays = {}
    for kind, name, offset in re.findall(r'type="(\w+)" Name="([^"]+)"[^>]* offset="(\d+)"', data[:head].decode()):
        if name in names:
            at = begin + int(offset)
            size, = struct.unpack_from("<Q", data, at)
            letter = letters[kind]
            arrays[name] = struct.unpack_from(f"<{size // struct.calcsize(letter)}{letter}", data, at + 8)
    return arrays


def displacements_in_model_numbers(run_grid, model_grid):
    """The run numbers its nodes anew; the elements keep their order, so their nodes tell which is which."""
    ours = {}
    for own, of_run in zip(model_grid["connectivity"], run_grid["connectivity"]):
        ours[own + 1] = run_grid["displacement"][3 * of_run:3 * of_run + 3]
    return ours


def read_dat(path):
    """The displacements of the static steps and the frequencies in Hz."""
    steps, frequencies, reading = [], [], ""
    for line in open(path):
        words = line.split()
        if "displacements" in line:
            reading = "" if frequencies else "displacements"
            if reading:
                steps.append({})
        elif "E I G E N V A L U E" in line:
            reading = "frequencies" if "O U T P U T" in line else ""
        elif "P A R T I C I P A T I O N" in line:
            reading = ""
        elif reading == "displacements" and len(words) == 4:
            steps[-1][int(words[0])] = [float(word) for word in words[1:]]
        elif reading == "frequencies" and len(words) >= 4 and words[0].isdigit():
            frequencies.append(float(words[3]))
    return steps, frequencies


def our_frequencies(text):
    return [float(value) for value in re.findall(r"^ *\d+ +([0-9.eE+-]+) ", text.split("frequency", 1)[-1], re.M)]


def without_plastic(path):
    """A static analysis is linear."""
    text = open(path).read()
    open(path, "w").write(re.sub(r"^\*PLASTIC\n(?:[^*].*\n)*", "", text, flags=re.M))


def read_arguments(usage):
    """The program, the path of its settings, the options for it and the models."""
    parser = argparse.ArgumentParser(description=usage, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("build")
    parser.add_argument("models", nargs="+", metavar="MODEL")
    parser.add_argument("--set", action="append", default=[], metavar="NAME=EXPRESSION")
    given = parser.parse_intermixed_args()
    settings = os.path.join(os.path.dirname(os.path.dirname(os.path.abspath(__file__))), "setting", "setting.txt")
    options = [word for value in given.set for word in ("--set", value)]
    return (os.path.abspath(os.path.join(given.build, "kestralum-batch")), settings, options,
            [os.path.abspath(model) for model in given.models])


def label(model, options):
    return " ".join([os.path.splitext(os.path.basename(model))[0], *options[1::2]])


def compare(program, model, settings, options):
    worst = {}
    with tempfile.TemporaryDirectory() as folder:
        os.symlink(os.path.dirname(settings), os.path.join(folder, "setting"))
        base = os.path.splitext(os.path.basename(model))[0]
        for ending in ("inp", "vtu"):
            run([program, "export", model, f"deck.{ending}", "--quiet", *options], folder)
        deck = os.path.join(folder, "deck.inp")
        without_plastic(deck)
        run(["ccx", "-i", "deck"], folder)
        steps, frequencies = read_dat(os.path.join(folder, "deck.dat"))
        text = open(deck).read()
        steps = steps[:text.count("*STATIC")]
        cases = re.findall(r"^\*\* load case (.*)$", text, re.M) or [""] * len(steps)
        model_grid = read_vtu(os.path.join(folder, "deck.vtu"), ("connectivity",))
        hexahedra = "TYPE=C3D8" in text
        line = f"{label(model, options):28s}"
        for case, theirs in zip(cases, steps, strict=True):
            chosen = ["--case", case] if case else []
            run([program, "static", model, "--vtu", "--quiet", *chosen, *options], folder)
            grid = read_vtu(os.path.join(folder, "log", base + ".vtu"), ("displacement", "connectivity"))
            ours = displacements_in_model_numbers(grid, model_grid)
            if ours.keys() != theirs.keys():
                sys.exit(f"{model}: {len(ours)} nodes here, {len(theirs)} in ccx")
            largest = max(abs(value) for u in ours.values() for value in u)
            difference = max(abs(a - b) for n, u in ours.items() for a, b in zip(u, theirs[n]))
            difference /= largest or 1.0
            worst["displacement"] = max(worst.get("displacement", 0), difference)
            line += f" {case + ':' if case else ''} {len(ours):6d} nodes, largest displacement {largest:.6e} m," \
                    f" difference {difference:.1e}"
        if frequencies:
            said = run([program, "eigen-lanczos", model, "--quiet", *options], folder)
            own = our_frequencies(said)
            if len(own) != len(frequencies):
                sys.exit(f"{model}: {len(own)} modes here, {len(frequencies)} in ccx")
            pairs = [(a, b) for a, b in zip(own, frequencies) if max(a, b) > RIGID_FREQUENCY]
            difference = max((abs(a - b) / a for a, b in pairs), default=0)
            if hexahedra:
                worst["frequency"] = difference
            line += f"  {len(pairs)} frequencies, difference {difference:.1e}"
            line += "" if hexahedra else " (no limit)"
    good = worst.get("displacement", 0) <= DISPLACEMENT_LIMIT and worst.get("frequency", 0) <= FREQUENCY_LIMIT
    print(line + ("" if good else "  TOO LARGE"), flush=True)
    return good


def main():
    program, settings, options, models = read_arguments(__doc__)
    results = [compare(program, model, settings, options) for model in models]
    sys.exit(0 if all(results) else 1)


if __name__ == "__main__":
    main()
