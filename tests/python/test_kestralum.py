"""The module kestralum against theory, against kestralum-batch, and under what notebooks do to it.

Run by ctest with PYTHONPATH set to the build; the batch command stands beside the module.
"""

import ast
import csv
import filecmp
import gc
import glob
import inspect
import os
import re
import shutil
import signal
import subprocess
import sys
import tempfile
import threading
import time
import unittest

import numpy as np

# NumPy has OpenBLAS at work before the module is loaded.
np.linalg.solve(np.random.default_rng(1).random((300, 300)), np.ones(300))

import kestralum  # noqa: E402

BATCH = os.path.join(os.path.dirname(os.path.abspath(kestralum.__file__)), "kestralum-batch")
SOURCE = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
DATA = os.path.join(SOURCE, "data")


def data(name):
    return os.path.join(DATA, name)


def batch(*arguments):
    return subprocess.run([BATCH, *arguments], capture_output=True, text=True, cwd=SOURCE)


def bar(poisson=0.0, n=4):
    """Built out of order: a bar of 20 x 10 x 100 mm, clamped at z = 0, pulled by F."""
    m = kestralum.Model(name="bar.txt")
    m.add("apply_force", "PULL", "area", "z", "F", [0, "b", 0, "h", "L", "L"])
    m.add("part_info", "BAR", "blue", "STEEL", "RECT", ["b", "h", "L", 0, 0, 0], [4, 2, "n", 0, 0, 0],
          [0, 0, 0], (0, 0, 0))
    m.add("boundary_condition", "CLAMP", "plane", "z", np.zeros(6))
    m.add("material_info", "STEEL", 7800, "200e9", poisson)
    for name, value in {"b": 0.02, "h": 0.01, "L": 0.1, "F": 1000, "n": n}.items():
        m.add("parameter", name, value)
    return m


