#!/usr/bin/env python3
"""What every analysis does on a machine that fails it: a full disk, a folder that cannot be written or vanishes,
too little memory, a kill, a damaged spill file, a second process in the same folder.

Usage: fault_runs.py PROGRAM [KILLS] [ANALYSIS]...   ANALYSIS: a name of the table below; all of them unless given

Each run has to end with status 0 and the undisturbed run's bytes, or with status 1 and an error line: never by a
signal that was not sent, never with half a result in place of the earlier one. Prints a line per analysis and fault.
"""
import os
import random
import re
import resource
import shutil
import signal
import subprocess
import sys
import tempfile
import time
from pathlib import Path

MODEL = """%a
material_info S 7800 2e11 0.3 %
part_info B red S RECT 0.1 0.1 0.4 0 0 0 {cells} 0 0 0 0 0 0 0 0 0 %
boundary_condition C plane z 0 0 0 0 0 0 %
apply_force P area z -1e6 0 0.1 0 0.1 0.4 0.4 %
END
"""
CONTROL = "B explicit\nend_time 2e-4\noutput_frequency 40\nload_inc_num 4\nEND\n"
SETTINGS = "KESTRALUM settings MEMORY_SIZE {memory} FREE_HD_SIZE 40000 a 45 b 0.01 c 100 ORDERING_TYPE LALL C_EIGEN_SHIFT 0.5 " \
    "DIV_MEMORY_SIZE 1 NL_STATIC stop NL_CONV 1e-6 N_THREADS MAX SOLVER {solver}\n"
ANALYSES = {  # name: analysis, memory for the factor (MB), solver, divisions of the box
    "static": ("static", 8000, "skyline", "6 6 24"),
    "static sparse": ("static", 8000, "sparse", "8 8 32"),
    "static spilled": ("static", 4, "skyline", "6 6 24"),
    "sparse spilled": ("static", 2, "sparse", "8 8 32"),
    "iterative": ("static", 8000, "iterative", "8 8 32"),
    "eigen": ("eigen-lanczos", 8000, "auto", "6 6 24"),
    "subspace": ("eigen-subspace", 8000, "skyline", "5 5 20"),
    "buckling": ("buckling", 8000, "auto", "5 5 20"),
    "nonlinear": ("nonlinear", 8000, "auto", "5 5 20"),
    "explicit": ("explicit", 8000, "auto", "5 5 20"),
}


