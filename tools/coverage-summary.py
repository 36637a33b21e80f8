#!/usr/bin/env python3
"""Line and branch coverage of the library and of the platform stand-in.

Usage: tools/coverage-summary.py SUMMARY.json OUT.txt

SUMMARY.json is gcovr's --json-summary (per-file counts, paths relative to the source
root). Prints a table and writes OUT.txt, one line per area, for comparing runs:
    area lines_covered lines_total line_percent branches_covered branches_total branch_percent
"""
import json
import sys

AREAS = [
    ("library", ("core/", "asn1rt/", "asn1data/", "pki/", "policies/")),
    ("stand-in", ("platform/",)),
]


def percent(covered, total):
    return 100.0 * covered / total if total else 0.0


def main():
    if len(sys.argv) != 3:
        sys.exit(__doc__.strip().splitlines()[2])
    with open(sys.argv[1], encoding="utf-8") as f:
        summary = json.load(f)

    sums = {name: [0, 0, 0, 0] for name, _ in AREAS}
    for entry in summary["files"]:
        path = entry["filename"].replace("\\", "/")
        for name, prefixes in AREAS:
            if path.startswith(prefixes):
                s = sums[name]
                s[0] += entry["line_covered"]
                s[1] += entry["line_total"]
                s[2] += entry["branch_covered"]
                s[3] += entry["branch_total"]
                break
    sums["total"] = [sum(s[i] for s in sums.values()) for i in range(4)]

    rows = []
    for name, (lc, lt, bc, bt) in sums.items():
        rows.append((name, lc, lt, percent(lc, lt), bc, bt, percent(bc, bt)))

    with open(sys.argv[2], "w", encoding="utf-8") as out:
        out.write("# area lines_covered lines_total line_percent "
                  "branches_covered branches_total branch_percent\n")
        for r in rows:
            out.write("%s %d %d %.1f %d %d %.1f\n" % r)

    print("%-10s %22s %22s" % ("area", "lines", "branches"))
    for r in rows:
        print("%-10s %6.1f%% (%6d/%6d) %6.1f%% (%6d/%6d)"
              % (r[0], r[3], r[1], r[2], r[6], r[4], r[5]))


if __name__ == "__main__":
    main()
