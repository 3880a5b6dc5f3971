#!/usr/bin/env python3
"""Prints the targets of verify/cases.txt that need more than a line of arithmetic; verify/README.md has the formulas."""
import math


def integral(f, a, b, n=20000):
    d = (b - a) / n
    return d * sum(f(a + (k + 0.5) * d) for k in range(n))


def torsion_constant(a, b):
    """Saint-Venant's J of a rectangle a >= b (Timoshenko and Goodier 1970, section 109)."""
    odd = range(1, 400, 2)
    return a * b**3 * (1 / 3 - 64 * b / (math.pi**5 * a) * sum(math.tanh(n * math.pi * a / (2 * b)) / n**5 for n in odd))


def straight_beam():
    E, nu, L, h, b = 1e7, 0.3, 6.0, 0.2, 0.1
    G, A = E / 2 / (1 + nu), h * b
    shear = 1.2 * L / (G * A)
    print("straight beam: extension", L / (E * A), "in plane", L**3 / (3 * E * b * h**3 / 12) + shear, "out of plane",
          L**3 / (3 * E * h * b**3 / 12) + shear, "twist", L / (G * torsion_constant(h, b)))


def curved_beam():
    """In plane: the exact plane-stress solution (Timoshenko and Goodier 1970, section 33); out of plane: bending,
    torsion and shear of a thin ring."""
    E, nu, a, b, t = 1e7, 0.25, 4.12, 4.32, 0.1
    N = a * a - b * b + (a * a + b * b) * math.log(b / a)
    in_plane = math.pi * (a * a + b * b) / (E * t * N)
    G, R, h = E / 2 / (1 + nu), (a + b) / 2, b - a
    out = R**3 * (math.pi / 4 / (E * h * t**3 / 12) + (3 * math.pi / 4 - 2) / (G * torsion_constant(h, t)))
    print("curved beam: in plane", in_plane, "out of plane", out + 1.2 * R * math.pi / 2 / (G * h * t))


def twisted_beam():
    E, nu, L, b, t = 29e6, 0.22, 12.0, 1.1, 0.32
    wide, flat, shear = t * b**3 / 12, b * t**3 / 12, 1.2 * L * 2 * (1 + nu) / (E * b * t)
    turn = math.pi / 2 / L
    wide_at_tip = integral(lambda s: s**2 * (math.cos(turn * s)**2 / wide + math.sin(turn * s)**2 / flat) / E, 0, L)
    flat_at_tip = integral(lambda s: s**2 * (math.sin(turn * s)**2 / wide + math.cos(turn * s)**2 / flat) / E, 0, L)
    print("twisted beam: along the width of the tip", wide_at_tip + shear, "across it", flat_at_tip + shear)


def prager_hodge():
    E, Sy, b, h, L, P = 210e9, 235e6, 0.14, 0.2, 2.0, 155e3
    elastic = Sy * b * h * h / 6 / L
    p = P / elastic
    tip = elastic * L**3 / (3 * E * b * h**3 / 12) * (5 - (3 + p) * math.sqrt(3 - 2 * p)) / p**2
    print("plastic cantilever: elastic up to", elastic, "tip", tip, "hinge", 1.5 * elastic)


def clamped_hinged():
    lo, hi = 4.4, 4.6
    while hi - lo > 1e-14:
        mid = (lo + hi) / 2
        lo, hi = (mid, hi) if math.tan(mid) - mid < 0 else (lo, mid)
    print("column clamped and hinged: root", lo, "squared", lo * lo)


def follower(k, n=20000):
    """Inextensible cantilever under a pressure normal to its deformed axis, q L^3/(E I) = k, L = 1: from the free tip
    with the angle 0 back to the root, then turned so that the root's angle is 0. Runge-Kutta of fourth order."""
    h = 1.0 / n

    def rate(y):
        theta, m, fx, fy, _, _ = y
        c, s = math.cos(theta), math.sin(theta)
        # along the way from the tip; (fx, fy), m: force and moment at the section of the part towards the tip
        return (-m, fx * s - fy * c, -k * s, k * c, -c, -s)

    y = (0.0,) * 6
    for _ in range(n):
        k1 = rate(y)
        k2 = rate([a + h / 2 * b for a, b in zip(y, k1)])
        k3 = rate([a + h / 2 * b for a, b in zip(y, k2)])
        k4 = rate([a + h * b for a, b in zip(y, k3)])
        y = tuple(a + h / 6 * (p + 2 * q + 2 * r + t) for a, p, q, r, t in zip(y, k1, k2, k3, k4))
    theta, _, _, _, x, z = y
    along, across = -x, -z  # from the root to the tip, in the tip's axes
    c, s = math.cos(-theta), math.sin(-theta)
    print(f"follower {k}: tip along", c * along - s * across - 1, "across", s * along + c * across, "angle", -theta)


