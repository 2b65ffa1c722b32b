#!/usr/bin/env python3
"""Lists the lines that nothing executed, and how many of all were. Fails below a share.

    uncovered.py COUNTS.json LEAST_PERCENT

COUNTS.json is what `gcovr --json` writes; its paths are relative to the present folder.
"""
import json
import sys


def lines_of(file):
    """The lines of one file that hold code: [(number, how often it was executed)]."""
    counts = {}
    for line in file["lines"]:
        if not line.get("gcovr/noncode"):
            counts[line["line_number"]] = counts.get(line["line_number"], 0) + line["count"]
    return sorted(counts.items())


def main():
    path, least = sys.argv[1], float(sys.argv[2])
    with open(path) as counts:
        files = sorted(json.load(counts)["files"], key=lambda file: file["file"])
    executed = total = 0
    for file in files:
        with open(file["file"], encoding="latin-1") as source:
            text = source.read().split("\n")
        for number, count in lines_of(file):
            total += 1
            executed += count > 0
            if count == 0:
                print("%s:%d: %s" % (file["file"], number, text[number - 1].strip()))
    if total == 0:
        sys.exit("%s: no lines were counted" % path)
    percent = 100.0 * executed / total
    print("== %.2f %% of the lines are executed: %d of %d, %d are not" % (percent, executed, total, total - executed))
    if percent < least:
        sys.exit("coverage: less than %g %%" % least)


main()
