#!/usr/bin/env python3
"""Ratio tables from kelvo_bench JSON output: ours/std, ours/boost, ours/raw per case, checked against the targets.

Usage:
    kelvo_bench --benchmark_repetitions=5 --benchmark_report_aggregates_only=true \
        --benchmark_format=json --benchmark_out=results.json --benchmark_out_format=json
    python3 bench/ratios.py results.json [more.json ...] [--metric cpu|real] [--markdown] [--check]

Benchmark names have the form <family>/<operation>/<case>/<implementation>,
where the implementation is one of kelvo, std, boost, raw. For each name the
median aggregate is taken (or, without aggregates, the median of the plain
runs); with several files, the median of their medians. --check makes the exit
status 1 when a target is missed. Standard library only.
"""

import argparse
import json
import re
import statistics
import sys

IMPLEMENTATIONS = ["kelvo", "std", "boost", "raw"]
REFERENCES = ["std", "boost", "raw"]

# (pattern on "<family>/<operation>/<case>", reference implementation,
#  largest allowed ours/reference ratio, strict: the ratio must be below it).
# A reference "implementation@operation" is that implementation's time for
# another operation on the same case (ours included).
TARGETS = [
    (r"path/construct/ascii(40|400)$", "std", 0.5, False),
    (r"path/construct/accented\d*$", "std", 2.0, False),
    (r"path/construct_native/accented\d+$", "std@construct", 1.5, False),
    (r"path/construct_native/accented\d+$", "kelvo@construct", 1.2, False),
    (r"path/equal/ascii400$", "std", 1.2, False),
    (r"path/parent_path/", "std", 0.5, False),
    (r"path/join/", "std", 0.5, False),
    (r"path/extension/", "std", 1.0, False),
    (r"path/filename/", "std", 3.0, False),
    (r"path/equal/", "std", 2.0, False),
    (r"path/equal_case(_last)?/", "std", 2.0, False),
    (r"path/iterate/", "boost", 2.0, False),
    (r"fs/list/", "raw", 1.25, False),
    (r"fs/list/", "std", 1.0, True),
    (r"fs/(status|exists)/", "raw", 1.1, False),
    (r"glob/match/star_tmp$", "raw", 2.0, False),
    (r"save/flushed/\w+_disk$", "raw", 1.05, False),
    # Paths by length and element count ("ascii112e20": 112 bytes, 20 elements).
    (r"path/walk/\w+e\d+$", "raw", 4.0, False),
    (r"path/construct/ascii40e8$", "std", 0.5, False),
    (r"path/construct/ascii400e68$", "std", 0.3, False),
    (r"path/construct/accented\d+e\d+$", "std", 1.0, False),
    (r"path/filename/\w+e\d+$", "std", 1.5, False),
    (r"path/equal_case/\w+e\d+$", "std", 1.5, False),
]

UNIT_TO_NS = {"ns": 1.0, "us": 1e3, "ms": 1e6, "s": 1e9}

# Display order; anything else follows in name order.
OPERATIONS = ["construct", "construct_native", "copy", "equal", "equal_case", "equal_case_last", "less", "parent_path",
              "filename", "extension", "stem", "join", "native_first", "native_cached", "iterate", "walk",
              "list", "status", "exists"]
CASES = ["ascii40", "ascii400", "accented", "accented50", "accented130", "accented430",
         "ascii40e8", "ascii112e20", "ascii400e68", "accented52e6", "accented127e12", "accented427e36", "8elements", "1000", "10000", "100000", "file"]


def orderKey(case):
    family, _, rest = case.partition("/")
    operation, _, label = rest.partition("/")
    return (family != "path",
            OPERATIONS.index(operation) if operation in OPERATIONS else len(OPERATIONS), operation,
            CASES.index(label) if label in CASES else len(CASES), label)