class Bench:
    def __init__(self, program, name, folder):
        self.name, self.folder = name, folder
        analysis, memory, solver, cells = ANALYSES[name]
        (folder / "m.txt").write_text(MODEL.format(cells=cells))
        (folder / "m.ana").write_text(CONTROL)
        (folder / "s.txt").write_text(SETTINGS.format(memory=memory, solver=solver))
        self.command = [program, analysis, "m.txt", "--quiet", "--setting", "s.txt", "--log"]
        self.faults, self.counts = [], {}
        self.seconds = 0.0
        started = time.monotonic()
        ended = self.run("good")
        self.seconds = time.monotonic() - started
        if ended.returncode != 0:
            sys.exit(f"{name}: the undisturbed run fails: {ended.stderr}")
        self.good = self.results("good")

    def start(self, log, limits=lambda: None, environment=None):
        def prepare():
            signal.signal(signal.SIGXFSZ, signal.SIG_IGN)
            limits()
        return subprocess.Popen(self.command + [log], cwd=self.folder, stdout=subprocess.PIPE, stderr=subprocess.PIPE,
                                text=True, preexec_fn=prepare, env={**os.environ, **(environment or {})})

    def run(self, log, limits=lambda: None):
        run = self.start(log, limits)
        try:
            run.out, run.err = run.communicate(timeout=120)
        except subprocess.TimeoutExpired:
            run.kill()
            run.out, run.err = run.communicate()
            run.returncode = None
        run.stderr = run.err
        return run

    def results(self, log):
        """Every file that stays, but for the spilled factor, which the run may leave, and times of day."""
        files = {}
        for path in sorted((self.folder / log).glob("*")):
            if not re.match(r"[LSW]temp", path.name):
                files[path.name] = re.sub(rb"(seconds|created|time of).*", b"", path.read_bytes())
        return files

    def count(self, kind, outcome):
        self.counts.setdefault(kind, {}).setdefault(outcome, 0)
        self.counts[kind][outcome] += 1

    def judge(self, kind, detail, log, run, earlier):
        """Whole or an error line; the earlier results stay where it failed; nothing half written is left."""
        def fault(text):
            self.faults.append(f"{kind} {detail}: {text}")
        if run.returncode is None:
            return fault("still running after two minutes")
        left = self.results(log) if (self.folder / log).is_dir() else {}
        part = [n for n in left if n.endswith(".part")]
        if part and kind != "kill":
            fault(f"left {part}")
        if run.returncode == 0:
            self.count(kind, "done")
            if {n: left.get(n) for n in self.good} != self.good:
                fault("ended with status 0 and other results")
        elif run.returncode in (1, 2):  # 2: the folder cannot be used, as for any wrong input
            self.count(kind, "told")
            if not run.stderr.strip():
                fault(f"status {run.returncode} without an error line")
            for name, text in earlier.items():
                if left.get(name) != text:
                    fault(f"{name} of before is {'gone' if name not in left else 'another one'}")
        elif run.returncode == -signal.SIGKILL and kind == "kill":
            self.count(kind, "killed")
            for name, text in left.items():
                if name in self.good and not name.endswith(".part") and text not in (self.good[name], earlier.get(name)):
                    if not re.match("frames|checkpoint|history", name):
                        fault(f"{name} is neither the earlier nor the new one")
        else:
            fault(f"ended with {run.returncode}: {(run.stderr.strip().splitlines() or [''])[-1]}")

    def fresh(self, log):
        shutil.rmtree(self.folder / log, ignore_errors=True)
        shutil.copytree(self.folder / "good", self.folder / log)
        return self.results(log)

    def limited(self):
        for limit in [0, 100, 1000, 5000, 20000, 100_000, 300_000, 1_000_000, 3_000_000, 10_000_000]:
            earlier = self.fresh("log")
            run = self.run("log", lambda: resource.setrlimit(resource.RLIMIT_FSIZE, (limit, limit)))
            self.judge("file size", f"{limit} bytes", "log", run, earlier)
        # address space: OpenBLAS and the libraries reserve some hundred MB before the first line
        for megabytes in [150, 200, 250, 300, 350, 400, 500, 600, 800, 1000]:
            earlier = self.fresh("log")
            size = megabytes << 20
            run = self.run("log", lambda: resource.setrlimit(resource.RLIMIT_AS, (size, size)))
            self.judge("memory", f"{megabytes} MB", "log", run, earlier)

    def small_disk(self):
        disk = self.folder / "disk"
        disk.mkdir()
        for kilobytes in [4, 32, 128, 512, 2048]:
            if subprocess.run(["mount", "-t", "tmpfs", "-o", f"size={kilobytes}k", "tmpfs", disk], capture_output=True).returncode:
                return self.count("small disk", "not allowed to mount")
            try:
                self.judge("small disk", f"{kilobytes} kB", "disk", self.run("disk"), {})
            finally:
                subprocess.run(["umount", disk], check=True)

    def folders(self):
        (self.folder / "a_file").write_text("mine")
        run = self.run("a_file")
        self.judge("folder", "that is a file", "a_file", run, {})
        if run.returncode == 0 or (self.folder / "a_file").read_text() != "mine":
            self.faults.append("folder that is a file: it was used")
        if os.getuid() == 0:  # root writes everywhere: somebody else
            closed = self.folder / "closed"
            closed.mkdir(mode=0o555)
            self.folder.chmod(0o755)
            self.judge("folder", "not writable", "closed", self.run("closed", lambda: os.setuid(65534)), {})
        rng = random.Random(3)
        for k in range(8):
            log = f"vanishing{k}"
            (self.folder / log).mkdir()
            run = self.start(log)
            time.sleep(rng.uniform(0, self.seconds))
            shutil.rmtree(self.folder / log, ignore_errors=True)
            run.out, run.stderr = run.communicate(timeout=120)
            if run.returncode == 0 and {n: t for n, t in self.results(log).items()} != self.good:
                # what had its place already went with the folder
                self.count("vanishing folder", "done before")
                continue
            self.judge("vanishing folder", f"at {k}", log, run, {})

    def kills(self, count):
        rng = random.Random(1)
        for k in range(count):
            earlier = self.fresh("log") if k % 2 else {}
            if not earlier:
                shutil.rmtree(self.folder / "log", ignore_errors=True)
            run = self.start("log")
            try:
                run.wait(rng.uniform(0, 1.1) * self.seconds)
            except subprocess.TimeoutExpired:
                run.kill()
            run.out, run.stderr = run.communicate()
            self.judge("kill", f"{k}", "log", run, earlier)
            if k % 10 == 9:  # and the next run is none the worse for it
                self.judge("run after kills", f"{k}", "log", self.run("log"), {})

    def damaged_spill(self):
        """Stopped as soon as a factor file stands there, which is cut or overwritten, and let go on."""
        for damage in ["cut", "zeros"]:
            shutil.rmtree(self.folder / "log", ignore_errors=True)
            run = self.start("log")
            spilled = []
            while run.poll() is None and not spilled:
                spilled = [p for p in (self.folder / "log").glob("[LSW]temp*") if p.stat().st_size > 100_000]
                time.sleep(0.001)
            if run.poll() is None and spilled:
                run.send_signal(signal.SIGSTOP)
                size = spilled[0].stat().st_size
                with open(spilled[0], "r+b") as file:
                    if damage == "cut":
                        file.truncate(size // 3)
                    else:
                        file.seek(size // 3)
                        file.write(bytes(size // 3))
                run.send_signal(signal.SIGCONT)
            run.out, run.stderr = run.communicate(timeout=120)
            if spilled:
                self.judge("damaged spill file", damage, "log", run, {})

    def together(self):
        for k in range(3):
            earlier = self.fresh("log")
            runs = [self.start("log"), self.start("log")]
            for run in runs:
                run.out, run.stderr = run.communicate(timeout=120)
            for run in runs:
                self.judge("two at once", f"{k}", "log", run, earlier)

    def all(self, kills):
        self.limited()
        self.small_disk()
        self.folders()
        self.damaged_spill()
        self.together()
        self.kills(kills)


def main():
    program = str(Path(sys.argv[1]).resolve())
    kills = int(sys.argv[2]) if len(sys.argv) > 2 else 100
    faults = 0
    names = sys.argv[3:] or list(ANALYSES)
    for name in names:
        with tempfile.TemporaryDirectory(prefix="fault_runs_") as folder:
            bench = Bench(program, name, Path(folder))
            bench.all(-(-kills // len(names)))
        for kind, outcomes in bench.counts.items():
            print(f"{name:15} {kind:20} " + ", ".join(f"{n} {what}" for what, n in sorted(outcomes.items())))
        for line in bench.faults:
            print(f"{name:15} FAULT {line}")
        faults += len(bench.faults)
        sys.stdout.flush()
    print(f"{faults} faults")
    return 1 if faults else 0


if __name__ == "__main__":
    sys.exit(main())
