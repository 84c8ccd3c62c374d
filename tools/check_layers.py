#!/usr/bin/env python3
"""Checks that the library's sources include downwards only, in the order that the house style asks for.

Fails on an include of a higher layer, on a circle between files of backup and image, on a standard header that needs a
run-time, on quoted includes that do not start at the source root, and on a source that does not include its own header
first.
"""

import pathlib
import re
import sys

LAYERS = ["core", "disk", "partition"]  # each may include itself and those before it
PEERS = ["backup", "image"]  # above all layers; between the two any file may include any, but never in a circle
FREESTANDING = {"array", "bit", "cstddef", "cstdint", "limits", "new", "span", "type_traits", "utility"}
PUBLIC = "kestrelkit/kestrelkit.h"
INCLUDE = re.compile(r'^\s*#\s*include\s+([<"])([^>"]+)[>"]', re.MULTILINE)


def includes_of(path):
    return INCLUDE.findall(path.read_text(encoding="utf-8"))


def may_include(layer, other):
    if layer in PEERS:
        return other in LAYERS + PEERS
    return other in LAYERS[: LAYERS.index(layer) + 1]


def check_file(path, root):
    name = path.relative_to(root).as_posix()
    layer = name.split("/")[0]
    found = includes_of(path)
    for kind, target in found:
        if kind == "<":
            if target not in FREESTANDING:
                yield f"{name}: <{target}> is not a freestanding header"
        elif target != PUBLIC and not (root / target).is_file():
            yield f'{name}: "{target}" does not start at the source root'
        elif target != PUBLIC and not may_include(layer, target.split("/")[0]):
            yield f'{name}: "{target}" lies above {layer}'
    own = name[:-4] + ".h"
    if name.endswith(".cpp") and (root / own).is_file() and (not found or found[0][1] != own):
        yield f"{name}: its own header does not come first"


def circles(root):
    """A header and its source count as one: what either includes, both stand on."""
    graph = {}
    for path in root.rglob("*"):
        if path.suffix in (".h", ".cpp"):
            name = path.relative_to(root).with_suffix("").as_posix()
            targets = {target.removesuffix(".h") for kind, target in includes_of(path) if kind == '"'}
            graph.setdefault(name, set()).update(targets - {name})
    finished, under_way = set(), []

    def walk(name):
        if name in under_way:
            yield "circle: " + " -> ".join(under_way[under_way.index(name) :] + [name])
            return
        if name in finished or name not in graph:
            return
        under_way.append(name)
        for target in sorted(graph[name]):
            yield from walk(target)
        under_way.pop()
        finished.add(name)

    for name in sorted(graph):
        yield from walk(name)


def main():
    root = pathlib.Path(sys.argv[1]).resolve()
    problems = [p for path in sorted(root.rglob("*")) if path.suffix in (".h", ".cpp") for p in check_file(path, root)]
    problems += circles(root)
    print("\n".join(problems) if problems else "all includes run downwards")
    return 1 if problems else 0


if __name__ == "__main__":
    sys.exit(main())
