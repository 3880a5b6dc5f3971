#!/usr/bin/python3
"""Static displacements and frequencies of models against a second route: the deck that `export` writes, made into
K and M in numpy and solved by scipy (Debian's python3-scipy).

Usage: second_route.py BUILD_DIR [--set NAME=EXPRESSION]... MODEL...
The stiffness has the points that docs/theory.md names, which belong to the definition of an element; the mass is
integrated exactly. Prints the largest difference of the displacements over the largest displacement and the largest
relative difference of the frequencies by eigen-subspace and eigen-lanczos, without those of rigid motions. Where
10-node tetrahedra are curved the mass by the program's 14 points is not the exact one: the frequencies are compared
with both, and the difference from the exact mass is that of the rule. Exit status 1 where the displacements differ
by more than 1e-6 or the frequencies, with the mass of the program's rule, by more than 1e-5.
"""
import os
import re
import sys
import tempfile

import numpy as np
import scipy.sparse as sparse
from scipy.sparse.linalg import LinearOperator, eigsh, splu
from scipy.special import roots_jacobi

from compare_ccx import (DISPLACEMENT_LIMIT, FREQUENCY_LIMIT, RIGID_FREQUENCY, displacements_in_model_numbers, label,
                         our_frequencies, read_arguments, read_vtu, run)

# Local coordinates: tetrahedra x, y, z >= 0, x + y + z <= 1 with corners 0, x, y, z; hexahedra -1 .. 1.
TETRAHEDRON_EDGES = np.array([[0, 1], [1, 2], [2, 0], [0, 3], [1, 3], [2, 3]])
HEXAHEDRON_CORNERS = np.array([[-1, -1, -1], [1, -1, -1], [1, 1, -1], [-1, 1, -1],
                               [-1, -1, 1], [1, -1, 1], [1, 1, 1], [-1, 1, 1]])


def tetrahedron4(points):
    """Values (points, nodes) and local derivatives (points, nodes, 3)."""
    values = np.column_stack([1 - points.sum(axis=1), points])
    slopes = np.vstack([-np.ones(3), np.eye(3)])
    return values, np.broadcast_to(slopes, (len(points), 4, 3))


def tetrahedron10(points):
    corner, slope = tetrahedron4(points)
    a, b = TETRAHEDRON_EDGES.T
    values = np.hstack([corner * (2 * corner - 1), 4 * corner[:, a] * corner[:, b]])
    at_corners = (4 * corner - 1)[:, :, None] * slope
    on_edges = 4 * (corner[:, a, None] * slope[:, b] + corner[:, b, None] * slope[:, a])
    return values, np.concatenate([at_corners, on_edges], axis=1)


def hexahedron8(points):
    factors = (1 + points[:, None, :] * HEXAHEDRON_CORNERS) / 2
    slopes = [factors[:, :, (i + 1) % 3] * factors[:, :, (i + 2) % 3] * HEXAHEDRON_CORNERS[:, i] / 2 for i in range(3)]
    return factors.prod(axis=2), np.stack(slopes, axis=2)


def product_rule(count):
    """Gauss points of a hexahedron, exact to degree 2 count - 1 in each direction."""
    x, w = np.polynomial.legendre.leggauss(count)
    return np.stack(np.meshgrid(x, x, x), axis=-1).reshape(-1, 3), np.einsum("i,j,k->ijk", w, w, w).ravel()


def conical_rule(count):
    """Points of a tetrahedron, exact to degree 2 count - 1: A. H. Stroud, Approximate Calculation of Multiple
    Integrals (1971), section 2.5. x = a, y = b (1 - a), z = c (1 - a) (1 - b)."""
    (a, wa), (b, wb), (c, wc) = (roots_jacobi(count, k, 0) for k in (2, 1, 0))
    a, b, c = (grid.ravel() for grid in np.meshgrid((1 + a) / 2, (1 + b) / 2, (1 + c) / 2, indexing="ij"))
    return (np.column_stack([a, b * (1 - a), c * (1 - a) * (1 - b)]),
            np.einsum("i,j,k->ijk", wa / 8, wb / 4, wc / 2).ravel())


