#!/usr/bin/env python3
"""Reports lines and branches of src/ that no test reached: coverage_report.py JSON LCOV EXCEPTIONS

A branch has two sides, the condition being true and being false. It counts once, however many instances of a template
or an inline function hold it; a branch inside a macro counts for each use of the macro. Fails when a line is not
reached, when fewer than 95 % of the sides are, and when the sides not reached are not just those that the table of
exceptions names. That table speaks of functions and conditions instead of line numbers, so it outlives edits.
"""

import collections
import json
import pathlib
import re
import subprocess
import sys

ROOT = pathlib.Path(__file__).resolve().parent.parent
LEAST_PERCENT = 95
CODE, EXPANSION = 0, 1  # kinds of regions

Place = collections.namedtuple("Place", "file start end inner")  # inner: where in a macro, () outside of one
Exempt = collections.namedtuple("Exempt", "file function condition side")


def tested_file(path):
    """The path from the root, or None for what is not the library's."""
    path = pathlib.Path(path)
    return path.relative_to(ROOT).as_posix() if path.is_relative_to(ROOT / "src") else None


def lines_of(lcov):
    """{file: {line: count}}"""
    lines = collections.defaultdict(dict)
    name = None
    for entry in lcov.read_text(encoding="utf-8").splitlines():
        if entry.startswith("SF:"):
            name = tested_file(entry[3:])
        elif name and entry.startswith("DA:"):
            number, count = entry[3:].split(",")[:2]
            lines[name][int(number)] = int(count)
    return lines


def unreached_spans(counts):
    """Numbers of lines, "7" or "7-9"."""
    spans = []
    for number in sorted(number for number, count in counts.items() if count == 0):
        if spans and spans[-1][1] == number - 1:
            spans[-1][1] = number
        else:
            spans.append([number, number])
    return [f"{first}-{last}" if last > first else str(first) for first, last in spans]


def place_of(function, branch):
    """Where the branch lies; of one in a macro, the outermost use of the macro, and where in the macro."""
    file_id, start, end, inner = branch[6], tuple(branch[0:2]), tuple(branch[2:4]), ()
    uses = {region[6]: region for region in function["regions"] if region[7] == EXPANSION}
    while file_id in uses:
        use = uses[file_id]
        inner = (start, end, *inner)
        file_id, start, end = use[5], tuple(use[0:2]), tuple(use[2:4])
    return Place(tested_file(function["filenames"][file_id]), start, end, inner)


def branches_of(exported):
    """{place: [count of true, count of false, mangled name of the function]}"""
    branches = {}
    for function in json.loads(exported.read_text(encoding="utf-8"))["data"][0]["functions"]:
        for branch in function["branches"]:
            place = place_of(function, branch)
            if place.file:
                sides = branches.setdefault(place, [0, 0, function["name"].split(":")[-1]])
                sides[0] += branch[4]
                sides[1] += branch[5]
    return branches


def plain_names(mangled):
    """{mangled name: name of the function without namespaces and arguments}"""
    order = sorted(set(mangled))
    command = ["llvm-cxxfilt-19", "-p"]
    found = subprocess.run(command, input="\n".join(order), text=True, capture_output=True, check=True)
    plain, arguments = found.stdout.replace("(anonymous namespace)::", "").replace("kk::", ""), 1
    while arguments:
        plain, arguments = re.subn(r"<[^<>\n]*>", "", plain)
    return dict(zip(order, plain.splitlines()))


def source_text(place):
    """The condition as written, or the use of the macro with what it is given, on one line."""
    lines = (ROOT / place.file).read_text(encoding="utf-8").splitlines()
    text = "\n".join(lines[place.start[0] - 1 :])[place.start[1] - 1 :]
    if place.inner:
        return " ".join(text[: closing_bracket(text)].split())
    if text[0] == ":":
        return lines[place.start[0] - 1].strip(" {")  # the end of a loop over a range has no text of its own
    last = place.end[0] - place.start[0]
    cut = text.split("\n")[: last + 1]
    cut[-1] = cut[-1][: place.end[1] - (place.start[1] if last == 0 else 1)]
    return " ".join(" ".join(cut).split())


def closing_bracket(text):
    depth = 0
    for index, letter in enumerate(text):
        depth += (letter == "(") - (letter == ")")
        if letter == ")" and depth == 0:
            return index + 1
    return len(text)


def unreached_sides(branches):
    """[(exempt, line)]"""
    names = plain_names(sides[2] for sides in branches.values())
    return [
        (Exempt(place.file, names[sides[2]], source_text(place), side), place.start[0])
        for place, sides in sorted(branches.items())
        for side, count in zip(("true", "false"), sides)
        if count == 0
    ]


def read_exceptions(path):
    """Rows of the table: | file | function | `condition` | side | reason |"""
    for row in path.read_text(encoding="utf-8").splitlines():
        cells = [cell.strip().replace("\0", "|") for cell in row.replace("\\|", "\0").strip("|").split("|")]
        if row.startswith("| `src/") and len(cells) == 5 and cells[4]:
            yield Exempt(*(cell.strip("`") for cell in cells[:4]))


def percent(part, whole):
    return 100.0 * part / whole if whole else 100.0


def print_table(lines, branches):
    totals = [0, 0, 0, 0]
    row = "{:<44} {:>6} {:>6} {:>8} {:>6} {:>6} {:>8}"
    print(row.format("file", "lines", "missed", "", "sides", "missed", ""))
    for name in sorted(lines) + [None]:
        if name:
            counts = list(lines[name].values())
            sides = [count for place, found in branches.items() if place.file == name for count in found[:2]]
            figures = [len(counts), counts.count(0), len(sides), sides.count(0)]
            totals = [total + figure for total, figure in zip(totals, figures)]
        else:
            figures = totals
        shares = [f"{percent(figures[i] - figures[i + 1], figures[i]):.2f} %" for i in (0, 2)]
        print(row.format(name or "all", *figures[:2], shares[0], *figures[2:], shares[1]))
    return totals


def main():
    exported, lcov, exceptions = (pathlib.Path(argument) for argument in sys.argv[1:])
    lines, branches = lines_of(lcov), branches_of(exported)
    _, _, side_count, missed_count = print_table(lines, branches)
    missed = unreached_sides(branches)
    exempt = collections.Counter(read_exceptions(exceptions)) if exceptions.is_file() else collections.Counter()
    named = sum(exempt.values())

    problems = [f"{name}:{span}: not reached" for name in sorted(lines) for span in unreached_spans(lines[name])]
    for key, line in missed:
        if exempt[key] > 0:
            exempt[key] -= 1
        else:
            problems.append(f"{key.file}:{line}: {key.function}: never {key.side}: {key.condition}")
    for key in sorted(exempt.elements()):
        problems.append(f"{key.file}: {key.function}: excepted, but reached or gone: {key.side} of {key.condition}")
    share = percent(side_count - missed_count, side_count)
    if share < LEAST_PERCENT:
        problems.append(f"fewer than {LEAST_PERCENT} % of the sides of branches are reached")
    print("\n".join(problems))
    print(f"{named} exceptions are named; {len(problems)} problems")
    return 1 if problems else 0


if __name__ == "__main__":
    sys.exit(main())
