#!/usr/bin/env python3
"""Prints the benchmark table: subject, case, ours, peer, ratio and the ratio to reach.

    bench_table.py TARGETS.csv RESULT.json...

Benchmarks are named SUBJECT/CASE/WHO where WHO is "ours" or a peer's name. Times
are medians of all repetitions in all files; the ratio is the peer's time over ours.
"""
import collections
import csv
import json
import statistics
import sys


def medians(paths):
    """{(subject, case): {who: median CPU nanoseconds}} over all result files."""
    runs = collections.defaultdict(list)
    scale = {"ns": 1, "us": 1e3, "ms": 1e6, "s": 1e9}
    for path in paths:
        for run in json.load(open(path))["benchmarks"]:
            if run.get("run_type") == "aggregate":
                continue
            if run.get("error_occurred"):
                sys.exit("%s: %s" % (run["name"], run.get("error_message", "failed")))
            parts = [p for p in run["run_name"].split("/") if ":" not in p and p != "real_time"]
            who = next((p for p in reversed(parts) if not p.isdigit()), "?")
            key = (parts[0], "/".join(p for p in parts[1:] if p != who))
            measure = "real_time" if "real_time" in run["run_name"] else "cpu_time"
            runs[key, who].append(run[measure] * scale[run["time_unit"]])
    table = collections.defaultdict(dict)
    for (key, who), times in runs.items():
        table[key][who] = statistics.median(times)
    return table


def readable(ns):
    for unit, size in (("s", 1e9), ("ms", 1e6), ("us", 1e3)):
        if ns >= size:
            return "%.2f %s" % (ns / size, unit)
    return "%.2f ns" % ns


def main():
    with open(sys.argv[1]) as f:
        targets = {(r["subject"], r["case"], r["peer"]): float(r["target"]) for r in csv.DictReader(f)}
    table = medians(sys.argv[2:])
    missed, unused = 0, set(targets)
    print("| subject | case | ours | peer | peer's time | ratio | to reach | |")
    print("|---|---|---:|---|---:|---:|---:|---|")
    for (subject, case), times in sorted(table.items()):
        if "ours" not in times:
            sys.exit("%s/%s: nothing of ours to compare" % (subject, case))
        ours = times["ours"]
        for who in sorted(set(times) - {"ours"}):
            ratio = times[who] / ours
            target = targets.get((subject, case, who))
            unused.discard((subject, case, who))
            verdict = "" if target is None else "reached" if ratio >= target else "missed"
            missed += verdict == "missed"
            print("| %s | %s | %s | %s | %s | %.2f | %s | %s |" % (
                subject, case, readable(ours), who, readable(times[who]), ratio,
                "" if target is None else "%g" % target, verdict))
    measured = {subject for subject, _ in table}
    for subject, case, who in sorted(unused):
        if subject in measured:
            sys.exit("no result for the target %s/%s/%s" % (subject, case, who))
    print("\n%d of %d targets missed" % (missed, len(targets) - len(unused)))


if __name__ == "__main__":
    main()