def four_points():
    """Degree 2, Hammer, Marlowe and Stroud (1956)."""
    near, far = (5 - np.sqrt(5)) / 20, (5 + 3 * np.sqrt(5)) / 20
    return near + (far - near) * np.vstack([np.zeros(3), np.eye(3)]), np.full(4, 1 / 24)


def fourteen_points():
    """Degree 5, Walkington (2000): two orbits of four points, one of six. The weights of the orbits follow from
    their places, as the rule is exact for 1 and for the squares and fourth powers of a barycentric coordinate."""
    orbits = []
    for t in (0.31088591926330060980, 0.092735250310891226402):
        orbits.append(t + (1 - 4 * t) * np.eye(4))
    t = 0.045503704125649649492
    orbits.append(np.array([[t if k in (i, j) else 0.5 - t for k in range(4)] for i in range(4) for j in range(i)]))
    # the integral of L^p over the tetrahedron of volume 1/6 is p! / (p + 3)!
    moments = np.array([[(orbit[:, 0] ** p).sum() for orbit in orbits] for p in (0, 2, 4)])
    weights = np.linalg.solve(moments, [1 / 6, 2 / 120, 24 / 5040])
    return np.vstack(orbits)[:, 1:], np.repeat(weights, [len(orbit) for orbit in orbits])


# shape functions; rules of the stiffness, of the exact mass (the determinant of a 10-node tetrahedron is of degree
# 3, that of a hexahedron of degree 2 in each direction), of the program's mass
ELEMENTS = {
    "C3D4": (tetrahedron4, (np.full((1, 3), 0.25), np.array([1 / 6])), conical_rule(4), conical_rule(4)),
    "C3D10": (tetrahedron10, four_points(), conical_rule(4), fourteen_points()),
    "C3D8": (hexahedron8, product_rule(2), product_rule(3), product_rule(2)),
}


def numbers(lines, columns):
    return np.array(",".join(lines).split(","), float).reshape(-1, columns)


class Deck:
    """Nodes in m, elements by block, supports and forces of a deck."""

    def __init__(self, path):
        self.blocks, self.materials, self.modes = [], {}, 0
        supports, forces, sections, elastic, density = [], [], {}, {}, {}
        material = ""
        for block in re.split(r"^\*(?!\*)", re.sub(r"^\*\*.*\n", "", open(path).read(), flags=re.M), flags=re.M)[1:]:
            head, *lines = block.splitlines()
            keyword, *options = [word.strip() for word in head.split(",")]
            options = dict(option.split("=") for option in options if "=" in option)
            if keyword in ("RIGID BODY", "EQUATION") or options.get("TYPE", "").startswith("SPRING"):
                sys.exit(f"{path}: *{keyword}: springs and rigid bodies are not read here")
            if keyword == "NODE":
                table = numbers(lines, 4)
                order = np.argsort(table[:, 0])
                self.names, self.places = table[order, 0].astype(int), table[order, 1:]
            elif keyword == "ELEMENT":
                nodes = numbers(lines, 1 + int(options["TYPE"][3:])).astype(int)[:, 1:]
                self.blocks.append((options["TYPE"], options["ELSET"], self.index(nodes)))
            elif keyword == "MATERIAL":
                material = options["NAME"]
            elif keyword == "ELASTIC":
                elastic[material] = numbers(lines, 2)[0]
            elif keyword == "DENSITY":
                density[material] = numbers(lines, 1)[0, 0]
            elif keyword == "SOLID SECTION":
                sections[options["ELSET"]] = options["MATERIAL"]
            elif keyword == "BOUNDARY":
                supports += lines
            elif keyword == "CLOAD":
                forces += lines
            elif keyword == "FREQUENCY":
                self.modes = int(lines[0])
        self.materials = {part: (*elastic[name], density[name]) for part, name in sections.items()}
        self.free = np.ones((len(self.names), 3), bool)
        for name, first, last in numbers(supports, 3).astype(int) if supports else ():
            self.free[np.searchsorted(self.names, name), first - 1:last] = False
        self.free = self.free.ravel()
        self.forces = np.zeros((len(self.names), 3))
        if forces:
            table = numbers(forces, 3)
            np.add.at(self.forces, (self.index(table[:, 0].astype(int)), table[:, 1].astype(int) - 1), table[:, 2])

    def index(self, names):
        return np.searchsorted(self.names, names)


