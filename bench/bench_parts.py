#!/usr/bin/env python3
"""Parts with holes, ribs and fillets, meshed by gmsh into 10-node tetrahedra: the whole static run and ten modes
against CalculiX (its default solver) on the same meshes, time and memory, and what the program foretold.

Usage: bench_parts.py BUILD_DIR [RUNS] [CASE...]      cases: rod25 bracket50 flange100 plate57, and bracket50-modes,
bracket50-nonlinear; with `-skyline` behind a case the skyline is asked for too.
       bench_parts.py --mesh CASE FILE.vol            writes the mesh alone
"""
import os
import re
import statistics
import subprocess
import sys
import tempfile
import time

from bench_static import SETTING

GEOMETRY = {
    "bracket": """Box(1)={0,0,0,0.12,0.08,0.012}; Box(2)={0,0,0,0.012,0.08,0.1};
Box(3)={0,0.01,0,0.09,0.008,0.07}; Box(4)={0,0.062,0,0.09,0.008,0.07};
BooleanUnion(5)={Volume{1};Delete;}{Volume{2,3,4};Delete;};
e() = Curve In BoundingBox{0.1199,-1,-1,0.1201,1,1};
Fillet{5}{e()}{0.003}
Cylinder(10)={0.1,0.04,-0.01,0,0,0.05,0.012}; Cylinder(11)={-0.01,0.028,0.08,0.05,0,0,0.007};
Cylinder(12)={-0.01,0.052,0.08,0.05,0,0,0.007}; Cylinder(13)={0.03,-0.01,0.03,0,0.1,0,0.01};
""",
    "flange": """Cylinder(1)={0,0,0,0,0,0.02,0.1}; Cylinder(2)={0,0,0,0,0,0.1,0.05};
BooleanUnion(5)={Volume{1};Delete;}{Volume{2};Delete;};
e() = Curve In BoundingBox{-0.0501,-0.0501,0.0199,0.0501,0.0501,0.0201};
Fillet{5}{e()}{0.008}
Cylinder(10)={0,0,-0.01,0,0,0.2,0.035};
For i In {0:5}
 Cylinder(11+i)={0.075*Cos(i*Pi/3),0.075*Sin(i*Pi/3),-0.01,0,0,0.05,0.009};
EndFor
""",
    "plate": """Box(1)={0,0,0,0.4,0.3,0.02}; Box(5)={0,0,0,0.4,0.3,0.02};
For i In {0:3}
 For j In {0:2}
  Cylinder(10+3*i+j)={0.05+0.1*i,0.05+0.1*j,-0.01,0,0,0.05,0.02};
 EndFor
EndFor
Recursive Delete{ Volume{1}; }
""",
    "rod": """Cylinder(1)={0,0,0,0,0,0.03,0.03}; Cylinder(2)={0.16,0,0,0,0,0.03,0.02}; Box(3)={0,-0.012,0.007,0.16,0.024,0.016};
BooleanUnion(5)={Volume{1};Delete;}{Volume{2,3};Delete;};
e() = Curve In BoundingBox{0.005,-0.0121,0.006,0.158,0.0121,0.0241};
Fillet{5}{e()}{0.004}
Cylinder(10)={0,0,-0.01,0,0,0.05,0.018}; Cylinder(11)={0.16,0,-0.01,0,0,0.05,0.011};
""",
}
# places of the edges' middles in gmsh's order
MIDDLE = {(0, 1): 4, (1, 2): 5, (0, 2): 6, (0, 3): 7, (2, 3): 8, (1, 3): 9}
# kind, characteristic length
CASES = {"rod25": ("rod", 0.0075), "bracket50": ("bracket", 0.004), "flange100": ("flange", 0.0042),
         "plate57": ("plate", 0.007)}


