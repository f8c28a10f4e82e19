"""Counts what does not depend on the machine's speed, and compares it with what was checked in."""

import glob
import json
import math
import os
import re
import subprocess

from bench.machine import MEDIA, PROGRAMS, ROOT, Failure, Folder

BASELINE = os.path.join(ROOT, "bench/baseline.json")
LOSS = 0.2  # of a count, or on top of a power of n
HOUR_RESULTS = 13
TEN_MINUTES_FRAMES = 15000
MOUNT_ORDERS = ("in order", "rotated", "shuffled")


def read_results(path):
    with open(path, encoding="utf-8") as file:
        return {name: float(value) for name, value in (line.rsplit(" ", 1) for line in file)}


def run_counts(mode, prefix=(), environment=None):
    with Folder(in_memory=True) as folder:
        results = os.path.join(folder, "results")
        done = subprocess.run([*prefix, f"{PROGRAMS}/count_bench", MEDIA, folder, results, mode], check=False,
                              env={**os.environ, **(environment or {})}, stdout=subprocess.DEVNULL,
                              stderr=subprocess.PIPE, text=True)
        if done.returncode != 0:
            raise Failure(f"count_bench {mode} failed: {done.stderr[-500:]}")
        return read_results(results)


def count_instructions():
    """Instructions of the parts that the program names, and what it counts itself."""
    with Folder(in_memory=False) as folder:
        results = run_counts("instructions", ["valgrind", "--tool=callgrind", "--instr-atstart=no",
                                              f"--callgrind-out-file={folder}/dump"])
        instructions = {}
        for path in glob.glob(f"{folder}/dump*"):
            with open(path, encoding="utf-8", errors="replace") as file:
                text = file.read()
            name = re.search(r"^desc: Trigger: Client Request: (.*)$", text, re.MULTILINE)
            if name:
                instructions[name.group(1)] = float(re.search(r"^totals: (\d+)$", text, re.MULTILINE).group(1))
    return instructions, results


def growth(of, small, large):
    """The power of n with which a count grows between two sizes."""
    return math.log(of[large] / of[small]) / math.log(float(large.rsplit("/")[-1]) / float(small.rsplit("/")[-1]))


def count():
    """All counts but the slow ones, as ratios, by name."""
    instructions, results = count_instructions()
    calls = run_counts("calls")
    counted = {
        "write: instructions a frame": instructions["write"] / results["write/frames"],
        "write: instructions a byte": instructions["write"] / results["write/bytes"],
        "play: instructions a frame": instructions["play"] / results["play/frames"],
        "record: allocations in 4 minutes": calls["record/allocations"],
    }
    for name in ("record/bytes written a byte", "record/writes a minute", "record/syncs a minute", "play/reads a frame",
                 "probe/opens a file", "probe/reads a file", "probe/stats a file", "probe/writes a file"):
        counted[name.replace("/", ": ")] = calls[name]
    for order in MOUNT_ORDERS:
        counted[f"mount, {order}: instructions a file"] = instructions[f"mount {order}/4000"] / 4000
        counted[f"mount, {order}: power of n"] = growth(instructions, f"mount {order}/1000", f"mount {order}/4000")
    counted["search an hour: instructions a result"] = instructions["search an hour/4000"] / HOUR_RESULTS
    counted["search everything: instructions a result"] = instructions["search everything/4000"] / 2000
    counted["close: instructions, to the container's"] = instructions["close/4000"] / instructions["close limit/4000"]
    counted["open and seek: instructions a frame"] = instructions["open and seek/10"] / TEN_MINUTES_FRAMES
    for name, small, large in (("search an hour", 1000, 4000), ("search everything", 1000, 4000), ("close", 1000, 4000),
                               ("open and seek", 1, 10)):
        counted[f"{name}: power of n"] = growth(instructions, f"{name}/{small}", f"{name}/{large}")
    return counted


def count_growth():
    """Heap of a full catalogue, and what a million frames leave behind; freed blocks that the C library keeps for
    the next allocation do not count."""
    results = run_counts("growth", environment={"GLIBC_TUNABLES": "glibc.malloc.tcache_count=0"})
    return {"heap: bytes with 16,000 recordings": results["heap/catalogue"],
            "heap: bytes left by 10,000 recordings": results["heap/growth"]}


def check(counted):
    """Prints each count beside the one that was checked in. Returns how many are lost."""
    with open(BASELINE, encoding="utf-8") as file:
        baseline = json.load(file)
    if counted.keys() != baseline.keys():
        raise Failure("bench/baseline.json has other counts than are taken: write it anew with scripts/bench --update")
    lost = 0
    for name, value in counted.items():
        bound = baseline[name] + LOSS * (1 if name.endswith("power of n") else baseline[name])
        worse = value > bound + 1e-9
        lost += worse
        print(f"{name:42}{value:14.3f}{baseline[name]:14.3f}{'   LOST' if worse else ''}")
    return lost


def update(counted):
    with open(BASELINE, "w", encoding="utf-8") as file:
        json.dump({name: round(value, 4) for name, value in counted.items()}, file, indent=1)
        file.write("\n")
