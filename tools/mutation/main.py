"""The command line."""

import argparse
import collections
import concurrent.futures
import json
import pathlib

from mutation import report
from mutation.coverage import ReachMap, measure
from mutation.sample import all_mutants, sample
from mutation.tree import Tree
from mutation.trial import Trials

ABOUT = """Plants faults in src/, one at a time, compiles each aside from the tree, and runs the tests that reach it
until one fails. It needs the test programs of the preset `host`. Results are kept in build/mutation, so a run that was
stopped goes on where it was. Exits with 1 when a survivor is not explained in docs/mutation-survivors.md."""

# Nearly every fault that is noticed at all is noticed by one of so many tests. Whatever is left then comes last.
FIRST_LOOK = 30


def arguments():
    parser = argparse.ArgumentParser(prog="tools/mutate", description=ABOUT)
    parser.add_argument("--seed", type=int, default=1, help="draws other mutants")
    parser.add_argument("--count", type=int, default=500, help="how many to draw")
    parser.add_argument("--jobs", "-j", type=int, default=2)
    parser.add_argument("--only", default="", metavar="TEXT", help="only files whose path contains this")
    parser.add_argument("--again", action="store_true", help="try those again that survived earlier")
    parser.add_argument("--measure-anew", action="store_true", help="forget which tests reach what")
    parser.add_argument("--list", action="store_true", help="print the mutants and stop")
    parser.add_argument("--report", action="store_true", help="add up what is there and stop")
    return parser.parse_args()


def read_results(path):
    """The last result of each mutant."""
    found = {}
    if path.is_file():
        for line in path.read_text(encoding="utf-8").splitlines():
            result = json.loads(line)
            found[result["id"]] = result
    return found


def to_try(chosen, results, again):
    for mutant in chosen:
        known = results.get(mutant.id)
        if known is None or known["outcome"] == "undecided" or (again and known["outcome"] == "survived"):
            yield mutant


def try_all(trials, mutants, path, jobs, limit=None):
    counter = collections.Counter()
    with concurrent.futures.ThreadPoolExecutor(jobs) as pool, path.open("a", encoding="utf-8") as out:
        pending = {pool.submit(trials.run, mutant, limit): mutant for mutant in mutants}
        for future in concurrent.futures.as_completed(pending):
            mutant, result = pending[future], future.result()
            facts = {name: getattr(mutant, name) for name in ("id", "file", "line", "operator", "before", "after")}
            out.write(json.dumps(facts | result) + "\n")
            out.flush()
            counter[result["outcome"]] += 1
            open_still = result["outcome"] in ("survived", "undecided")
            note = f"  {mutant.file}:{mutant.line} {mutant.operator}" if open_still else ""
            print(f"{counter.total()} of {len(mutants)}: {result['outcome']}{note}", flush=True)


def main():
    options = arguments()
    root = pathlib.Path(__file__).resolve().parent.parent.parent
    tree = Tree(root, root / "build" / "host")
    chosen = sample(all_mutants(tree), options.seed, options.count)
    chosen = [mutant for mutant in chosen if options.only in mutant.file]
    if options.list:
        for mutant in chosen:
            print(f"{mutant.file}:{mutant.line}  {mutant.operator}\n    - {mutant.before}\n    + {mutant.after}")
        return 0

    folder = root / "build" / "mutation"
    folder.mkdir(parents=True, exist_ok=True)
    log = folder / "results.jsonl"
    if not options.report:
        run(tree, chosen, folder, log, options)
    results = read_results(log)
    known = [results[mutant.id] for mutant in chosen if mutant.id in results]
    reasons = report.explanations(root / "docs" / "mutation-survivors.md")
    text = report.summary(known, reasons)
    report.write(folder / "report.txt", text)
    print(text)
    survived = [result for result in known if result["outcome"] == "survived"]
    return 1 if any(report.key_of(result) not in reasons for result in survived) else 0


def run(tree, chosen, folder, log, options):
    reach_file = folder / "reach.json"
    if options.measure_anew:
        reach_file.unlink(missing_ok=True)
    tests, reach = tree.tests(), ReachMap(reach_file)
    measure(tree, tests, reach, folder, options.jobs)
    tree.join_what_stays(folder / "joined")
    # Those of headers last, as many sources read these.
    mutants = sorted(
        to_try(chosen, read_results(log), options.again),
        key=lambda mutant: len(tree.sources_with(tree.root / mutant.file)),
    )
    trials = Trials(tree, tests, reach, folder)
    fresh = [mutant for mutant in mutants if mutant.id not in read_results(log)]
    try_all(trials, fresh, log, options.jobs, FIRST_LOOK)
    open_still = list(to_try(mutants, read_results(log), False))
    again = [mutant for mutant in mutants if mutant not in fresh and mutant not in open_still]
    try_all(trials, open_still + again, log, options.jobs)