def mesh(kind, length, folder):
    """Coordinates per node number and the elements' ten nodes in gmsh's order."""
    geo = os.path.join(folder, "part.geo")
    with open(geo, "w") as out:
        out.write('SetFactory("OpenCASCADE");\n' + GEOMETRY[kind] + """
c() = Volume{:}; BooleanDifference{ Volume{c(0)}; Delete; }{ Volume{c({1:#c()-1})}; Delete; }
Mesh.ElementOrder=2; Mesh.CharacteristicLengthFromCurvature=1; Mesh.MinimumElementsPerTwoPi=12; Mesh.Algorithm3D=1; Mesh.Optimize=1;
""" + f"Mesh.CharacteristicLengthMax={length}; Mesh.CharacteristicLengthMin={length / 3};\n")
    file = os.path.join(folder, "part.msh")
    subprocess.run(["gmsh", "-3", "-format", "msh2", "-o", file, geo], check=True, stdout=subprocess.DEVNULL)
    text = open(file).read().split("\n")
    at = text.index("$Nodes")
    places = {}
    for line in text[at + 2:at + 2 + int(text[at + 1])]:
        words = line.split()
        places[int(words[0])] = tuple(map(float, words[1:4]))
    at = text.index("$Elements")
    elements = []
    for line in text[at + 2:at + 2 + int(text[at + 1])]:
        words = list(map(int, line.split()))
        if words[1] == 11:
            elements.append(words[3 + words[2]:])
    for e in elements:  # straight edges: curved ones turn small elements inside out
        for (a, b), middle in MIDDLE.items():
            places[e[middle]] = tuple((u + v) / 2 for u, v in zip(places[e[a]], places[e[b]]))
    used = sorted({n for e in elements for n in e})
    number = {n: k + 1 for k, n in enumerate(used)}
    return [places[n] for n in used], [[number[n] for n in e] for e in elements]


def write_volume(path, places, elements):
    """As Netgen writes it: left-handed corners, then the middles of 01 02 03 12 13 23."""
    corner = (0, 2, 1, 3)
    order = list(corner)
    for a, b in ((0, 1), (0, 2), (0, 3), (1, 2), (1, 3), (2, 3)):
        order.append(MIDDLE[tuple(sorted((corner[a], corner[b])))])
    with open(path, "w") as out:
        out.write(f"mesh3d\ndimension\n3\nvolumeelements\n{len(elements)}\n")
        for e in elements:
            out.write("1 10 " + " ".join(str(e[k]) for k in order) + "\n")
        out.write(f"points\n{len(places)}\n")
        for x in places:
            out.write("%.15g %.15g %.15g\n" % x)
        out.write("endmesh\n")


def prepare(folder, kind, length):
    places, elements = mesh(kind, length, folder)
    axis = 2 if kind == "flange" else 0
    low, high = min(x[axis] for x in places), max(x[axis] for x in places)
    reach = 0.05 * (high - low)
    write_volume(os.path.join(folder, "part.vol"), places, elements)
    box = ["-1 1"] * 3
    box[axis] = f"{high - reach:.12g} {high:.12g}"
    plane = ["0 0"] * 3
    held = f"{'xyz'[axis]} {low:.12g} 0 0 0 0 0" if axis == 0 else f"z 0 0 0 0 {low:.12g} 0"
    selection = f"plane {held}"
    if kind == "rod":
        selection = f"volume x {low - 1e-6:.12g} {low + reach:.12g} -1 1 -1 1"
    with open(os.path.join(folder, "model.txt"), "w") as out:
        out.write(f"""material_info
STEEL 7800 206e9 0.3
%
mode_num 10 %
part_info
P blue STEEL VOL part.vol 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0
%
boundary_condition
C {selection}
%
apply_force
F area y -1000 {' '.join(box)}
%
END
""")
    fixed = [k + 1 for k, x in enumerate(places)
             if (x[axis] <= low + reach if kind == "rod" else abs(x[axis] - low) < 1e-9)]
    loaded = [k + 1 for k, x in enumerate(places) if x[axis] >= high - reach - 1e-12]
    for step in ("static", "modes"):
        with open(os.path.join(folder, step + ".inp"), "w") as out:
            out.write("*NODE,NSET=ALL\n")
            for k, x in enumerate(places):
                out.write("%d,%.10e,%.10e,%.10e\n" % ((k + 1,) + x))  # ccx reads twenty characters
            out.write("*ELEMENT,TYPE=C3D10,ELSET=BODY\n")
            for k, e in enumerate(elements):
                out.write(",".join(map(str, [k + 1] + e[:8] + [e[9], e[8]])) + "\n")
            out.write("*NSET,NSET=FIX\n" + "".join(f"{n},\n" for n in fixed) + "*BOUNDARY\nFIX,1,3\n")
            out.write("*MATERIAL,NAME=STEEL\n*ELASTIC\n206e9,0.3\n*DENSITY\n7800\n")
            out.write("*SOLID SECTION,ELSET=BODY,MATERIAL=STEEL\n*STEP\n")
            if step == "modes":
                out.write("*FREQUENCY\n10\n*NODE FILE\nU\n")
            else:
                out.write("*STATIC\n*CLOAD\n" + "".join(f"{n},2,{-1000 / len(loaded)}\n" for n in loaded))
                out.write("*NODE FILE\nU\n*EL FILE\nS,E\n")
            out.write("*END STEP\n")
    return len(places)


