"""Chooses mutants: as many of a file as its size asks for, of all kinds alike, the same ones for the same seed."""

import random

from mutation.operators import mutants_of


def all_mutants(tree):
    files = sorted((tree.root / "src").rglob("*.cpp")) + sorted((tree.root / "src").rglob("*.h"))
    by_file = {}
    for path in files:
        if path.suffix == ".cpp" and not tree.compiles(path):
            continue  # belongs to the DLL alone
        name = path.relative_to(tree.root).as_posix()
        by_file[name] = mutants_of(name, path.read_text(encoding="utf-8"))
    return {name: mutants for name, mutants in by_file.items() if mutants}


def shares(sizes, count):
    """`count` split in proportion to `sizes`, in whole numbers, by the largest remainders."""
    total = sum(sizes.values())
    exact = {name: count * size / total for name, size in sizes.items()}
    whole = {name: int(share) for name, share in exact.items()}
    by_remainder = sorted(sizes, key=lambda name: (whole[name] - exact[name], name))
    for name in by_remainder[: count - sum(whole.values())]:
        whole[name] += 1
    return whole


def sample(by_file, seed, count):
    lines = {name: len({mutant.line for mutant in mutants}) for name, mutants in by_file.items()}
    chosen = []
    for name, share in shares(lines, count).items():
        chosen += pick(by_file[name], share, random.Random(f"{seed}:{name}"))
    random.Random(f"{seed}").shuffle(chosen)
    return chosen


def pick(mutants, share, chance):
    """First the kind is drawn and then the mutant, as otherwise nearly all would be numbers and signs."""
    by_operator = {}
    for mutant in mutants:
        by_operator.setdefault(mutant.operator, []).append(mutant)
    picked = []
    while by_operator and len(picked) < share:
        operator = chance.choice(sorted(by_operator))
        kind = by_operator[operator]
        picked.append(kind.pop(chance.randrange(len(kind))))
        if not kind:
            del by_operator[operator]
    return picked