class Folder(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = folder.name

    def inside(self, name):
        return os.path.join(self.folder, name)

    def assertSameFiles(self, run, options, word, path):
        """What a run writes and what the command writes, byte for byte."""
        log, written = tempfile.mkdtemp(dir=self.folder), tempfile.mkdtemp(dir=self.folder)
        done = batch(word, path, "--quiet", "--tidy", "--log", log, *options)
        self.assertEqual(done.returncode, 0, done.stderr)
        names = sorted(name for name in os.listdir(log) if not name.startswith("."))
        self.assertEqual(run.write(written, vtu="--vtu" in options), names)
        _, different, missing = filecmp.cmpfiles(log, written, names, shallow=False)
        self.assertEqual((different, missing), ([], []))
        self.assertTrue(names)


class Models(Folder):
    def test_bar_in_tension_moves_as_theory_says(self):
        m = bar()
        run = m.run("static")
        stress, expected = 1000 / (0.02 * 0.01), 1000 * m.nodes[:, 2] / (200e9 * 0.02 * 0.01)
        np.testing.assert_allclose(run.displacements[:, 2], expected, atol=1e-9 * expected.max())
        everywhere = np.tile([0, 0, stress, 0, 0, 0], (len(m.nodes), 1))
        np.testing.assert_allclose(run.stresses, everywhere, atol=1e-6 * stress)
        np.testing.assert_allclose(run.mises, stress, rtol=1e-8)
        np.testing.assert_allclose(run.element_stresses[:, 2], stress, rtol=1e-8)
        np.testing.assert_allclose(run.reactions.sum(axis=0), [0, 0, -1000], atol=1e-6)
        self.assertAlmostEqual(run.energies["strain"], 1000 * expected.max() / 2, delta=1e-9)
        self.assertAlmostEqual(run.largest_displacement["value"], expected.max(), delta=1e-9 * expected.max())
        self.assertEqual(m.nodes[run.largest_displacement["node"], 2], 0.1)
        self.assertEqual(run.supports[0]["name"], "CLAMP")

    def test_parameters_change_the_mesh_as_set_does(self):
        m = bar()
        self.assertEqual((m.nodes.shape, m.elements.shape, m.parameters["L"]), ((75, 3), (32, 8), 0.1))
        other = m.copy()
        self.assertIs(m.set(n=10, L="2*b+0.06"), m)
        self.assertEqual((m.elements.shape, m.parameters["L"]), ((80, 8), 0.1))
        self.assertEqual(other.elements.shape, (32, 8))
        self.assertEqual((m.elements.min(), m.elements.max()), (0, len(m.nodes) - 1))
        self.assertEqual((m.parts, m.materials["STEEL"]["young"], set(m.element_part)), (["BAR"], 200e9, {0}))
        with self.assertRaisesRegex(kestralum.Error, "^bar.txt defines no parameter nx$"):
            m.set(nx=3)
        with self.assertRaisesRegex(kestralum.Error, "L='0.1 m'"):
            m.set(L="0.1 m")
        read = kestralum.read(data("cantilever.txt"), parameters={"nl": 25})
        check = batch("check", data("cantilever.txt"), "--set", "nl=25", "--quiet")
        told = [[line for line in text.splitlines() if "MB of memory" not in line]
                for text in (read.check(), check.stdout)]
        self.assertEqual(told[0], told[1])
        self.assertGreater(len(told[0]), 10)

    def test_sets_and_facets_are_indices(self):
        m = bar()
        m.add("set_info", "END", "plane", "z", "L")
        m.add("set_info", "LOW", "box", [0, "b", 0, "h", 0, "L/2"])
        end = m.sets["END"]
        np.testing.assert_array_equal(end["nodes"], np.flatnonzero(m.nodes[:, 2] == 0.1))
        self.assertEqual(end["faces"].shape, (8, 2))
        self.assertTrue(np.all(m.nodes[m.elements[end["faces"][:, 0]]][:, :, 2].max(axis=1) == 0.1))
        self.assertEqual(len(m.sets["LOW"]["nodes"]), 3 * 15)
        self.assertEqual(m.facets.shape, (0, 3))

    def test_what_is_written_reads_as_the_same_model(self):
        wall = kestralum.read(data("explicit_bar_wall.txt"))
        for m, controlled in ((bar().set(n=7, L="3*b"), False), (wall, True)):
            with self.subTest(m.name):
                m.write(self.inside("again.txt"))
                again = kestralum.read(self.inside("again.txt"))
                np.testing.assert_array_equal(again.nodes, m.nodes)
                np.testing.assert_array_equal(again.elements, m.elements)
                self.assertEqual(again.parameters, m.parameters)
                self.assertEqual(again.control, m.control)
                self.assertEqual(m.control is not None, controlled)
                os.remove(self.inside("again.txt"))
        with self.assertRaisesRegex(kestralum.Error, "nowhere"):
            bar().write(self.inside("nowhere/model.txt"))

    def test_records_stand_where_they_belong(self):
        m = kestralum.Model("%a_comment\nparameter a 1 %\nmode_num 3 %\nEND not read", name="t.txt")
        m.add("parameter", "b", "2*a").add("mode_num", 7)
        m.add("material_info", "S", 1.5e-7, 2, [0.25], alpha=1e-5)
        self.assertEqual(m.text.split(), "%a_comment parameter a 1 b 2*a % material_info S 1.5e-07 2 0.25 "
                         "alpha=1e-05 % mode_num 7 % END not read".split())
        for section, fields, said in (("materials", (1,), "no section 'materials'; there are parameter, ma"),
                                      ("material_info", (), "a record has no fields"),
                                      ("material_info", ("A", "%", 1, 2), "cannot begin with %")):
            with self.assertRaisesRegex(kestralum.Error, said):
                m.add(section, *fields)
        for field in (True, None, object()):
            with self.assertRaises(TypeError):
                m.add("parameter", "c", field)

    def test_errors_read_as_those_of_a_file(self):
        for change in (("STEEL RECT", "COPPER RECT"), ("0.3\n", "0.7\n"), ("F 1000", "F 1000*"),
                       ("area", "aera")):
            m = bar(poisson=0.3)
            text = re.sub(r"[ ]+", " ", m.text).replace(*change)
            self.assertNotEqual(text, m.text)
            with self.subTest(change):
                with open(self.inside("bar.txt"), "w", encoding="utf-8") as file:
                    file.write(text)
                told = batch("static", self.inside("bar.txt"), "--log", self.inside("log"))
                with self.assertRaises(kestralum.Error) as raised:
                    kestralum.Model(text, name=self.inside("bar.txt")).run("static")
                self.assertEqual(told.returncode, 2)
                self.assertEqual(raised.exception.errors, told.stderr.splitlines())
                self.assertEqual(str(raised.exception), told.stderr.splitlines()[0])
                self.assertIsNone(raised.exception.run)
        with self.assertRaisesRegex(kestralum.Error, "nowhere.txt: No such file"):
            kestralum.read("nowhere.txt")
        with self.assertRaisesRegex(kestralum.Error, "no analysis 'modal'; there are static, eigen-subspace"):
            bar().run("modal")
        loose = kestralum.Model("part_info P blue STEEL RECT 1 1 1 0 0 0 1 1 1 0 0 0 0 0 0 0 0 0 %")
        with self.assertRaises(kestralum.Error):
            loose.set(a=1)

    def test_interpolates_in_elements(self):
        m = bar()
        values = m.nodes @ [[1.0, 0], [2, 1], [3, 0]] + 5
        places = [[0.001, 0.002, 0.003], [0.0199, 0.0099, 0.0999], [0.5, 0, 0]]
        got = m.interpolate(places, values)
        np.testing.assert_allclose(got[:2], np.array(places[:2]) @ [[1.0, 0], [2, 1], [3, 0]] + 5, rtol=1e-12)
        self.assertTrue(np.isnan(got[2]).all())
        self.assertEqual(m.interpolate(places, values[:, 0]).shape, (3,))
        with self.assertRaisesRegex(ValueError, r"\(75,\)"):
            m.interpolate(places, values[1:])
        with self.assertRaises(ValueError):
            m.interpolate([1, 2], values)

    def test_divides_cad_files(self):
        if not os.path.exists(os.path.join(os.path.dirname(BATCH), "kestralum-mesher")):
            self.skipTest("the mesher is not built")
        for name in ("step_bracket.txt", "cad/bracket.step"):
            os.makedirs(self.inside("cad"), exist_ok=True)
            shutil.copy(data(name), self.inside(name))
        m = kestralum.read(self.inside("step_bracket.txt"), parameters={"h": 30, "order": 1})
        self.assertEqual(m.elements.shape[1], 4)
        corners = m.nodes[m.elements]
        volume = np.linalg.det(corners[:, 1:] - corners[:, :1]).sum() / 6
        mass = float(re.search(r"total mass +(\S+) kg", m.check())[1])
        self.assertAlmostEqual(volume * 7850, mass, delta=1e-6 * mass)
        self.assertIn("BOLTS", m.sets)

    def test_settings_are_those_of_the_file(self):
        file = os.path.join(SOURCE, "setting", "setting.txt")
        shipped = kestralum.read(data("cantilever.txt"), settings=file)
        self.assertEqual(shipped.settings, kestralum.Model(settings={}).settings)
        own = kestralum.Model(settings={"SOLVER": "skyline", "N_THREADS": 1})
        self.assertEqual((own.settings["SOLVER"], own.settings["N_THREADS"]), ("skyline", "1"))
        for wrong, said in (({"SOLVR": 1}, "no label 'SOLVR'"), ({"SOLVER": "fast"}, "auto, skyline"),
                            ("none", "none: No such file")):
            with self.assertRaisesRegex(kestralum.Error, said):
                kestralum.Model(settings=wrong)
        m = bar()
        with self.assertRaisesRegex(kestralum.Error, "NL_CONV"):
            m.run("static", settings={"NL_CONV": "small"})
        with self.assertRaisesRegex(kestralum.Error, "threads=0"):
            m.run("static", threads=0)
        runs = [m.run("static", threads=n, settings={"SOLVER": s})
                for n in (1, 2) for s in ("skyline", "sparse")]
        np.testing.assert_array_equal(runs[0].displacements, runs[2].displacements)
        np.testing.assert_array_equal(runs[1].displacements, runs[3].displacements)

    def test_exports_for_other_programs(self):
        bar().export(self.inside("bar.inp"))
        with open(self.inside("bar.inp"), encoding="utf-8") as file:
            self.assertIn("*NODE", file.read().upper())
        with self.assertRaisesRegex(kestralum.Error, "dat"):
            bar().export(self.inside("bar.dat"))


class Runs(Folder):
    def test_writes_the_files_of_the_command(self):
        threads = kestralum._kestralum._blas_threads()
        for word, name, options in (("static", "bracket_cases.txt", ("--vtu",)),
                                    ("static", "cantilever.txt", ()),
                                    ("eigen-lanczos", "cantilever.txt", ("--vtu",)),
                                    ("buckling", "cantilever.txt", ()),
                                    ("nonlinear", "cantilever.txt", ("--vtu",)),
                                    ("explicit", "explicit_bar_wall.txt", ("--vtu",))):
            with self.subTest(f"{word} {name}"):
                parameters = {"nb": 4, "nh": 4, "nl": 25} if name == "cantilever.txt" else {}
                m = kestralum.read(data(name), parameters=parameters)
                told = [text for one in parameters.items() for text in ("--set", "%s=%s" % one)]
                self.assertSameFiles(m.run(word), (*options, *told), word, data(name))
        self.assertEqual(kestralum._kestralum._blas_threads(), threads)  # NumPy's, as before
        with open(self.inside("file"), "w", encoding="utf-8"):
            with self.assertRaisesRegex(kestralum.Error, "file"):
                bar().run("static").write(self.inside("file"))

    def test_nodes_of_results_are_those_of_the_model(self):
        m = kestralum.read(data("cantilever.txt"), parameters={"nl": 25})
        run = m.run("static")
        run.write(self.folder)
        with open(self.inside("result_cantilever.txt"), encoding="utf-8") as file:
            tokens = file.read().split()
        n = len(m.nodes)
        self.assertEqual(sorted(run.node_numbers), list(range(1, n + 1)))
        text = " ".join(tokens)
        for node in (0, n // 3, n - 1):  # coordinates and displacements of a node stand in lines of their own
            place = " ".join("%e" % x for x in m.nodes[node])
            self.assertIn(place, text)
        self.assertEqual(np.abs(run.displacements[m.nodes[:, 2] == 0]).max(), 0)
        tip = run.displacements[m.nodes[:, 2] == 0.5, 1]
        self.assertAlmostEqual(tip.mean(), -0.2840e-3, delta=0.2840e-3 * 0.06)  # docs: 5 % stiff

    def test_planes_carry_the_pull(self):
        run = bar().run("static", sections=["z=0.06", "0 0 0.03 0 0 2"], probes=[(0, 0, 0.1)])
        self.assertEqual([one["plane"] for one in run.sections], ["z=0.06", "0 0 0.03 0 0 2"])
        for one in run.sections:
            np.testing.assert_allclose(one["force"], [0, 0, 1000], atol=1e-6)
            self.assertAlmostEqual(one["area"], 2e-4, delta=1e-12)
        self.assertIn("probe 1", run.summary)
        self.assertIn("section_bar.csv", run.write(self.folder))

    def test_cases_and_combinations(self):
        m = kestralum.read(data("bracket_cases.txt"))
        run = m.run("static")
        self.assertEqual(run.cases, [frame.name for frame in run])
        self.assertIn("crane", run.cases)
        alone = m.run("static", case="crane")
        self.assertEqual(len(alone), 1)
        np.testing.assert_allclose(alone.displacements, run["crane"].displacements, rtol=1e-6, atol=1e-12)
        self.assertEqual(run[-1].name, run.cases[-1])
        with self.assertRaises(KeyError):
            run["wind"]
        with self.assertRaises(IndexError):
            run[len(run)]
        with self.assertRaisesRegex(kestralum.Error, "wind"):
            m.run("static", case="wind")
        m.add("load_combination", "BOTH", "crane+2*spin")
        both = m.run("static")
        expected = both["crane"].displacements + 2 * both["spin"].displacements
        np.testing.assert_allclose(both["BOTH"].displacements, expected, atol=1e-6 * np.abs(expected).max())

    def test_quantities_follow_from_the_stresses(self):
        run = kestralum.read(data("cantilever.txt"), parameters={"nl": 10}).run("static")
        s = run.stresses
        tensor = s[:, [0, 3, 5, 3, 1, 4, 5, 4, 2]].reshape(-1, 3, 3)
        principal = np.linalg.eigvalsh(tensor)
        scale = run.mises.max()
        np.testing.assert_allclose(run.quantity("principal_stress_1"), principal[:, 2], atol=1e-9 * scale)
        tresca = principal[:, 2] - principal[:, 0]
        np.testing.assert_allclose(run.quantity("tresca"), tresca, atol=1e-9 * scale)
        np.testing.assert_allclose(run.quantity("Pressure"), -s[:, :3].mean(axis=1), atol=1e-9 * scale)
        np.testing.assert_array_equal(run.quantity("Mises Stress"), run.mises)
        for k, name in enumerate(("x", "y", "z", "xy", "yz", "zx")):
            np.testing.assert_array_equal(run.quantity("Stress " + name), s[:, k])
            np.testing.assert_array_equal(run.quantity("strain " + name), run.strains[:, k])
        length = np.linalg.norm(run.displacements, axis=1)
        np.testing.assert_allclose(run.quantity("Displacement Mag."), length)
        direction = run.quantity("principal_direction_1")
        along = np.einsum("ni,nij,nj->n", direction, tensor, direction)
        np.testing.assert_allclose(along, principal[:, 2], atol=1e-9 * scale)
        without = []
        for name, _, components in kestralum.quantities():
            try:
                self.assertEqual(run.quantity(name).shape, (len(s), 3)[: 1 if components == 1 else 2])
            except kestralum.Error:
                without.append(name)
        self.assertEqual(without, ["velocity", "acceleration"])
        with self.assertRaisesRegex(kestralum.Error, "no quantity 'colour'"):
            run.quantity("colour")
        with self.assertRaisesRegex(kestralum.Error, "has no velocities"):
            run.frame.velocities

    def test_modes_of_a_cantilever(self):
        m = bar(n=40)
        m.add("mode_num", 3)
        m.add("hexahedra", "enhanced")
        run = m.run("eigen-lanczos")
        inertia, area = 0.02 * 0.01**3 / 12, 0.02 * 0.01
        # Euler and Bernoulli's beam; its effective mass: Blevins, Formulas for Natural Frequency, 1979, ch. 8
        beam = 1.8751**2 / (2 * np.pi) * np.sqrt(200e9 * inertia / (7800 * area * 0.1**4))
        mass = 7800 * area * 0.1
        self.assertAlmostEqual(run.frequencies[0], beam, delta=0.02 * beam)
        self.assertEqual((run.modes.shape, run.effective_mass.shape), ((3, len(m.nodes), 3), (3, 3)))
        np.testing.assert_array_equal(run.modes[1], run[1].displacements)
        self.assertAlmostEqual(run.effective_mass[0, 1], 0.613 * mass, delta=0.01 * mass)
        self.assertLess(run.residuals.max(), 1e-6)
        np.testing.assert_allclose(m.run("eigen-subspace").frequencies, run.frequencies, rtol=1e-6)
        stiffer = m.run("eigen-lanczos", prestress=True).frequencies[0]  # the pull stretches it
        self.assertGreater(stiffer, run.frequencies[0] * 1.001)
        for wrong in ({"prestress": True}, {"mean_dilatation": True}, {"hexahedra": "good"},
                      {"sections": ["q=1"]}):
            with self.assertRaises(kestralum.Error):
                m.run("static", **wrong)
        with self.assertRaisesRegex(kestralum.Error, "no times"):
            run.times

    def test_a_bar_that_strikes_a_wall_flies_back(self):
        m = kestralum.read(data("explicit_bar_wall.txt"))
        run = m.run("explicit", probes=[(0, 0, 0)])
        self.assertEqual((len(run.times), run[0].velocities.dtype), (len(run), np.float32))
        energies = run.energies
        self.assertLess(abs(energies["drift"]), 1e-9)
        speed = run.velocities.mean(axis=0)
        before = run[0].velocities.mean(axis=0)
        axis = np.abs(before).argmax()
        self.assertLess(speed[axis] * before[axis], 0)
        np.testing.assert_allclose(run.history["time"], run.times, rtol=1e-12)
        self.assertAlmostEqual(run.table["end time [s]"], 120e-6, delta=1e-6)
        control = m.control
        m.control = None
        self.assertEqual(m.run("explicit").times.tolist(), [0])  # no end_time
        m.control = control.replace("explicit", "explicit d_time soon")
        with self.assertRaisesRegex(kestralum.Error, "explicit_bar_wall.ana: token 4 'soon'"):
            m.nodes

    def test_increments_and_an_early_end_keep_what_was_reached(self):
        m = bar(poisson=0.3)
        m.add("step_num", 2)
        run = m.run("nonlinear")
        np.testing.assert_allclose(run.load_factors, [0.5, 1])
        np.testing.assert_allclose(run.displacements, run[-1].displacements)
        self.assertGreater(run[1].displacements[:, 2].max(), 1.9 * run[0].displacements[:, 2].max())
        m.set(F=-2e6).add("iteration", 2)
        with self.assertRaisesRegex(kestralum.Error, "did not converge in 2 iterations") as raised:
            m.run("nonlinear")
        self.assertEqual(len(raised.exception.run), 1)

    def test_sweep_is_that_of_the_command(self):
        told = batch("static", data("cantilever.txt"), "--sweep", "nl=10,20,30", "--sweep", "nh=2,4",
                     "--set", "F=500", "--log", self.folder)
        self.assertEqual(told.returncode, 0, told.stderr)
        m = kestralum.read(data("cantilever.txt"), parameters={"F": 500})
        lines = []
        table = m.sweep("static", nl=[10, 20, 30], nh=(2, 4), console=lines.append)
        with open(self.inside("sweep_cantilever.csv"), encoding="utf-8", newline="") as file:
            rows = list(csv.reader(file))
        table.write(self.inside("mine.csv"))
        with open(self.inside("mine.csv"), encoding="utf-8", newline="") as file:
            mine = list(csv.reader(file))
        seconds = rows[0].index("seconds [s]")
        for row in mine + rows:
            del row[seconds]
        self.assertEqual(mine, rows)
        self.assertEqual(len(rows), 7)
        for title in ("nl", "nodes", "largest displacement [m]"):
            column = rows[0].index(title)
            np.testing.assert_array_equal(table[title], [float(row[column]) for row in rows[1:]])
        for line in lines:
            self.assertIn(line.strip(), told.stdout)
        self.assertEqual(len(lines), 6)
        # the same by hand
        for k, nl in enumerate((10, 20, 30)):
            run = m.set(nl=nl, nh=2).run("static")
            self.assertEqual(run.largest_displacement["value"], table["largest displacement [m]"][2 * k])
        failing = m.sweep("static", b=[0.02, 0])
        self.assertEqual((failing["status"][0], bool(failing["error"][1])), ("done", True))
        self.assertTrue(np.isnan(failing["nodes"][1]))
        for wrong in ({"x": [1]}, {"nl": []}, {"nl": [1, 1]}, {"nl": [1], "nh": [1], "b": [1]}):
            with self.assertRaises(kestralum.Error):
                m.sweep("static", **wrong)


class Documents(Folder):
    def blocks(self, name):
        """Pairs of a block of Python and of what it prints, None where the document does not tell."""
        with open(os.path.join(SOURCE, name), encoding="utf-8") as file:
            return re.findall(r"```python\n(.*?)```\n(?:```\n(.*?)```\n)?", file.read(), flags=re.S)

    def test_examples_print_what_the_documents_say(self):
        os.symlink(DATA, self.inside("data"))
        code, told = zip(*self.blocks("docs/python.md"))
        self.assertEqual(len(code), 4)
        self.assertIn((code[0], told[0]), self.blocks("README.md"))
        done = subprocess.run([sys.executable, "-c", "\n".join(code)], capture_output=True, text=True,
                              cwd=self.folder, env={**os.environ, "PYTHONPATH": os.path.dirname(BATCH)})
        self.assertEqual(done.returncode, 0, done.stderr)
        number = r"[-+]?\d+\.?\d*(?:e[-+]?\d+)?"
        in_text = re.search(r"# (\S+)$", code[1], flags=re.M)[1] + "\n"
        expected = told[0] + in_text + told[2]
        self.assertEqual(re.sub(number, "#", done.stdout), re.sub(number, "#", expected))
        got = [[float(x) for x in re.findall(number, text)] for text in (done.stdout, expected)]
        np.testing.assert_allclose(got[0], got[1], rtol=1e-4)
        with open(self.inside("mises.ppm"), "rb") as file:
            self.assertEqual(file.readline(), b"P6 400 400 255\n")


class Process(Folder):
    def long_model(self):
        return kestralum.read(data("cantilever.txt"), parameters={"nb": 24, "nh": 24, "nl": 60})

    def test_ctrl_c_ends_a_run_within_half_a_second(self):
        m = self.long_model()
        m.nodes
        sent = []

        def interrupt():
            sent.append(time.monotonic())
            os.kill(os.getpid(), signal.SIGINT)

        for wait in (0.3, 1.5):  # while it assembles, while it factors
            timer = threading.Timer(wait, interrupt)
            timer.start()
            with self.assertRaises(KeyboardInterrupt):
                m.run("static", settings={"SOLVER": "skyline", "N_THREADS": 1})  # without METIS
            self.assertLess(time.monotonic() - sent[-1], 0.7)  # other tests have their share of the cores
            timer.join()
        self.assertEqual(len(bar().run("static")), 1)

    def test_the_console_gets_the_lines_and_may_end_the_run(self):
        pieces = []
        bar().run("static", console=pieces.append)
        text = "".join(pieces)
        self.assertIn("Static Analysis Start", text)

        def refuse(piece):
            raise RuntimeError("enough: " + piece[:3])

        with self.assertRaisesRegex(RuntimeError, "enough"):
            self.long_model().run("buckling", console=refuse)

    def test_other_threads_go_on_and_two_runs_do_not_mix(self):
        models = [kestralum.read(data("cantilever.txt"), parameters={"nl": nl}) for nl in (40, 60)]
        alone = [m.run("static", threads=1).displacements for m in models]
        together, faults = [None, None], []

        def run(k):
            try:
                together[k] = models[k].run("static", threads=1).displacements
            except Exception as fault:  # told below
                faults.append(fault)

        threads = [threading.Thread(target=run, args=(k,)) for k in (0, 1)]
        for thread in threads:
            thread.start()
        turns = 0
        while any(thread.is_alive() for thread in threads):
            turns += 1
            time.sleep(0.005)
        for thread in threads:
            thread.join()
        self.assertEqual(faults, [])
        self.assertGreater(turns, 10)
        for one, other in zip(alone, together):
            np.testing.assert_array_equal(one, other)

    def test_arrays_outlive_what_they_came_from(self):
        m = bar()
        run = m.run("static")
        frame, arrays = run[0], (m.nodes, m.elements, run.displacements, run.stresses, run.reactions)
        kept = [array.copy() for array in arrays]
        folder = [path for path in glob.glob(os.path.join(tempfile.gettempdir(), "kestralum-*"))
                  if os.path.isfile(os.path.join(path, "result_bar.txt"))]
        m.nodes[:] = 7  # a copy of its own
        m.set(n=2)
        m.nodes
        del run, m
        gc.collect()
        [np.ones(100000) for _ in range(20)]  # what was freed is used again
        for array, copy in zip(arrays, kept):
            np.testing.assert_array_equal(array, copy)
        np.testing.assert_array_equal(frame.displacements, kept[2])
        self.assertTrue(folder)
        self.assertFalse(any(os.path.exists(path) for path in folder))

    def python(self, code, limit=None, **variables):
        environment = {**os.environ, **variables}
        command = [sys.executable, "-c", code]
        if limit:
            command = ["sh", "-c", f'ulimit -v {limit}; exec "$0" "$@"', *command]
        return subprocess.run(command, env=environment, capture_output=True, text=True, timeout=60,
                              cwd=SOURCE)

    def test_a_limit_of_address_space_is_told_and_not_hung_in(self):
        little = self.python("import kestralum", limit=200000, OMP_NUM_THREADS="1")
        self.assertEqual(little.returncode, 1)
        self.assertIn("ImportError: the limit of address space (ulimit -v) is too small", little.stderr)
        static = "import kestralum; m = kestralum.read('data/cantilever.txt', parameters={'nl': 5})"
        static += "; print(len(m.run('static')))"
        enough = self.python(static, limit=1200000, OMP_NUM_THREADS="1")
        self.assertEqual(enough.stdout, "1\n", enough.stderr)
        numpy_first = self.python("import numpy; " + static, limit=1200000, OMP_NUM_THREADS="1")
        self.assertEqual(numpy_first.stdout, "1\n", numpy_first.stderr)

    def test_one_openblas_serves_numpy_and_the_module(self):
        code = ("import numpy, kestralum; kestralum.Model; "
                "print(len({l.split()[-1] for l in open('/proc/self/maps') if 'libopenblas' in l}))")
        self.assertEqual(self.python(code).stdout, "1\n")

    def test_slower_kernels_are_told(self):
        with open("/proc/cpuinfo", encoding="utf-8") as file:
            flags = file.read().split()
        slow = self.python("import kestralum; print(kestralum.kernels_note())", OPENBLAS_CORETYPE="Haswell")
        wide = {"avx512f", "avx512dq", "avx512bw", "avx512vl"} <= set(flags)
        self.assertEqual("OPENBLAS_CORETYPE=SkylakeX" in slow.stdout, wide, slow.stderr)

    def test_everything_has_its_help(self):
        for name in kestralum.__all__:
            thing = getattr(kestralum, name)
            if name == "version":
                continue
            self.assertTrue(inspect.getdoc(thing), name)
            self.assertEqual(thing.__module__ if inspect.isclass(thing) else "kestralum", "kestralum", name)
            for member in vars(thing) if inspect.isclass(thing) and name != "Error" else ():
                if not member.startswith("_"):
                    self.assertTrue(inspect.getdoc(getattr(thing, member)), f"{name}.{member}")
        with open(os.path.join(SOURCE, "app", "python", "kestralum.pyi"), encoding="utf-8") as file:
            stub = ast.parse(file.read())
        told = {node.name: node for node in stub.body if isinstance(node, (ast.ClassDef, ast.FunctionDef))}
        self.assertEqual(set(told) | {"version"}, set(kestralum.__all__))
        for name in ("Model", "Frame", "Run"):
            members = {getattr(one, "name", None) or one.target.id for one in told[name].body}
            public = {member for member in vars(getattr(kestralum, name)) if not member.startswith("_")}
            self.assertEqual({member for member in members if not member.startswith("_")}, public)
        self.assertIn("eigen-lanczos", kestralum.analyses())
        self.assertEqual(kestralum.sections()[:2], ["parameter", "material_info"])


if __name__ == "__main__":
    unittest.main()
