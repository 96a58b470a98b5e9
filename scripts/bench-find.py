#!/usr/bin/env python3
"""Times kelvo-fs find against find on the same search, whole processes, runs alternated.

    scripts/bench-find.py [--tool KELVO_FS] [--runs N] [ROOT [PATTERN]]

Prints, for each command, the median wall time and the median processor time
(user plus system, from the kernel's accounting of the finished child), and
the ratios kelvo-fs/find. The processor times are steadier than the wall
times on a busy machine. Both commands write to /dev/null; one run of each
first warms the page cache. Defaults: build/release/tools/kelvo-fs, 21 runs,
/usr/include, '*.h'.
"""
import argparse
import os
import statistics
import subprocess
import sys
import time


def timed(command):
    """Runs `command` and returns its wall time and processor time in seconds."""
    start = time.perf_counter()
    process = subprocess.Popen(command, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
    _, _, usage = os.wait4(process.pid, 0)
    wall = time.perf_counter() - start
    process.returncode = 0
    return wall, usage.ru_utime + usage.ru_stime


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--tool", default="build/release/tools/kelvo-fs")
    parser.add_argument("--runs", type=int, default=21)
    parser.add_argument("root", nargs="?", default="/usr/include")
    parser.add_argument("pattern", nargs="?", default="*.h")
    arguments = parser.parse_args()
    if not os.access(arguments.tool, os.X_OK):
        sys.exit(f"bench-find: no executable {arguments.tool}")
    ours = [arguments.tool, "find", arguments.root, "-name", arguments.pattern]
    theirs = ["find", arguments.root, "-name", arguments.pattern]
    timed(ours)
    timed(theirs)
    results = {"kelvo-fs find": [], "find": []}
    for _ in range(arguments.runs):
        results["kelvo-fs find"].append(timed(ours))
        results["find"].append(timed(theirs))
    print(f"runs: {arguments.runs}  root: {arguments.root}  pattern: {arguments.pattern}")
    medians = {}
    for name, samples in results.items():
        wall = statistics.median(sample[0] for sample in samples)
        processor = statistics.median(sample[1] for sample in samples)
        medians[name] = (wall, processor)
        print(f"{name:14} median wall {wall * 1000:8.2f} ms   median user+sys {processor * 1000:8.2f} ms")
    ratioWall = medians["kelvo-fs find"][0] / medians["find"][0]
    ratioProcessor = medians["kelvo-fs find"][1] / medians["find"][1] if medians["find"][1] > 0 else float("nan")
    print(f"ratio kelvo-fs/find: wall {ratioWall:.2f}, user+sys {ratioProcessor:.2f}")


if __name__ == "__main__":
    main()
