#!/usr/bin/env python3
"""Kills explicit runs at random moments: what they leave must be whole, and --restart must end in the same bytes.

Usage: kill_runs.py PROGRAM MODEL [KILLS] [SEED]

Runs MODEL once undisturbed and keeps its files. Then runs it with checkpoints and kills it (SIGKILL) after a
random time, checks the frames file record by record against that of the undisturbed run, converts it with
`frames`, goes on with --restart (from the start where no checkpoint had been written), and so on. Each time a run
comes to its end all its files are compared; runs are started until KILLS have been killed.
"""
import random
import shutil
import struct
import subprocess
import sys
import tempfile
import time
from pathlib import Path

FILES = ["result_{0}", "disp_{0}", "history_{1}.csv", "frames_{0}"]


def whole_records(data):
    """Where the whole records of a frames file end, from the lengths they begin with."""
    ends, at = [], 24
    while at + 16 <= len(data):
        length = struct.unpack_from("<Q", data, at + 8)[0]
        end = at + 16 + (length + 7) // 8 * 8 + 8
        if end > len(data):
            break
        ends.append(end)
        at = end
    return ends


def main():
    program, model = Path(sys.argv[1]).resolve(), Path(sys.argv[2]).resolve()
    kills = int(sys.argv[3]) if len(sys.argv) > 3 else 50
    rng = random.Random(int(sys.argv[4]) if len(sys.argv) > 4 else 1)
    name, stem = model.name, model.name.rsplit(".", 1)[0]
    folder = Path(tempfile.mkdtemp(prefix="kill_runs_"))
    setting = model.parent.parent / "setting" / "setting.txt"

    def command(*more):
        return [program, *map(str, more), "--setting", setting]

    def explicit(log, *more):
        return command("explicit", model, "--quiet", "--keep-frames", "--log", folder / log, *more)

    started = time.monotonic()
    subprocess.run(explicit("whole"), check=True, stdout=subprocess.DEVNULL)
    seconds = time.monotonic() - started
    good = {f: (folder / "whole" / f.format(name, stem)).read_bytes() for f in FILES}
    frames_file = folder / "run" / f"frames_{name}"
    checkpoint = folder / "run" / f"checkpoint_{name}"
    done = faults = frames_seen = restarts = ended = fresh = 0
    while done < kills:
        going_on = checkpoint.exists()
        restarts += going_on
        fresh += not going_on
        if not going_on:
            shutil.rmtree(folder / "run", ignore_errors=True)
        threads = ["--checkpoint", seconds / 30] + (["--restart"] if going_on else [])
        with subprocess.Popen(explicit("run", *threads), stdout=subprocess.DEVNULL, stderr=subprocess.PIPE) as run:
            try:
                run.wait(rng.uniform(0.1, 0.8) * seconds)
            except subprocess.TimeoutExpired:
                run.kill()
            told = run.stderr.read().decode()
        if run.returncode == 0:
            ended += 1
            for f in FILES:
                if (folder / "run" / f.format(name, stem)).read_bytes() != good[f]:
                    faults += 1
                    print(f"{f.format(name, stem)} differs after a restart")
            shutil.rmtree(folder / "run")
            continue
        if run.returncode > 0:
            faults += 1
            print(f"a run ended with {run.returncode}: {told}")
            shutil.rmtree(folder / "run")
            continue
        done += 1
        data = frames_file.read_bytes() if frames_file.exists() else b""
        ends = whole_records(data)
        if ends and data[: ends[-1]] != good[FILES[3]][: ends[-1]]:
            faults += 1
            print(f"kill {done}: the frames are not those of the whole run")
        frames_seen += max(len(ends) - 1, 0)
        if len(ends) > 1:
            made = subprocess.run(command("frames", frames_file, "--log", folder / "made"), capture_output=True, text=True)
            found = [line.split()[1].rstrip(",") for line in made.stdout.splitlines() if line.startswith("frames ")]
            if made.returncode != 0 or found != [str(len(ends) - 1)]:
                faults += 1
                print(f"kill {done}: {len(ends) - 1} frames, 'frames' says {found} {made.stderr}")
    # the last one to its end
    going_on = ["--restart"] if checkpoint.exists() else []
    if not going_on:
        shutil.rmtree(folder / "run", ignore_errors=True)
    subprocess.run(explicit("run", *going_on), check=True, stdout=subprocess.DEVNULL)
    faults += sum((folder / "run" / f.format(name, stem)).read_bytes() != good[f] for f in FILES)
    print(f"{name}: {done} kills in runs of {seconds:.2f} s, {frames_seen} frames read behind them, {fresh} starts, "
          f"{restarts} restarts, {ended + 1} runs to the end: {faults} faults")
    shutil.rmtree(folder)
    return 1 if faults else 0


if __name__ == "__main__":
    sys.exit(main())