def geometry(slopes, places):
    """Of all elements at a point: derivatives in space (elements, nodes, 3), Jacobian's determinant."""
    jacobian = np.einsum("nl,enx->elx", slopes, places)
    return np.einsum("exl,nl->enx", np.linalg.inv(jacobian), slopes), np.linalg.det(jacobian)


def stiffnesses(shape, rule, places, young, poisson):
    """K(ia, jb) = integral of lambda Ni,a Nj,b + mu (Ni,b Nj,a + delta ab Ni,c Nj,c), (elements, nodes, 3, nodes, 3)."""
    mu = young / (2 * (1 + poisson))
    lame = 2 * mu * poisson / (1 - 2 * poisson)
    count, nodes, _ = places.shape
    total = np.zeros((count, nodes, 3, nodes, 3))
    for slopes, weight in zip(shape(rule[0])[1], rule[1]):
        slope, determinant = geometry(slopes, places)
        scaled = slope * (weight * determinant)[:, None, None]
        pairs = np.einsum("eia,ejb->eiajb", scaled, slope)
        total += lame * pairs + mu * pairs.transpose(0, 1, 4, 3, 2)
        trace = mu * np.einsum("eiaja->eij", pairs)
        for a in range(3):
            total[:, :, a, :, a] += trace
    return total


def masses(shape, rule, places, density):
    """(elements, nodes, nodes), of each direction."""
    total = 0
    for value, slopes, weight in zip(*shape(rule[0]), rule[1]):
        determinant = np.linalg.det(np.einsum("nl,enx->elx", slopes, places))
        total = total + (density * weight * determinant)[:, None, None] * np.outer(value, value)
    return total


def gather(parts, size):
    """Sparse sum of element matrices ((elements, rows) indices, (elements, rows, rows) values)."""
    total = sparse.csr_matrix((size, size))
    for index, values in parts:
        rows, columns = np.broadcast_arrays(index[:, :, None], index[:, None, :])
        total = total + sparse.coo_matrix((values.ravel(), (rows.ravel(), columns.ravel())), (size, size)).tocsr()
    return total


def assemble(deck):
    """K, the exact M and the M of the program's rule, of the free degrees of freedom."""
    k, exact, ruled = [], [], []
    for kind, part, nodes in deck.blocks:
        shape, stiffness_rule, exact_rule, mass_rule = ELEMENTS[kind]
        young, poisson, density = deck.materials[part]
        places = deck.places[nodes]
        degrees = (3 * nodes[:, :, None] + np.arange(3)).reshape(len(nodes), -1)
        size = degrees.shape[1]
        k.append((degrees, stiffnesses(shape, stiffness_rule, places, young, poisson).reshape(-1, size, size)))
        exact.append((nodes, masses(shape, exact_rule, places, density)))
        ruled.append((nodes, masses(shape, mass_rule, places, density)))
    count, free = len(deck.names), deck.free
    spread = [sparse.kron(gather(m, count), sparse.identity(3), "csr") for m in (exact, ruled)]
    return [matrix[free][:, free] for matrix in (gather(k, 3 * count), *spread)]