def run(command, folder, environment):
    """Seconds, peak megabytes and what was printed."""
    inherited = {k: v for k, v in os.environ.items() if k != "OPENBLAS_CORETYPE"}
    with open(os.path.join(folder, "out.txt"), "w+") as out:
        start = time.perf_counter()
        process = subprocess.Popen(command, cwd=folder, env={**inherited, **environment}, stdout=out, stderr=out)
        _, status, usage = os.wait4(process.pid, 0)
        seconds = time.perf_counter() - start
        out.seek(0)
        text = out.read()
    if status != 0:
        sys.exit(f"{command} ended with {status}:\n{text[-2000:]}")
    return seconds, usage.ru_maxrss * 1024e-6, text


def main():
    if sys.argv[1] == "--mesh":
        with tempfile.TemporaryDirectory() as folder:
            write_volume(sys.argv[3], *mesh(*CASES[sys.argv[2]], folder))
        return
    program = os.path.abspath(os.path.join(sys.argv[1], "kestralum-batch"))
    runs = int(sys.argv[2]) if len(sys.argv) > 2 else 3
    ccx = {"OMP_NUM_THREADS": "2", "OPENBLAS_NUM_THREADS": "1"}
    for case in sys.argv[3:] or ["rod25", "bracket50", "flange100", "bracket50-modes"]:
        name, *words = case.split("-")
        with tempfile.TemporaryDirectory() as folder:
            nodes = prepare(folder, *CASES[name])
            os.makedirs(os.path.join(folder, "log"))
            solvers = ["auto"] + [w for w in ("skyline", "iterative") if w in words]
            for solver in solvers:
                with open(os.path.join(folder, solver + ".txt"), "w") as out:
                    out.write(SETTING + f"SOLVER {solver}\n")
            commands = ["eigen-subspace", "eigen-lanczos"] if "modes" in words else ["static"]
            if "nonlinear" in words:
                commands = ["nonlinear"]
            results = {}
            for _ in range(runs):
                for command in commands:
                    for solver in solvers:
                        line = [program, command, "model.txt", "--setting", solver + ".txt", "--quiet"]
                        results.setdefault(f"{command} {solver}", []).append(run(line, folder, {}))
                if "nonlinear" not in words:
                    step = "modes" if "modes" in words else "static"
                    results.setdefault("ccx", []).append(run(["ccx", step], folder, ccx))
            print(f"{case}: {nodes} nodes")
            median = {k: [statistics.median(r[i] for r in v) for i in (0, 1)] for k, v in results.items()}
            for key, (seconds, megabytes) in median.items():
                ratio = ""
                if key != "ccx" and "ccx" in median:
                    ratio = f"  ratio {seconds / median['ccx'][0]:.2f}, memory {megabytes / median['ccx'][1]:.2f}"
                print(f"  {key:22s} {seconds:8.3f} s {megabytes:8.1f} MB{ratio}")
                text = results[key][-1][2]
                for what in (r"^solver .*$", r"^(?:order|assemble|factor|solve|iterate|check|recover|write) +[0-9.]+", r"^work .*$"):
                    found = re.findall(what, text, re.M)
                    if found:
                        print("      " + "  ".join(" ".join(f.split()) for f in found))
            sys.stdout.flush()


if __name__ == "__main__":
    main()
