#!/usr/bin/env python3
"""Writes the tables of statuses in the front-end guide, which say what the public header says.

usage: status_table.py [--check]

Replaces what lies between the two marks in docs/front-end-guide.md. With --check it only compares.
"""

import pathlib
import sys

import kestrelkit_header

GUIDE = pathlib.Path(__file__).resolve().parent.parent / "docs" / "front-end-guide.md"
BEGIN = "<!-- from the public header by tools/status_table.py: begin -->\n"
END = "<!-- end -->\n"


def cell(text):
    return text.replace("|", "\\|")


def named_statuses(header):
    yield "| Status | Value | Stands for |\n|---|---|---|\n"
    for status in header.statuses:
        yield f"| `{status.name}` | `0x{status.value:08X}` | {cell(status.meaning)} |\n"


def statuses_by_export(header):
    yield "| Export | Status | When |\n|---|---|---|\n"
    for export in header.exports:
        name = f"`{export.name}`"
        for outcome in export.outcomes:
            statuses = ", ".join(f"`{status}`" for status in outcome.statuses) or "others"
            yield f"| {name} | {statuses} | {cell(outcome.when)} |\n"
            name = ""


def tables(header):
    return "".join(["\n", *named_statuses(header), "\n", *statuses_by_export(header), "\n"])


def main():
    text = GUIDE.read_text(encoding="utf-8")
    before, rest = text.split(BEGIN)
    old, after = rest.split(END)
    new = tables(kestrelkit_header.read())
    if "--check" not in sys.argv[1:]:
        GUIDE.write_text(before + BEGIN + new + END + after, encoding="utf-8")
        return 0
    if old != new:
        print(f"{GUIDE.name} is not what the public header says: run tools/status_table.py")
        return 1
    print("the tables of statuses are the public header's")
    return 0


if __name__ == "__main__":
    sys.exit(main())
