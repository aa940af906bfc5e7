#!/usr/bin/python3
"""coverage_table.py SUMMARY.json LEAST: the areas of the library as a table, from gcovr's summary by file.

Fails when fewer than LEAST per cent of the lines were reached.
"""

import collections
import json
import pathlib
import sys


class Counts:
    def __init__(self):
        self.files = self.lines = self.lines_reached = self.branches = self.branches_reached = 0

    def add(self, file):
        self.files += 1
        self.lines += file["line_total"]
        self.lines_reached += file["line_covered"]
        self.branches += file["branch_total"]
        self.branches_reached += file["branch_covered"]


def percent(part, whole):
    return 100.0 * part / whole if whole else 100.0


def row(name, counts):
    return (f"| {name} | {counts.files} | {counts.lines} | {percent(counts.lines_reached, counts.lines):.1f} % "
            f"| {counts.branches} | {percent(counts.branches_reached, counts.branches):.1f} % |")


def area_of(name):
    folders = pathlib.PurePath(name).parts[:-1]
    return "/".join(folders[:2])


def main():
    summary, least = json.loads(pathlib.Path(sys.argv[1]).read_text()), float(sys.argv[2])
    areas, whole = collections.defaultdict(Counts), Counts()
    for file in summary["files"]:
        areas[area_of(file["filename"])].add(file)
        whole.add(file)
    print("| area | files | lines | reached | branches | reached |\n|---|---|---|---|---|---|")
    for area in sorted(areas):
        print(row(area, areas[area]))
    print(row("all", whole))
    if percent(whole.lines_reached, whole.lines) < least:
        sys.exit(f"coverage: fewer than {least} % of the lines are reached")


if __name__ == "__main__":
    main()
