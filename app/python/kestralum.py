"""KESTRALUM: finite-element analyses of solid bodies.

    import kestralum
    model = kestralum.read("data/cantilever.txt")
    for nl in 25, 50, 100, 200:
        run = model.set(nl=nl).run("static")
        print(nl, run.largest_displacement["value"], run.mises.max())

read() reads a model file, Model() builds one from the same records; Model.run() analyses it and gives a Run
with its results as NumPy arrays, Model.sweep() runs it for each value of a parameter. What cannot be done
raises kestralum.Error with the text that the program prints for it. Units are SI: m, kg, s, N, Pa. Indices
count from 0.
"""

import sys as _sys


def _look_at_address_space():
    """Whether there is a limit. Where it leaves OpenBLAS no buffer for a thread it tries for ever while it is
    loaded: ImportError instead."""
    import mmap
    import os
    import resource

    limit = resource.getrlimit(resource.RLIMIT_AS)[0]
    if limit == resource.RLIM_INFINITY:
        return False
    with open("/proc/self/maps") as maps:
        if "libopenblas" in maps.read():
            return True  # somebody else's, NumPy's above all: it has its buffers
    buffer, stack = 129 << 20, 72 << 20  # bytes of a thread
    threads = len(os.sched_getaffinity(0))
    wanted = os.environ.get("OMP_NUM_THREADS", "").split(",")[0].strip()
    if wanted.isdigit() and int(wanted) > 0:
        threads = min(threads, int(wanted))
    try:
        map_noreserve = 0x4000
        flags = mmap.MAP_PRIVATE | mmap.MAP_ANONYMOUS | map_noreserve
        mmap.mmap(-1, min(threads, 128) * (2 * buffer + stack), flags=flags, prot=0).close()
    except OSError:
        raise ImportError(
            "the limit of address space (ulimit -v) is too small: the matrix library takes 330 MB for each "
            "thread, with OMP_NUM_THREADS=1 for one"
        ) from None
    return True


_limited = _look_at_address_space()

import _kestralum  # noqa: E402
from _kestralum import Error, Frame, Model, Run, analyses, quantities, sections  # noqa: E402

if _limited:
    _kestralum._take_blas_buffers()

__all__ = ["Error", "Frame", "Model", "Run", "Table", "analyses", "kernels_note", "quantities", "read",
           "sections", "version"]
__version__ = version = _kestralum.version.removeprefix("ver")

for _class in Frame, Model, Run:
    _class.__module__ = __name__
del _class


def read(path, settings=None, parameters=None, console=None):
    """The Model of a model file, meshed, with the control file (.ana) beside it where there is one.

    settings    None: setting/setting.txt of the working folder where there is one, else the shipped values; a
                path of a settings file; or a dict of its labels, {"SOLVER": "sparse", "N_THREADS": 2}
    parameters  a dict of values or expressions in place of those in the file, as --set gives them
    console     a callable that gets the program's text piece by piece, e.g. sys.stdout.write
    """
    return _kestralum._read(path, settings, parameters, console)


class Table(dict):
    """The rows of a sweep as columns: {heading: array}, a value for each run, NaN where a run has none;
    "status" and "error" are lists. str() is the table that the program prints; write(path) writes its file of
    commas."""

    def __init__(self, axes, columns, text, csv):
        super().__init__(columns)
        self.axes, self._text, self.csv = axes, text, csv

    def __str__(self):
        return self._text

    def write(self, path):
        """Writes the rows with commas and all digits, as kestralum-batch --sweep does."""
        with open(path, "w", encoding="utf-8", newline="") as file:
            file.write(self.csv)


def _sweep(self, analysis, axes=None, *, case="", prestress=False, mean_dilatation=False, hexahedra="",
           threads=None, settings=None, console=None, **values):
    """Runs an analysis for each value of a parameter, or for each pair of values of two; gives a Table.

    model.sweep("static", nl=[25, 50, 100, 200]); a parameter whose name is that of an argument goes into the
    dict `axes`. Small models run side by side. A run that fails is a row that says why. The other arguments
    are those of run(); console gets a line for each run.
    """
    axes = {**(axes or {}), **values}
    return Table(*self._sweep(analysis, axes, case, prestress, mean_dilatation, hexahedra, threads, settings,
                              console))


_sweep.__name__ = _sweep.__qualname__ = "sweep"
Model.sweep = _sweep


def kernels_note():
    """A line where OpenBLAS, which a process loads but once, runs with slower kernels than the processor has;
    runs then differ from those of kestralum-batch in the last digits. Otherwise ''."""
    better = _kestralum._better_kernels()
    if not better:
        return ""
    return (f"OpenBLAS has slower kernels than this processor: with OPENBLAS_CORETYPE={better} in the "
            "environment of Python runs are faster, and equal to those of kestralum-batch to the last digit")


if kernels_note():
    print("note: " + kernels_note(), file=_sys.stderr)