def load(paths, metric):
    """Returns {name: time in ns} and {name: coefficient of variation}."""
    key = "cpu_time" if metric == "cpu" else "real_time"
    medians = {}
    plain = {}
    variation = {}
    for path in paths:
        with open(path) as handle:
            data = json.load(handle)
        for run in data.get("benchmarks", []):
            if run.get("error_occurred"):
                continue
            name = run.get("run_name", run["name"])
            # A benchmark timed by the wall clock carries "/real_time".
            name = re.sub(r"/real_time$", "", name)
            scale = UNIT_TO_NS[run.get("time_unit", "ns")]
            if run.get("run_type") == "aggregate":
                if run.get("aggregate_name") == "median":
                    medians.setdefault(name, []).append(run[key] * scale)
                elif run.get("aggregate_name") == "cv":
                    # The cv aggregate is a ratio, not a time.
                    variation.setdefault(name, []).append(run[key])
            else:
                plain.setdefault(name, []).append(run[key] * scale)
    times = {name: statistics.median(values) for name, values in medians.items()}
    for name, values in plain.items():
        times.setdefault(name, statistics.median(values))
    cvs = {name: max(values) for name, values in variation.items()}
    return times, cvs


def group(times):
    """Returns [(case, {implementation: time})] in display order."""
    cases = {}
    for name, value in times.items():
        case, _, implementation = name.rpartition("/")
        if implementation in IMPLEMENTATIONS:
            cases.setdefault(case, {})[implementation] = value
    return sorted(cases.items(), key=lambda item: orderKey(item[0]))


def referenceTime(case, row, reference, times):
    """Returns the reference time for `case`, or None."""
    if "@" not in reference:
        return row.get(reference)
    implementation, _, operation = reference.partition("@")
    family, _, rest = case.partition("/")
    _, _, label = rest.partition("/")
    return times.get("%s/%s/%s/%s" % (family, operation, label, implementation))


def verdicts(case, row, times):
    """Returns a list of (text, passed) for the targets that apply to `case`."""
    found = []
    for pattern, reference, limit, strict in TARGETS:
        if not re.search(pattern, case):
            continue
        base = referenceTime(case, row, reference, times)
        if "kelvo" not in row or not base:
            found.append(("%s: no data" % reference, False))
            continue
        ratio = row["kelvo"] / base
        passed = ratio < limit if strict else ratio <= limit
        found.append(("/%s %s %g: %s" % (reference, "<" if strict else "<=", limit,
                                           "pass" if passed else "FAIL"), passed))
    return found


def formatTime(value):
    if value is None:
        return "-"
    if value >= 1e6:
        return "%.1f ms" % (value / 1e6)
    if value >= 1e4:
        return "%.1f us" % (value / 1e3)
    return "%.1f ns" % value


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("files", nargs="+", help="JSON files written by kelvo_bench")
    parser.add_argument("--metric", choices=["cpu", "real"], default="cpu",
                        help="which time to compare (default: cpu, steadier on a shared machine)")
    parser.add_argument("--markdown", action="store_true", help="print a Markdown table")
    parser.add_argument("--check", action="store_true", help="exit with 1 when a target is missed")
    arguments = parser.parse_args()

    times, cvs = load(arguments.files, arguments.metric)
    cases = group(times)
    header = ["case", "kelvo", "std", "boost", "raw", "kelvo/std", "kelvo/boost", "kelvo/raw", "cv kelvo", "targets"]
    rows = []
    failures = 0
    for case, row in cases:
        ours = row.get("kelvo")
        ratios = []
        for reference in REFERENCES:
            if ours is not None and reference in row and row[reference] > 0:
                ratios.append("%.2f" % (ours / row[reference]))
            else:
                ratios.append("-")
        cv = cvs.get(case + "/kelvo")
        checks = verdicts(case, row, times)
        failures += sum(1 for _, passed in checks if not passed)
        rows.append([case] + [formatTime(row.get(i)) for i in IMPLEMENTATIONS] + ratios
                    + ["%.0f%%" % (cv * 100) if cv is not None else "-",
                       "; ".join(text for text, _ in checks) or "-"])

    if arguments.markdown:
        print("| " + " | ".join(header) + " |")
        print("|" + "|".join("---" for _ in header) + "|")
        for row in rows:
            print("| " + " | ".join(row) + " |")
    else:
        widths = [max(len(str(r[i])) for r in rows + [header]) for i in range(len(header))]
        for row in [header] + rows:
            print("  ".join(str(cell).ljust(width) for cell, width in zip(row, widths)).rstrip())
    print("\n%d target(s) missed" % failures)
    return 1 if arguments.check and failures else 0


if __name__ == "__main__":
    sys.exit(main())
