#!/usr/bin/env python3
"""Checks that what the documents name is there: tests as `Suite.Test`, and files behind links.

usage: check_docs.py ROOT
"""

import pathlib
import re
import sys

TEST = re.compile(r"^TEST(?:_F|_P)?\(\s*(\w+)\s*,\s*(\w+)\s*\)", re.MULTILINE)
NAMED_TEST = re.compile(r"`(\w+Test\.[A-Z]\w+)`")
LINK = re.compile(r"\]\(([^)#\s]+)(?:#[^)]*)?\)")


def documents(root):
    yield from root.glob("*.md")
    for folder in ("docs", "tools", "examples"):
        yield from (root / folder).rglob("*.md")


def problems(root):
    sources = [path.read_text(encoding="utf-8") for path in (root / "tests").rglob("*.cpp")]
    tests = {f"{suite}.{name}" for source in sources for suite, name in TEST.findall(source)}
    for path in sorted(documents(root)):
        text = path.read_text(encoding="utf-8")
        for test in sorted(set(NAMED_TEST.findall(text)) - tests):
            yield f"{path.relative_to(root)}: there is no test {test}"
        for target in sorted(set(LINK.findall(text))):
            if "://" not in target and not (path.parent / target).exists():
                yield f"{path.relative_to(root)}: there is no {target}"


def main():
    found = list(problems(pathlib.Path(sys.argv[1]).resolve()))
    print("\n".join(found) if found else "what the documents name is there")
    return 1 if found else 0


if __name__ == "__main__":
    sys.exit(main())
