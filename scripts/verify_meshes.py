#!/usr/bin/env python3
"""Writes the meshes of verify/ anew, as Gmsh files of format 2.2: scripts/verify_meshes.py [FOLDER]

A mesh is a grid of cells over (u, v, w) that a function places in space: 8-node hexahedra, or six tetrahedra a cell, of
4 nodes, or of 10 whose mid-side nodes stand on the curved surfaces too. Sides of the grid are named groups. Where a
problem is computed on further meshes, their models are copies of the first one's with another mesh in them.
"""
import itertools
import math
import os
import re
import shutil
import sys

GMSH = {"hexahedron": 5, "tetrahedron": 11, "tetrahedron4": 4, "quadrangle": 3, "triangle": 9, "triangle3": 2}


def steps(n, ratio=1.0):
    """n intervals from 0 to 1 whose last one is `ratio` times the first."""
    q = ratio ** (1 / (n - 1)) if n > 1 else 1.0
    ends = [0.0]
    for k in range(n):
        ends.append(ends[-1] + q**k)
    return [e / ends[-1] for e in ends]


def lattice(lines):
    """The lines with the middle of each interval between them."""
    out = [lines[0]]
    for a, b in zip(lines, lines[1:]):
        out += [(a + b) / 2, b]
    return out


def write_msh(path, nodes, solids, faces, volumes=None):
    """nodes: places; solids: (kind, nodes from 0, volume group or None); faces: {group: [(kind, nodes)]}."""
    names = sorted({group for _, _, group in solids}) + list(faces)
    number = {name: k + 1 for k, name in enumerate(names)}
    rows = [(kind, number[group], ids) for kind, ids, group in solids]
    rows += [(kind, number[group], ids) for group in faces for kind, ids in faces[group]]
    with open(path, "w") as out:
        print("$MeshFormat\n2.2 0 8\n$EndMeshFormat\n$PhysicalNames", file=out)
        print(len(names), file=out)
        for name in names:
            print(2 if name in faces else 3, number[name], f'"{name}"', file=out)
        print("$EndPhysicalNames\n$Nodes", file=out)
        print(len(nodes), file=out)
        for k, place in enumerate(nodes):
            print(k + 1, *(f"{c + 0.0:.12g}" if abs(c) > 1e-14 else "0" for c in place), file=out)
        print("$EndNodes\n$Elements", file=out)
        print(len(rows), file=out)
        for k, (kind, group, ids) in enumerate(rows):
            print(k + 1, GMSH[kind], 2, group, group, *(i + 1 for i in ids), file=out)
        print("$EndElements", file=out)


def kuhn(i, j, k):
    """The six tetrahedra of the cell at lattice point (i, j, k), corners two lattice steps apart."""
    for order in itertools.permutations(range(3)):
        at, corners = [i, j, k], [(i, j, k)]
        for axis in order:
            at[axis] += 2
            corners.append(tuple(at))
        if order in ((0, 2, 1), (1, 0, 2), (2, 1, 0)):
            corners[2], corners[3] = corners[3], corners[2]
        yield corners