def frequencies(k, mass, modes, shift, factor):
    """The lowest, Hz. The factor is that of K - shift M."""
    inverse = LinearOperator(k.shape, factor.solve, dtype=float)
    # four more than asked for: of equal ones the iteration finds the second later
    values = eigsh(k, modes + 4, mass, sigma=shift, OPinv=inverse, return_eigenvectors=False)
    return np.sqrt(np.maximum(np.sort(values)[:modes], 0)) / (2 * np.pi)


def factorize(matrix):
    return splu(matrix.tocsc(), permc_spec="MMD_AT_PLUS_A", diag_pivot_thresh=0, options={"SymmetricMode": True})


def rigid_shift(deck):
    """A negative shift for a free body, whose K is singular: a hundredth of (c / length)^2."""
    young, _, density = next(iter(deck.materials.values()))
    return -0.01 * young / density / np.ptp(deck.places, axis=0).max() ** 2


def static_difference(deck, k, factor, program, model, options, folder):
    run([program, "static", model, "--vtu", "--quiet", *options], folder)
    base = os.path.splitext(os.path.basename(model))[0]
    grid = read_vtu(os.path.join(folder, "log", base + ".vtu"), ("displacement", "connectivity"))
    ours = displacements_in_model_numbers(grid, read_vtu(os.path.join(folder, "deck.vtu"), ("connectivity",)))
    if sorted(ours) != deck.names.tolist():
        sys.exit(f"{model}: {len(ours)} nodes here, {len(deck.names)} in the deck")
    ours = np.array([ours[name] for name in deck.names])
    load = deck.forces.ravel()[deck.free]
    solution = factor.solve(load)
    solution += factor.solve(load - k @ solution)
    second = np.zeros(deck.free.shape)
    second[deck.free] = solution
    return np.abs(ours.ravel() - second).max() / np.abs(second).max()


def frequency_differences(second, program, method, model, options, folder):
    """From each of the lists of frequencies of the second route; those of rigid motions must be so in both."""
    own = np.array(our_frequencies(run([program, method, model, "--quiet", *options], folder)))
    if len(own) != len(second[0]):
        sys.exit(f"{model}: {len(own)} modes by {method}, {len(second[0])} here")
    differences = []
    for theirs in second:
        elastic = np.maximum(own, theirs) > RIGID_FREQUENCY
        differences.append(np.max(np.abs(own - theirs)[elastic] / theirs[elastic], initial=0))
    return elastic.sum(), differences


def compare(program, model, settings, options):
    good = True
    with tempfile.TemporaryDirectory() as folder:
        os.symlink(os.path.dirname(settings), os.path.join(folder, "setting"))
        for ending in ("inp", "vtu"):
            run([program, "export", model, f"deck.{ending}", "--quiet", *options], folder)
        deck = Deck(os.path.join(folder, "deck.inp"))
        k, exact, ruled = assemble(deck)
        line = f"{label(model, options):28s} {len(deck.names):6d} nodes"
        shift = rigid_shift(deck) if deck.free.all() else 0
        factors = [factorize(k - shift * mass) for mass in (ruled, exact)] if shift else [factorize(k)] * 2
        if deck.forces.any() and not shift:
            difference = static_difference(deck, k, factors[0], program, model, options, folder)
            good = difference <= DISPLACEMENT_LIMIT
            line += f", displacements {difference:.1e}"
        if deck.modes:
            second = [frequencies(k, mass, deck.modes, shift, factor)
                      for mass, factor in zip((ruled, exact), factors)]
            for method in ("eigen-subspace", "eigen-lanczos"):
                count, (by_rule, from_exact) = frequency_differences(second, program, method, model, options, folder)
                good = good and by_rule <= FREQUENCY_LIMIT
                line += f"; {count} frequencies by {method} {by_rule:.1e}, exact mass {from_exact:.1e}"
    print(line + ("" if good else "  TOO LARGE"), flush=True)
    return good


def main():
    program, settings, options, models = read_arguments(__doc__)
    sys.exit(0 if all([compare(program, model, settings, options) for model in models]) else 1)


if __name__ == "__main__":
    main()