def solve(a, b):
    n = len(b)
    m = [row[:] + [v] for row, v in zip(a, b)]
    for i in range(n):
        pivot = max(range(i, n), key=lambda r: abs(m[r][i]))
        m[i], m[pivot] = m[pivot], m[i]
        for r in range(i + 1, n):
            f = m[r][i] / m[i][i]
            for c in range(i, n + 1):
                m[r][c] -= f * m[i][c]
    x = [0.0] * n
    for i in reversed(range(n)):
        x[i] = (m[i][n] - sum(m[i][c] * x[c] for c in range(i + 1, n))) / m[i][i]
    return x


def bearing():
    """Ring a < r < b in plane stress, its rim held, pressure p0 cos(theta) on the half of the bore where the cosine is
    positive. Fourier series: displacements U cos(n theta), V sin(n theta) with U = A r^k, V = B r^k that satisfy
    the equilibrium of the stresses; their constants from the bore and the rim."""
    E, nu, a, b, t, F = 210e9, 0.3, 0.02, 0.05, 0.005, 10e3
    p0 = 2 * F / (math.pi * a * t)
    G, C = E / 2 / (1 + nu), E / (1 - nu * nu)

    def stresses(n, strain_r, strain_t, shear):
        return C * (strain_r + nu * strain_t), C * (strain_t + nu * strain_r), G * shear

    def solutions(n, r):
        """(U, V, s_rr, s_tt, s_rt) at r (in units of a) of each."""
        out = []
        for k in {0: (1, -1), 1: (2, -2, 0)}.get(n, (n + 1, n - 1, 1 - n, -n - 1)):
            A, B = 1.0, 0.0
            if n:
                A, B = G * (k * k - 1) - n * n * C, n * G * (k + 1) + n * C * (1 + nu * k)
            size = max(abs(A), abs(B))
            A, B = A / size * r**k, B / size * r**k
            out.append((A, B, *stresses(n, k * A / r, (A + n * B) / r, (k * B - B - n * A) / r)))
        if n == 1:  # U = log r, V = s - log r
            s = -(G + nu * C) / (G + C)
            out.append((math.log(r), s - math.log(r), *stresses(n, 1 / r, s / r, -(1 + s) / r)))
        return out

    bore_moves = hoop = 0.0
    for n in [0, 1] + list(range(2, 121, 2)):
        load = p0 / 2 if n == 1 else (1 if n == 0 else 2) * p0 / math.pi * (-1) ** (n // 2 + 1) / (n * n - 1)
        bore, rim = solutions(n, 1.0), solutions(n, b / a)
        rows = [[s[2] for s in bore], [s[0] for s in rim]]
        if n:
            rows += [[s[4] for s in bore], [s[1] for s in rim]]
        scale = [max(abs(row[c]) for row in rows[1::2]) for c in range(len(rows))]
        x = solve([[v / scale[c] for c, v in enumerate(row)] for row in rows], [-load] + [0.0] * (len(rows) - 1))
        x = [v / s for v, s in zip(x, scale)]
        bore_moves += a * sum(c * s[0] for c, s in zip(x, bore))
        hoop += sum(c * s[3] for c, s in zip(x, bore))
    print("bearing: p0", p0, "bore at the load moves", bore_moves, "hoop stress there", hoop)


def bimetal():
    m, n, h, da, dt, L = 1.0, 3.0, 0.002, 1.2e-5, 100.0, 0.2
    curvature = 6 * da * dt * (1 + m)**2 / (h * (3 * (1 + m)**2 + (1 + m * n) * (m * m + 1 / (m * n))))
    print("bimetal: curvature", curvature, "tip", curvature * L * L / 2)


def plane_quadrilateral(at, D):
    """Stiffness (18 x 18) of a 9-node quadrilateral, nodes column by column, by 3 x 3 points (Zienkiewicz, Taylor)."""
    def line(x):
        return [x * (x - 1) / 2, 1 - x * x, x * (x + 1) / 2], [x - 0.5, -2 * x, x + 0.5]

    gauss = [(-(0.6**0.5), 5 / 9), (0.0, 8 / 9), (0.6**0.5, 5 / 9)]
    K = [[0.0] * 18 for _ in range(18)]
    for (x, wx), (y, wy) in ((p, q) for p in gauss for q in gauss):
        (Nx, dx), (Ny, dy) = line(x), line(y)
        slopes = [(dx[a] * Ny[b], Nx[a] * dy[b]) for a in range(3) for b in range(3)]
        J = [[sum(g[r] * p[c] for g, p in zip(slopes, at)) for c in range(2)] for r in range(2)]
        det = J[0][0] * J[1][1] - J[0][1] * J[1][0]
        B = []
        for a, b in slopes:
            px, py = (J[1][1] * a - J[0][1] * b) / det, (J[0][0] * b - J[1][0] * a) / det
            B += [(px, 0.0, py), (0.0, py, px)]
        DB = [[sum(D[r][c] * column[c] for c in range(3)) for r in range(3)] for column in B]
        for r, s in ((r, s) for r in range(18) for s in range(18)):
            K[r][s] += wx * wy * det * sum(B[r][c] * DB[s][c] for c in range(3))
    return K


def solve_band(rows, load):
    """rows[r][k]: entry (r, r + k) of a symmetric matrix; Gauss' elimination."""
    width, count = len(rows[0]), len(rows)
    for r in range(count):
        for k in range(1, min(width, count - r)):
            f = rows[r][k] / rows[r][0]
            if f:
                for c in range(width - k):
                    rows[r + k][c] -= f * rows[r][k + c]
                load[r + k] -= f * load[r]
    for r in reversed(range(count)):
        known = sum(rows[r][k] * load[r + k] for k in range(1, min(width, count - r)))
        load[r] = (load[r] - known) / rows[r][0]
    return load


def cook():
    """The middle of the loaded edge in plane stress, by n x n 9-node quadrilaterals."""
    E, nu = 1.0, 1 / 3
    D = [[E / (1 - nu**2), nu * E / (1 - nu**2), 0], [nu * E / (1 - nu**2), E / (1 - nu**2), 0], [0, 0, E / 2 / (1 + nu)]]
    for n in (4, 8, 16):
        m = 2 * n + 1  # nodes of a line across
        rows = [[0.0] * (4 * m + 6) for _ in range(2 * m * m)]
        load = [0.0] * len(rows)
        for i, j in ((2 * a, 2 * b) for a in range(n) for b in range(n)):
            nodes = [(i + a, j + b) for a in range(3) for b in range(3)]
            lines = [(p / (2 * n), q / (2 * n)) for p, q in nodes]
            K = plane_quadrilateral([(48 * u, (1 - u) * 44 * v + u * (44 + 16 * v)) for u, v in lines], D)
            dofs = [2 * (p * m + q) + c for p, q in nodes for c in range(2)]
            for r, s in ((r, s) for r in range(18) for s in range(18)):
                if dofs[s] >= dofs[r]:
                    rows[dofs[r]][dofs[s] - dofs[r]] += K[r][s]
        for j in range(0, 2 * n, 2):
            for k, share in enumerate((1 / 6, 4 / 6, 1 / 6)):
                load[2 * (2 * n * m + j + k) + 1] += share / n
        first = 2 * m  # the clamped ones
        u = solve_band(rows[first:], load[first:])
        print(f"Cook's membrane: {n} x {n} cells", u[2 * (2 * n * m + n) + 1 - first])


if __name__ == "__main__":
    for show in (straight_beam, curved_beam, twisted_beam, prager_hodge, clamped_hinged, bimetal, bearing, cook):
        show()
    follower(6)
