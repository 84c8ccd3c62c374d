"""Adds up what became of the mutants."""

import collections
import pathlib
import re

EXPLANATION = re.compile(r"^\* `(?P<before>.+?)` becomes (?:nothing|`(?P<after>.+?)`): (?P<reason>.+)$")


def explanations(path):
    """Reasons by file and lines, from a page with a heading per file and an item per mutant."""
    found, file, items = {}, None, []
    if not path.is_file():
        return found
    for line in path.read_text(encoding="utf-8").splitlines():
        if line.startswith("#"):
            match = re.search(r"`(src/[^`]+)`", line)
            file = match.group(1) if match else None
        elif line.startswith("* "):
            items.append([file, line])
        elif line.startswith("  ") and items:
            items[-1][1] += " " + line.strip()
    for file, item in items:
        match = EXPLANATION.match(item)
        if match is None or file is None:
            raise SystemExit(f"{path}: cannot read: {item}")
        found[file, match["before"], match["after"] or ""] = match["reason"]
    return found


def key_of(result):
    after = "" if result["after"] == ";" else result["after"]
    return result["file"], result["before"], after


def summary(results, reasons):
    lines = ["By kind:", *table(results, "operator", reasons), "", "By file:", *table(results, "file", reasons), ""]
    survivors = [result for result in results if result["outcome"] == "survived"]
    for result in sorted(survivors, key=lambda result: (result["file"], result["line"])):
        lines += survivor(result, reasons.get(key_of(result)))
    return "\n".join([*lines, *totals(results, reasons)])


def survivor(result, reason):
    yield f"{result['file']}:{result['line']}  {result['operator']}  ({result['tests']} tests pass)  {result['id']}"
    yield f"    - {result['before']}"
    yield f"    + {result['after']}"
    yield f"    explained: {reason}" if reason else "    NOT EXPLAINED"
    yield ""


def table(results, column, reasons):
    rows = collections.defaultdict(list)
    for result in results:
        rows[result[column]].append(result)
    for name in sorted(rows):
        count = tally(rows[name], reasons)
        yield f"  {name:40} {count['caught']:4} of {count['tried']:4} caught, {count['explained']:3} explained"


def tally(results, reasons):
    outcome = collections.Counter(result["outcome"] for result in results)
    survivors = [result for result in results if result["outcome"] == "survived"]
    return {
        "tried": outcome["caught"] + outcome["survived"],
        "caught": outcome["caught"],
        "survived": outcome["survived"],
        "explained": sum(key_of(result) in reasons for result in survivors),
        "equivalent": outcome["equivalent"],
        "undecided": outcome["undecided"],
        "does not compile": outcome["does not compile"],
    }


def totals(results, reasons):
    count = tally(results, reasons)
    percent = 100 * count["caught"] / max(1, count["tried"])
    same = count["equivalent"]
    yield f"{len(results)} mutants: {count['does not compile']} do not compile, {same} make the same code."
    if count["undecided"]:
        yield f"{count['undecided']} have passed a few tests only, and are left out: go on with the run."
    yield f"Of the other {count['tried']}, {count['caught']} were caught, which is {percent:.1f} percent."
    yield f"Of the {count['survived']} survivors, {count['explained']} are explained."


def write(path: pathlib.Path, text):
    path.write_text(text + "\n", encoding="utf-8")