def midpoint(a, b):
    return tuple((p + q) // 2 for p, q in zip(a, b))


def with_middles(c):
    """Corners and mid-side nodes of a tetrahedron (4) or triangle (3) in Gmsh's order."""
    pairs = [(0, 1), (1, 2), (0, 2)] if len(c) == 3 else [(0, 1), (1, 2), (0, 2), (0, 3), (2, 3), (1, 3)]
    return list(c) + [midpoint(c[a], c[b]) for a, b in pairs]


def on_side(points, side, size):
    axis, end = "uvw".index(side[0]), side[1] == "1"
    return all(p[axis] == (size[axis] if end else 0) for p in points)


HEX_FACES = [(0, 3, 2, 1), (4, 5, 6, 7), (0, 1, 5, 4), (1, 2, 6, 5), (2, 3, 7, 6), (3, 0, 4, 7)]
TET_FACES = [(0, 2, 1), (0, 1, 3), (1, 2, 3), (2, 0, 3)]


def grid_mesh(path, kind, lines, place, sides, group=lambda u, v, w: "BODY", closed=False):
    """lines: three lists of u, v, w; sides: {name: "u0" "u1" "v0" ...}; group: volume group of a cell's middle;
    closed: v = 1 is v = 0 again."""
    at = [lattice(line) for line in lines]
    size = [len(a) - 1 for a in at]
    number, nodes, solids = {}, [], []
    faces = {name: [] for name in sides}

    def node(p):
        if closed and p[1] == size[1]:
            p = (p[0], 0, p[2])
        if p not in number:
            number[p] = len(nodes)
            nodes.append(place(*(at[c][p[c]] for c in range(3))))
        return number[p]

    def add_faces(element, table, face_kind):
        for face in table:
            points = [element[c] for c in face]
            for name, side in sides.items():
                if on_side(points, side, size):
                    shown = with_middles(points) if face_kind == "triangle" else points
                    faces[name].append((face_kind, [node(p) for p in shown]))

    for k, j, i in itertools.product(*(range(0, size[c], 2) for c in (2, 1, 0))):
        volume = group(*(at[c][p + 1] for c, p in enumerate((i, j, k))))
        if kind == "hex":
            ring = [(0, 0), (2, 0), (2, 2), (0, 2)]
            cell = [(i + a, j + b, k + c) for c in (0, 2) for a, b in ring]
            solids.append(("hexahedron", [node(p) for p in cell], volume))
            add_faces(cell, HEX_FACES, "quadrangle")
            continue
        for corners in kuhn(i, j, k):
            if kind == "tet4":
                solids.append(("tetrahedron4", [node(p) for p in corners], volume))
                add_faces(corners, TET_FACES, "triangle3")
                continue
            solids.append(("tetrahedron", [node(p) for p in with_middles(corners)], volume))
            add_faces(corners, TET_FACES, "triangle")
    write_msh(path, nodes, solids, faces)


# ---------------------------------------------------------------------------------------------------- shapes


def box(x, y, z):
    return lambda u, v, w: (u * x, v * y, w * z)


def ellipses(z0, z1):
    """LE1, LE10: u from the inner ellipse to the outer one, v from the x axis to the y axis, w up."""

    def place(u, v, w):
        c, s = math.cos(v * math.pi / 2), math.sin(v * math.pi / 2)
        a, b = 2 + u * 1.25, 1 + u * 1.75
        return (a * c, b * s, z0 + w * (z1 - z0))

    return place


def ring(r0, r1, angle, length, start=0.0):
    """u outwards, v around from `start`, w along z; angles in degrees."""

    def place(u, v, w):
        r, t = r0 + u * (r1 - r0), math.radians(start + v * angle)
        return (r * math.cos(t), r * math.sin(t), w * length)

    return place


def le11(u, v, w):
    """LE11: u from the inner surface to the outer one, v around z, w along the meridian: sphere to w = 0.4,
    taper to 0.8, cylinder to 1."""
    r0 = 0.5**0.5
    if w <= 0.4:
        s = w / 0.4
        inner = (math.cos(s * math.pi / 4), math.sin(s * math.pi / 4))
        top = math.asin(0.5)
        outer = (1.4 * math.cos(s * top), 1.4 * math.sin(s * top))
    elif w <= 0.8:
        s = (w - 0.4) / 0.4
        inner = (r0, r0 + s * (1.39 - r0))
        outer = (1.4 * math.cos(math.asin(0.5)) * (1 - s) + s, 0.7 + s * 0.69)
    else:
        s = (w - 0.8) / 0.2
        inner, outer = (r0, 1.39 + s * 0.4), (1.0, 1.39 + s * 0.4)
    r, z = (inner[c] + u * (outer[c] - inner[c]) for c in range(2))
    t = v * math.pi / 2
    return (r * math.cos(t), r * math.sin(t), z)


def slanted_beam(slant):
    """MacNeal and Harder's straight beam 6 x 0.2 x 0.1: slant(k) is the way that the k-th of the seven lines
    across the depth leans, in units of the depth at 45 degrees."""

    def place(u, v, w):
        x = 6 * u
        k = math.floor(x + 1e-9)
        f = x - k
        lean = (1 - f) * slant(k) + (f * slant(k + 1) if f > 1e-9 else 0)
        return (x + lean * 0.2 * (v - 0.5), 0.2 * v, 0.1 * w)

    return place


def twisted(u, v, w):
    """Length 12 along x, width 1.1, depth 0.32, turned by 90 degrees about x from the root to the tip: the width
    lies along z at the root and along y at the tip."""
    t = math.pi / 2 * (1 - u)
    y, z = 1.1 * (v - 0.5), 0.32 * (w - 0.5)
    return (12 * u, y * math.cos(t) - z * math.sin(t), y * math.sin(t) + z * math.cos(t))


def roof(u, v, w):
    """A quarter of the Scordelis-Lo roof: u around from the crown to the free edge, v along y from the diaphragm to
    the middle, w through the thickness; z upwards."""
    r, t = 24.875 + 0.25 * w, math.radians(40 * u)
    return (r * math.sin(t), 25 * v, r * math.cos(t))


def cook(u, v, w):
    return (48 * u, (1 - u) * 44 * v + u * (44 + 16 * v), 0.5 * w)


PATCH_INNER = [
    (0.249, 0.342, 0.192), (0.826, 0.288, 0.288), (0.850, 0.649, 0.263), (0.273, 0.750, 0.230),
    (0.320, 0.186, 0.643), (0.677, 0.305, 0.683), (0.788, 0.693, 0.644), (0.165, 0.745, 0.702),
]


def wedge(u, v, w):
    """A plate 0.1 thick with a side that leans from (0, 0) to (0.2, 0.4) and three sides along the axes."""
    return ((1 - u) * 0.2 * v + u * 0.8, 0.4 * v, 0.1 * w)


def model_like(folder, name, mesh, model):
    """Writes the model `name` as a copy of another one of the folder, with this mesh for its only one."""
    with open(f"{folder}/{model}.txt") as other:
        text = other.read()
    if "tet4" in mesh:
        text = text.replace("10-node", "4-node")
    with open(f"{folder}/{name}.txt", "w") as out:
        out.write(re.sub(r"[\w]+\.msh", f"{mesh}.msh", text))
    copy_control(folder, name, model)


def copy_control(folder, name, model):
    """The control file goes with the model's name."""
    if os.path.exists(f"{folder}/{model}.ana") and name != model:
        shutil.copyfile(f"{folder}/{model}.ana", f"{folder}/{name}.ana")


def meshed_model(folder, name, model, meshes):
    """Writes the model `name` as a copy of one whose parts are made from shapes, with meshes {part: mesh} for them
    where they stand."""
    with open(f"{folder}/{model}.txt") as other:
        text = other.read().replace("hexahedra enhanced %\n", "")
    for part, mesh in meshes.items():
        number = r"\s+[^\s]+"
        text, found = re.subn(rf"(\n +{part} +\w+ +\w+ +)[A-Z_]+{number * 12}",
                              rf"\g<1>MSH  {mesh}.msh 0 0 0 0 0   0 0 0 0 0 0", text)
        assert found == 1, (model, part)
    with open(f"{folder}/{name}.txt", "w") as out:
        out.write(text)
    copy_control(folder, name, model)


def further(folder, model, kind, name, lines, place, sides, **more):
    """A mesh and its model, both `name`, after the model."""
    grid_mesh(f"{folder}/{name}.msh", kind, lines, place, sides, **more)
    model_like(folder, name, name, model)


def turned(degrees, place):
    c, s = math.cos(math.radians(degrees)), math.sin(math.radians(degrees))

    def out(u, v, w):
        x, y, z = place(u, v, w)
        return (c * x - s * y, s * x + c * y, z)

    return out


def cut_cells(nodes, cells, n):
    """Each hexahedron cut into n x n x n of its own trilinear map: the nodes and cells of that."""
    out, number, finer = [], {}, []

    def node(cell, at):
        u, v, w = (t / n for t in at)
        shape = [(1 - u) * (1 - v) * (1 - w), u * (1 - v) * (1 - w), u * v * (1 - w), (1 - u) * v * (1 - w),
                 (1 - u) * (1 - v) * w, u * (1 - v) * w, u * v * w, (1 - u) * v * w]
        place = tuple(sum(shape[k] * nodes[cell[k]][c] for k in range(8)) for c in range(3))
        key = tuple(round(p, 9) for p in place)
        if key not in number:
            number[key] = len(out)
            out.append(place)
        return number[key]

    corners = [(0, 0, 0), (1, 0, 0), (1, 1, 0), (0, 1, 0), (0, 0, 1), (1, 0, 1), (1, 1, 1), (0, 1, 1)]
    for cell in cells:
        for at in itertools.product(range(n), repeat=3):
            finer.append([node(cell, [a + c for a, c in zip(at, corner)]) for corner in corners])
    return out, finer


def concentric(u, v):
    """A square of -1 to 1 onto the unit circle, squares on circles (Shirley, Chiu 1997)."""
    r = max(abs(u), abs(v))
    if r == 0:
        return (0.0, 0.0)
    t = math.pi / 4 * v / u if abs(u) >= abs(v) else math.pi / 2 - math.pi / 4 * u / v
    r = math.copysign(r, u if abs(u) >= abs(v) else v)
    return (r * math.cos(t), r * math.sin(t))


def disc(radius, length):
    def place(u, v, w):
        x, y = concentric(2 * u - 1, 2 * v - 1)
        return (radius * x, radius * y, w * length)

    return place


def quarter_disc(radius, length):
    def place(u, v, w):
        x, y = concentric(u, v)
        return (radius * x, radius * y, w * length)

    return place


def patch_mesh(path, kind, cuts=1):
    """MacNeal and Harder's solid patch: a distorted hexahedron inside a unit cube and six around it, each cut into
    cuts^3. As tetrahedra of 10 ("tet") or 4 nodes: each face cut from its lowest node, each hexahedron filled from
    its middle."""
    ring4 = [(0, 0), (1, 0), (1, 1), (0, 1)]
    nodes = [(float(a), float(b), float(c)) for c in (0, 1) for a, b in ring4] + PATCH_INNER
    inner = list(range(8, 16))
    cells = [inner] + [[f[0], f[3], f[2], f[1], f[0] + 8, f[3] + 8, f[2] + 8, f[1] + 8] for f in HEX_FACES]
    if cuts > 1:
        nodes, cells = cut_cells(nodes, cells, cuts)

    def is_outer(face):
        return any(abs(nodes[face[0]][c] - end) < 1e-9 and all(abs(nodes[n][c] - end) < 1e-9 for n in face)
                   for c in range(3) for end in (0, 1))

    outer = [list(f) for f in HEX_FACES]
    if cuts > 1:
        outer = [f for f in ([cell[c] for c in face] for cell in cells for face in HEX_FACES) if is_outer(f)]
    if kind == "hex":
        write_msh(path, nodes, [("hexahedron", c, "BODY") for c in cells],
                  {"SKIN": [("quadrangle", f) for f in outer]})
        return
    middles = {}

    def middle(a, b):
        key = (min(a, b), max(a, b))
        if key not in middles:
            middles[key] = len(nodes)
            nodes.append(tuple((p + q) / 2 for p, q in zip(nodes[a], nodes[b])))
        return middles[key]

    def triangles(face):
        low = face.index(min(face))
        f = face[low:] + face[:low]
        return [(f[0], f[1], f[2]), (f[0], f[2], f[3])]

    def quadratic(c):
        pairs = [(0, 1), (1, 2), (0, 2)] if len(c) == 3 else [(0, 1), (1, 2), (0, 2), (0, 3), (2, 3), (1, 3)]
        return list(c) + [middle(c[a], c[b]) for a, b in pairs]

    solids = []
    for cell in cells:
        centre = len(nodes)
        nodes.append(tuple(sum(nodes[n][c] for n in cell) / 8 for c in range(3)))
        for face in HEX_FACES:
            for a, b, c in triangles([cell[n] for n in face]):
                if kind == "tet4":
                    solids.append(("tetrahedron4", [a, c, b, centre], "BODY"))
                else:
                    solids.append(("tetrahedron", quadratic([a, c, b, centre]), "BODY"))
    skin = [("triangle3", t) if kind == "tet4" else ("triangle", quadratic(t)) for f in outer for t in triangles(f)]
    write_msh(path, nodes, solids, {"SKIN": skin})


# ---------------------------------------------------------------------------------------------------- the cases


def nafems():
    for name, z0, z1, cells in (
        ("le10_hex", -0.3, 0.3, ("hex", steps(20, 3), steps(16, 3), steps(12))),
        ("le10_tet", -0.3, 0.3, ("tet", steps(5, 2), steps(7, 2), steps(2))),
        ("le1_hex", 0, 0.05, ("hex", steps(14, 4), steps(20, 4), steps(1))),
        ("le1_tet", 0, 0.05, ("tet", steps(6, 3), steps(9, 3), steps(1))),
    ):
        sides = {"ON_X": "v0", "ON_Y": "v1", "OUTER": "u1", "BOTTOM": "w0", "TOP": "w1"}
        grid_mesh(f"nafems/{name}.msh", cells[0], cells[1:], ellipses(z0, z1), sides)
    sides = {"ON_X": "v0", "ON_Y": "v1", "OUTER": "u1", "BOTTOM": "w0", "TOP": "w1"}
    for model, z0, z1, kind, name, lines in (
        ("le10_hex", -0.3, 0.3, "hex", "le10_hex_coarse", (steps(10, 3), steps(8, 3), steps(6))),
        ("le10_tet", -0.3, 0.3, "tet", "le10_tet_coarse", (steps(3, 2), steps(4, 2), steps(1))),
        ("le10_tet", -0.3, 0.3, "tet4", "le10_tet4_coarse", (steps(8, 3), steps(6, 3), steps(4))),
        ("le10_tet", -0.3, 0.3, "tet4", "le10_tet4", (steps(12, 3), steps(10, 3), steps(6))),
        ("le1_hex", 0, 0.05, "hex", "le1_hex_coarse", (steps(7, 4), steps(10, 4), steps(1))),
        ("le1_tet", 0, 0.05, "tet", "le1_tet_coarse", (steps(3, 3), steps(5, 3), steps(1))),
        ("le1_tet", 0, 0.05, "tet4", "le1_tet4_coarse", (steps(7, 4), steps(10, 4), steps(1))),
        ("le1_tet", 0, 0.05, "tet4", "le1_tet4", (steps(14, 4), steps(20, 4), steps(1))),
    ):
        further("nafems", model, kind, name, lines, ellipses(z0, z1), sides)
    sides = {"ON_X": "v0", "ON_Y": "v1", "BOTTOM": "w0", "TOP": "w1"}
    further("nafems", "le11_hex", "hex", "le11_hex_coarse", (steps(3, 1.5), steps(6), steps(10)), le11, sides)
    further("nafems", "le11_tet", "tet", "le11_tet_coarse", (steps(3, 1.5), steps(6), steps(10)), le11, sides)
    further("nafems", "le11_tet", "tet4", "le11_tet4_coarse", (steps(3, 1.5), steps(6), steps(10)), le11, sides)
    further("nafems", "le11_tet", "tet4", "le11_tet4", (steps(5, 1.5), steps(9), steps(20)), le11, sides)
    grid_mesh("nafems/le11_hex.msh", "hex", (steps(6, 1.5), steps(12), steps(20)), le11, sides)
    grid_mesh("nafems/le11_tet.msh", "tet", (steps(5, 1.5), steps(6), steps(20)), le11, sides)
    sides = {"SIDE_X0": "u0", "SIDE_X1": "u1", "SIDE_Y0": "v0", "SIDE_Y1": "v1"}
    grid_mesh("nafems/fv52_tet.msh", "tet", (steps(6), steps(6), steps(2)),
              lambda u, v, w: (10 * u, 10 * v, w - 0.5), sides)
    for kind, name, lines in (("tet", "fv52_tet_coarse", (steps(4), steps(4), steps(1))),
                              ("tet4", "fv52_tet4_coarse", (steps(6), steps(6), steps(2))),
                              ("tet4", "fv52_tet4", (steps(12), steps(12), steps(4)))):
        further("nafems", "fv52_tet", kind, name, lines, lambda u, v, w: (10 * u, 10 * v, w - 0.5), sides)


def macneal():
    ends = {"ROOT": "u0", "TIP": "u1"}
    beam = (steps(6), steps(1), steps(1))
    slants = {"regular": lambda k: 0, "trapezoidal": lambda k: (1 if k % 2 else -1) if 0 < k < 6 else 0,
              "parallelogram": lambda k: 1 if 0 < k < 6 else 0}
    for name, slant in slants.items():
        grid_mesh(f"macneal/beam_{name}_hex.msh", "hex", beam, slanted_beam(slant), ends)
    straight = box(6, 0.2, 0.1)
    grid_mesh("macneal/beam_fine_hex.msh", "hex", (steps(24), steps(8), steps(8)), straight, ends)
    grid_mesh("macneal/beam_tet.msh", "tet", (steps(18), steps(4), steps(2)), straight, ends)
    for kind, name, lines in (("tet", "beam_tet_coarse", (steps(6), steps(1), steps(1))),
                              ("tet4", "beam_tet4_coarse", (steps(24), steps(2), steps(2))),
                              ("tet4", "beam_tet4", (steps(48), steps(4), steps(4)))):
        further("macneal", "beam_tet", kind, name, lines, straight, ends)
    curve = ring(4.12, 4.32, 90, 0.1)
    ends = {"ROOT": "v0", "TIP": "v1"}
    for kind, name, lines in (("tet", "curved_tet_coarse", (steps(1), steps(6), steps(1))),
                              ("tet4", "curved_tet4_coarse", (steps(2), steps(24), steps(2))),
                              ("tet4", "curved_tet4", (steps(4), steps(48), steps(4)))):
        further("macneal", "curved_tet", kind, name, lines, curve, ends)
    grid_mesh("macneal/curved_hex.msh", "hex", (steps(1), steps(6), steps(1)), curve, ends)
    grid_mesh("macneal/curved_fine_hex.msh", "hex", (steps(6), steps(24), steps(4)), curve, ends)
    grid_mesh("macneal/curved_tet.msh", "tet", (steps(4), steps(20), steps(2)), curve, ends)
    ends = {"ROOT": "u0", "TIP": "u1"}
    grid_mesh("macneal/twisted_hex.msh", "hex", (steps(12), steps(2), steps(1)), twisted, ends)
    grid_mesh("macneal/twisted_fine_hex.msh", "hex", (steps(24), steps(4), steps(2)), twisted, ends)
    grid_mesh("macneal/twisted_tet.msh", "tet", (steps(12), steps(2), steps(1)), twisted, ends)
    for kind, name, lines in (("tet", "twisted_tet_coarse", (steps(6), steps(1), steps(1))),
                              ("tet4", "twisted_tet4_coarse", (steps(12), steps(2), steps(1))),
                              ("tet4", "twisted_tet4", (steps(24), steps(4), steps(2)))):
        further("macneal", "twisted_tet", kind, name, lines, twisted, ends)
    sides = {"DIAPHRAGM": "v0", "MIDDLE": "v1", "CROWN": "u0", "EDGE": "u1"}
    further("macneal", "roof_hex", "hex", "roof_hex_coarse", (steps(8), steps(8), steps(1)), roof, sides)
    for kind, name, lines in (("tet", "roof_tet_coarse", (steps(7), steps(7), steps(1))),
                              ("tet4", "roof_tet4_coarse", (steps(8), steps(8), steps(1))),
                              ("tet4", "roof_tet4", (steps(16), steps(16), steps(1)))):
        further("macneal", "roof_tet", kind, name, lines, roof, sides)
    grid_mesh("macneal/roof_hex.msh", "hex", (steps(16), steps(16), steps(1)), roof, sides)
    grid_mesh("macneal/roof_tet.msh", "tet", (steps(14), steps(14), steps(1)), roof, sides)
    sides = {"LEFT": "u0", "RIGHT": "u1", "BOTTOM": "w0"}
    for n in (4, 16):
        grid_mesh(f"macneal/cook{n}_hex.msh", "hex", (steps(n), steps(n), steps(1)), cook, sides)
    grid_mesh("macneal/cook_tet.msh", "tet", (steps(8), steps(8), steps(1)), cook, sides)
    for kind, name, n in (("tet", "cook_tet_coarse", 4), ("tet4", "cook_tet4_coarse", 8), ("tet4", "cook_tet4", 16)):
        further("macneal", "cook_tet", kind, name, (steps(n), steps(n), steps(1)), cook, sides)
    radii = [(r - 3) / 6 for r in (3, 3.5, 4.2, 5.2, 6.75, 9)]
    sides = {"INNER": "u0", "ON_X": "v0", "ON_Y": "v1", "BOTTOM": "w0", "TOP": "w1"}
    for kind in ("hex", "tet"):
        grid_mesh(f"macneal/cylinder_{kind}.msh", kind, (radii, steps(9), steps(1)), ring(3, 9, 90, 1), sides)
        patch_mesh(f"macneal/patch_{kind}.msh", kind)
    fine = lattice(radii)
    quarter = ring(3, 9, 90, 1)
    further("macneal", "cylinder_hex", "hex", "cylinder_hex_fine", (fine, steps(18), steps(1)), quarter, sides)
    further("macneal", "cylinder_tet", "tet", "cylinder_tet_fine", (fine, steps(18), steps(1)), quarter, sides)
    further("macneal", "cylinder_tet", "tet4", "cylinder_tet4", (radii, steps(9), steps(1)), quarter, sides)
    further("macneal", "cylinder_tet", "tet4", "cylinder_tet4_fine", (fine, steps(18), steps(1)), quarter, sides)
    patch_mesh("macneal/patch_tet4.msh", "tet4")
    model_like("macneal", "patch_tet4", "patch_tet4", "patch_tet")
    for kind in ("hex", "tet", "tet4"):
        patch_mesh(f"macneal/patch_{kind}_fine.msh", kind, 2)
        model_like("macneal", f"patch_{kind}_fine", f"patch_{kind}_fine", f"patch_{kind}")


def plastic():
    grid_mesh("plastic/cantilever_tet.msh", "tet", (steps(1), steps(4), steps(20)), box(0.14, 0.2, 2),
              {"ROOT": "w0", "TIP": "w1"})
    further("plastic", "cantilever_tet", "tet", "cantilever_tet_coarse", (steps(1), steps(2), steps(10)),
            box(0.14, 0.2, 2), {"ROOT": "w0", "TIP": "w1"})
    half, ends = box(0.07, 0.2, 2), {"ROOT": "w0", "TIP": "w1"}
    for model, kind, name, lines, place in (
        ("cantilever_tet", "tet4", "cantilever_tet4", (steps(2), steps(6), steps(40)), box(0.14, 0.2, 2)),
        ("cantilever_tet", "tet4", "cantilever_tet4_coarse", (steps(2), steps(4), steps(20)), box(0.14, 0.2, 2)),
        ("hinge_tet", "tet", "hinge_tet_coarse", (steps(1), steps(4), steps(9, 8)), half),
        ("hinge_tet", "tet4", "hinge_tet4", (steps(1), steps(8), steps(40)), half),
        ("hinge_tet", "tet4", "hinge_tet4_coarse", (steps(1), steps(4), steps(20)), half),
    ):
        further("plastic", model, kind, name, lines, place, ends)
    grid_mesh("plastic/hinge_tet.msh", "tet", (steps(1), steps(8), steps(18, 8)), box(0.07, 0.2, 2),
              {"ROOT": "w0", "TIP": "w1"})


def explicit():
    rod = (quarter_disc(0.0032, 0.0324), {"FOOT_END": "w0"})
    for kind, end, n, along in (("tet", "_coarse", 2, 16), ("tet", "", 3, 24), ("tet4", "_coarse", 4, 32),
                                ("tet4", "", 6, 48)):
        grid_mesh(f"explicit/taylor_{kind}{end}.msh", kind, (steps(n), steps(n), steps(along)), *rod)
        meshed_model("explicit", f"taylor_{kind}{end}", "taylor_hex", {"ROD": f"taylor_{kind}{end}"})


def bodies():
    """Tetrahedra for the models whose hexahedra are made from shapes."""

    def both(model, part, place, cells, sides, closed=False):
        for kind, meshes in cells.items():
            for end, lines in zip(("_coarse", ""), meshes):
                name = f"{model}_{kind}{end}"
                grid_mesh(f"bodies/{name}.msh", kind, lines, place, sides, closed=closed)
                meshed_model("bodies", name, model, {part: name})

    def cells(*sizes):
        return tuple(steps(n) for n in sizes)

    ends = {"ROOT": "w0", "END": "w1"}
    both("bar_wall", "BAR", box(0.2, 0.02, 0.02),
         {"tet": (cells(20, 1, 1), cells(50, 1, 1)), "tet4": (cells(40, 1, 1), cells(100, 1, 1))}, {"FRONT": "u0"})
    both("free_beam", "BEAM", box(0.02, 0.02, 1),
         {"tet": (cells(1, 1, 10), cells(1, 1, 30)), "tet4": (cells(2, 2, 20), cells(2, 2, 60))}, ends)
    both("free_ring", "RING", ring(0.39, 0.41, 360, 0.02),
         {"tet": (cells(1, 32, 1), cells(2, 64, 2)), "tet4": (cells(2, 48, 2), cells(2, 96, 2))},
         {"BORE": "u0", "RIM": "u1"}, closed=True)
    both("shaft", "SHAFT", disc(0.02, 0.4),
         {"tet": (cells(2, 2, 8), cells(4, 4, 16)), "tet4": (cells(3, 3, 12), cells(6, 6, 24))}, ends)
    both("tube", "TUBE", ring(0.025, 0.03, 360, 0.4),
         {"tet": (cells(1, 16, 8), cells(1, 32, 16)), "tet4": (cells(1, 24, 16), cells(2, 36, 24))}, ends, closed=True)
    both("round_plate", "PLATE", disc(0.5, 0.02),
         {"tet": (cells(12, 12, 1), cells(26, 26, 1)), "tet4": (cells(12, 12, 2), cells(24, 24, 2))},
         {"BELOW": "w0", "ABOVE": "w1"})
    for kind, sizes in (("tet", ((2, 2, 10), (4, 4, 20))), ("tet4", ((3, 3, 20), (6, 6, 40)))):
        for end, size in zip(("_coarse", ""), sizes):
            mesh = f"joint_{kind}{end}"
            grid_mesh(f"bodies/{mesh}.msh", kind, cells(*size), box(0.04, 0.04, 0.4), ends)
            meshed_model("bodies", f"rigid_joint_{kind}{end}", "rigid_joint", {"LOWER": mesh, "UPPER": mesh})
    both("slide", "BLOCK", box(0.2, 0.1, 0.05),
         {"tet": (cells(2, 1, 1), cells(4, 2, 1)), "tet4": (cells(4, 2, 1), cells(8, 4, 2))}, {"BELOW": "w0"})
    for kind, sizes in (("tet", (16, 30)), ("tet4", (30, 60))):
        for end, n in zip(("_coarse", ""), sizes):
            for part, across in (("left", 1), ("right", 2)):
                grid_mesh(f"bodies/meet_{part}_{kind}{end}.msh", kind, cells(n, across, across), box(0.2, 0.02, 0.02),
                          {"HEAD": "u0", "BACK": "u1"})
            grid_mesh(f"bodies/chain_{kind}{end}.msh", kind, cells(n, 1, 1), box(0.2, 0.02, 0.02),
                      {"HEAD": "u0", "BACK": "u1"})
            meshed_model("bodies", f"bars_chain_{kind}{end}", "bars_chain",
                         {part: f"chain_{kind}{end}" for part in ("HEAVY", "MIDDLE", "LIGHT")})
            grid_mesh(f"bodies/short_{kind}{end}.msh", kind, cells(n // 2, 1, 1), box(0.1, 0.02, 0.02),
                      {"HEAD": "u0", "BACK": "u1"})
            meshed_model("bodies", f"bars_unequal_{kind}{end}", "bars_unequal",
                         {"SHORT": f"short_{kind}{end}", "LONG": f"chain_{kind}{end}"})
            meshed_model("bodies", f"bars_meet_{kind}{end}", "bars_meet",
                         {"LEFT": f"meet_left_{kind}{end}", "RIGHT": f"meet_right_{kind}{end}"})


def buckling():
    ends = {"ROOT": "w0", "TIP": "w1"}
    grid_mesh("buckling/column_tet.msh", "tet", (steps(1), steps(1), steps(40)), box(0.03, 0.02, 1), ends)
    column = box(0.03, 0.02, 1)
    grid_mesh("buckling/column_tet_coarse.msh", "tet", (steps(1), steps(1), steps(10)), column, ends)
    grid_mesh("buckling/column_tet4.msh", "tet4", (steps(2), steps(2), steps(50)), column, ends)
    grid_mesh("buckling/column_tet4_coarse.msh", "tet4", (steps(2), steps(2), steps(25)), column, ends)
    for model in ("column_free", "column_pinned", "column_fixed_pinned", "column_fixed", "tension_beam"):
        for mesh in ("tet_coarse", "tet4", "tet4_coarse"):
            model_like("buckling", f"{model}_{mesh}", f"column_{mesh}", f"{model}_tet")
    sides = {"EDGE_X": "u1", "EDGE_Y": "v1"}
    further("buckling", "plate_tet", "tet", "plate_tet_coarse", (steps(6), steps(6), steps(1)), box(0.5, 0.5, 0.01), sides)
    further("buckling", "plate_tet", "tet4", "plate_tet4_coarse", (steps(8), steps(8), steps(1)), box(0.5, 0.5, 0.01), sides)
    further("buckling", "plate_tet", "tet4", "plate_tet4", (steps(16), steps(16), steps(2)), box(0.5, 0.5, 0.01), sides)
    grid_mesh("buckling/plate_tet.msh", "tet", (steps(12), steps(12), steps(1)), box(0.5, 0.5, 0.01), sides)
    sides = {"OUTER": "u1", "ON_X": "v0", "ON_Y": "v1", "BOTTOM": "w0"}
    grid_mesh("buckling/ring_hex.msh", "hex", (steps(2), steps(32), steps(1)), ring(0.975, 1.025, 90, 0.05), sides)
    hoop = ring(0.975, 1.025, 90, 0.05)
    grid_mesh("buckling/ring_tet.msh", "tet", (steps(1), steps(16), steps(1)), hoop, sides)
    further("buckling", "ring_hex", "hex", "ring_hex_coarse", (steps(2), steps(16), steps(1)), hoop, sides)
    further("buckling", "ring_tet", "tet", "ring_tet_coarse", (steps(1), steps(8), steps(1)), hoop, sides)
    further("buckling", "ring_tet", "tet4", "ring_tet4_coarse", (steps(2), steps(32), steps(1)), hoop, sides)
    further("buckling", "ring_tet", "tet4", "ring_tet4", (steps(4), steps(64), steps(2)), hoop, sides)


def loads():
    sides = {"INNER": "u0", "OUTER": "u1", "ON_X": "v0", "ON_Y": "v1", "BOTTOM": "w0", "TOP": "w1"}
    disc, pipe = ring(0.1, 0.5, 90, 0.02), ring(0.05, 0.1, 90, 0.02)
    grid_mesh("loads/disc_tet.msh", "tet", (steps(8, 4), steps(10), steps(1)), disc, sides)
    grid_mesh("loads/pipe_tet.msh", "tet", (steps(4, 1.5), steps(6), steps(1)), pipe, sides)
    for name, place, bands, parts in (("disc", disc, 4, 5), ("pipe", pipe, 2, 3)):
        further("loads", f"{name}_tet", "tet", f"{name}_tet_coarse", (steps(bands, 2), steps(parts), steps(1)), place, sides)
        for end, n in (("_coarse", 1), ("", 2)):
            further("loads", f"{name}_tet", "tet4", f"{name}_tet4{end}", (steps(8 * n), steps(8 * n), steps(1)), place, sides)
    sides = {"BORE": "u0", "RIM": "u1", "BOTTOM": "w0"}
    lug = ring(0.02, 0.05, 360, 0.005)
    for model, kind, name, lines in (
        ("bearing_hex", "hex", "bearing_hex_coarse", (steps(8, 6), steps(40), steps(1))),
        ("bearing_tet", "tet", "bearing_tet_coarse", (steps(2, 2), steps(16), steps(1))),
        ("bearing_tet", "tet4", "bearing_tet4_coarse", (steps(4, 3), steps(24), steps(1))),
        ("bearing_tet", "tet4", "bearing_tet4", (steps(8, 6), steps(48), steps(1))),
    ):
        further("loads", model, kind, name, lines, lug, sides, closed=True)
    for kind, across, around in (("hex", steps(16, 6), 80), ("tet", steps(4, 2), 32)):
        grid_mesh(f"loads/bearing_{kind}.msh", kind, (across, steps(around), steps(1)), ring(0.02, 0.05, 360, 0.005),
                  sides, closed=True)
    ends = {"X0": "u0", "Y0": "v0", "LOW": "w0", "HIGH": "w1"}
    grid_mesh("loads/bar_tet.msh", "tet", (steps(1), steps(1), steps(24)), box(0.02, 0.02, 1), ends)
    grid_mesh("loads/bar_tet_coarse.msh", "tet", (steps(1), steps(1), steps(8)), box(0.02, 0.02, 1), ends)
    grid_mesh("loads/bar_tet4.msh", "tet4", (steps(2), steps(2), steps(40)), box(0.02, 0.02, 1), ends)
    grid_mesh("loads/bar_tet4_coarse.msh", "tet4", (steps(1), steps(1), steps(20)), box(0.02, 0.02, 1), ends)
    for model in ("hanging_bar", "thermal_bar", "thermal_gradient", "cases", "remote_rigid", "remote_distributing"):
        for mesh in ("tet_coarse", "tet4", "tet4_coarse"):
            model_like("loads", f"{model}_{mesh}", f"bar_{mesh}", f"{model}_tet")
    grid_mesh("loads/follower_tet.msh", "tet", (steps(1), steps(1), steps(30)), box(0.02, 0.01, 1),
              {"ROOT": "w0", "BELOW": "v0"})
    further("loads", "follower_tet", "tet", "follower_tet_coarse", (steps(1), steps(1), steps(10)), box(0.02, 0.01, 1),
            {"ROOT": "w0", "BELOW": "v0"})
    for end, n in (("_coarse", 1), ("", 2)):
        further("loads", "follower_tet", "tet4", f"follower_tet4{end}", (steps(n), steps(2), steps(50 * n)),
                box(0.02, 0.01, 1), {"ROOT": "w0", "BELOW": "v0"})
    grid_mesh("loads/bimetal_tet.msh", "tet", (steps(1), steps(2), steps(40)), box(0.005, 0.002, 0.2),
              {"ROOT": "w0", "X0": "u0"}, group=lambda u, v, w: "STEEL" if v < 0.5 else "ALU")
    for kind, name, lines in (("tet", "bimetal_tet_coarse", (steps(1), steps(2), steps(10))),
                              ("tet4", "bimetal_tet4_coarse", (steps(1), steps(2), steps(40))),
                              ("tet4", "bimetal_tet4", (steps(2), steps(4), steps(80)))):
        further("loads", "bimetal_tet", kind, name, lines, box(0.005, 0.002, 0.2), {"ROOT": "w0", "X0": "u0"},
                group=lambda u, v, w: "STEEL" if v < 0.5 else "ALU")
    sides = {"SLANT": "u0", "LOADED": "u1", "BELOW": "v0", "BACK": "w0"}
    for kind in ("hex", "tet"):
        grid_mesh(f"loads/wedge_{kind}.msh", kind, (steps(6), steps(4), steps(1)), wedge, sides)
    further("loads", "wedge_tet", "tet4", "wedge_tet4", (steps(6), steps(4), steps(1)), wedge, sides)
    for kind, model in (("hex", "wedge_hex"), ("tet", "wedge_tet"), ("tet4", "wedge_tet")):
        further("loads", model, kind, f"wedge_{kind}_coarse", (steps(3), steps(2), steps(1)), wedge, sides)
    sides = {"FOOT": "u0", "HEAD": "u1", "SIDE": "v0", "BACK": "w0"}
    further("loads", "slanted_block_tet", "tet4", "slanted_block_tet4", (steps(3), steps(2), steps(1)),
            turned(30, box(0.3, 0.2, 0.1)), sides)
    for kind in ("tet", "tet4"):
        further("loads", "slanted_block_tet", kind, f"slanted_block_{kind}_fine", (steps(6), steps(4), steps(2)),
                turned(30, box(0.3, 0.2, 0.1)), sides)
    grid_mesh("loads/slanted_block_tet.msh", "tet", (steps(3), steps(2), steps(1)),
              turned(30, box(0.3, 0.2, 0.1)), sides)
    for name, n, up, z in (("low2", 2, 1, 0), ("high4", 4, 1, 0.05), ("high3", 3, 1, 0.05), ("low4", 4, 2, 0),
                           ("high8", 8, 2, 0.05), ("high6", 6, 2, 0.05)):
        for kind in ("tet", "tet4"):
            grid_mesh(f"loads/tied_{name}_{kind}.msh", kind, (steps(n), steps(n), steps(up)),
                      lambda u, v, w, z=z: (0.1 * u, 0.1 * v, z + 0.05 * w),
                      {"X0": "u0", "Y0": "v0", "LOW": "w0", "HIGH": "w1"})
    for model, coarse, fine in (("tied_nested", "high4", "high8"), ("tied_unlike", "high3", "high6")):
        for kind in ("tet", "tet4"):
            for end, low, high in (("", "low2", coarse), ("_fine", "low4", fine)):
                if (kind, end) != ("tet", ""):
                    meshed_model("loads", f"{model}_{kind}{end}", f"{model}_tet",
                                 {"LOW": f"tied_{low}_{kind}", "HIGH": f"tied_{high}_{kind}"})
    for kind in ("tet", "tet4"):
        for end, mesh in (("", "low2"), ("_fine", "low4")):
            if (kind, end) != ("tet", ""):
                meshed_model("loads", f"spring_bed_{kind}{end}", "spring_bed_tet", {"BLOCK": f"tied_{mesh}_{kind}"})


if __name__ == "__main__":
    os.chdir(sys.argv[1] if len(sys.argv) > 1 else os.path.join(os.path.dirname(__file__), "..", "verify"))
    for make in (nafems, macneal, plastic, explicit, buckling, loads, bodies):
        make()
