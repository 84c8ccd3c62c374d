#!/usr/bin/env python3
"""Tests what tools/mutate plants, on small pieces of source; nothing is built.

Usage: mutation_test.py
"""

import collections
import json
import pathlib
import sys
import tempfile
import types
import unittest

sys.dont_write_bytecode = True
sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[2] / "tools"))

from mutation import report  # noqa: E402
from mutation.operators import mutants_of  # noqa: E402
from mutation.sample import sample  # noqa: E402
from mutation.tree import Tree  # noqa: E402
from mutation.trial import Trial  # noqa: E402


def in_body(statements):
    return f"KK_STATUS Function()\n{{\n    {statements}\n}}\n"


def planted(source, operator):
    """What the lines become, for each fault of a kind."""
    return [mutant.after for mutant in mutants_of("src/x.cpp", source) if mutant.operator == operator]


class PlantingTest(unittest.TestCase):
    def test_a_comparison_moves_by_one_or_turns_round(self):
        becomes = {"<": "<=", "<=": "<", ">": ">=", ">=": ">", "==": "!=", "!=": "=="}
        for sign, other in becomes.items():
            self.assertEqual(planted(in_body(f"return a {sign} b;"), "comparison"), [f"return a {other} b;"])

    def test_and_becomes_or(self):
        source = in_body("return a && b || c;")
        self.assertEqual(planted(source, "logic"), ["return a || b || c;", "return a && b && c;"])

    def test_a_sum_becomes_a_difference_and_so_on(self):
        becomes = {"+": "-", "-": "+", "*": "/", "/": "*", "%": "/", "<<": ">>", ">>": "<<", "&": "|", "|": "&"}
        for sign, other in becomes.items():
            self.assertEqual(planted(in_body(f"return a {sign} b;"), "arithmetic"), [f"return a {other} b;"])
        self.assertEqual(planted(in_body("a += b;"), "arithmetic"), ["a -= b;"])
        self.assertEqual(planted(in_body("++a;"), "arithmetic"), ["--a;"])

    def test_types_pointers_and_references_are_no_sums(self):
        source = in_body("const Span<const uint8_t*>& bytes = *View(&item);")
        self.assertEqual(planted(source, "arithmetic") + planted(source, "comparison"), [])

    def test_a_negation_goes(self):
        self.assertEqual(planted(in_body("return !a;"), "drop negation"), ["return a;"])

    def test_a_constant_becomes_each_of_its_neighbours(self):
        self.assertEqual(planted("int a = 7;\n", "constant"), ["int a = 8;", "int a = 6;"])
        self.assertEqual(planted("int a = 0x10u;\n", "constant"), ["int a = 0x11u;", "int a = 0xFu;"])
        self.assertEqual(planted("int a = 1'000;\n", "constant"), ["int a = 1001;", "int a = 999;"])
        self.assertEqual(planted("int a = 1;\n", "constant"), ["int a = 2;", "int a = 0;"])
        self.assertEqual(planted("int a = 0;\n", "constant"), ["int a = 1;"], "nothing is below zero")
        self.assertEqual(planted("bool a = true;\n", "constant"), ["bool a = false;"])

    def test_a_status_becomes_another(self):
        for status, other in (("SUCCESS", "UNSUCCESSFUL"), ("UNSUCCESSFUL", "INVALID_PARAMETER"),
                              ("NO_MEMORY", "UNSUCCESSFUL")):
            source = in_body(f"return KK_STATUS_{status};")
            self.assertEqual(planted(source, "status"), [f"return KK_STATUS_{other};"])

    def test_a_condition_is_negated_or_never_met(self):
        source = in_body("if (const int a = F(); a > (b)) {\n    }")
        self.assertEqual(planted(source, "negate condition"), ["if (const int a = F(); !(a > (b))) {"])
        self.assertEqual(planted(source, "drop condition"), ["if (const int a = F(); false && (a > (b))) {"])

    def test_a_failure_is_ignored(self):
        self.assertEqual(planted(in_body("KK_TRY(F(a));"), "ignore failure"), ["(void)(F(a));"])

    def test_a_statement_goes(self):
        self.assertEqual(planted(in_body("F(a);"), "drop call"), [";"])
        self.assertEqual(planted(in_body("a.b = c;"), "drop assignment"), [";"])
        self.assertEqual(planted(in_body("return;"), "drop jump"), [";"])
        self.assertEqual(planted(in_body("CloseHandle(a);"), "skip close"), [";"])

    def test_what_would_not_compile_without_it_stays(self):
        for kept in ("return a;", "const int a = F();", "kk::Array<int> a(F());", "Item* a = F();"):
            found = mutants_of("src/x.cpp", in_body(kept))
            self.assertEqual([mutant for mutant in found if mutant.operator.startswith("drop")], [], kept)

    def test_two_calls_in_a_row_change_places(self):
        source = in_body("F(a);\n    G(b);\n    const int c = a;\n    H(c);")
        swaps = [mutant for mutant in mutants_of("src/x.cpp", source) if mutant.operator == "swap calls"]
        self.assertEqual(
            [mutant.applied_to(source) for mutant in swaps], [in_body("G(b);\n    F(a);\n    const int c = a;\n    H(c);")])

    def test_nothing_is_planted_in_what_is_no_behaviour(self):
        for source in (
            "// if (a < 1) return true;\n",
            "/* a + 1;\n F(a); */\n",
            "#define A (1 + 2)\n",
            "#define A \\\n    (1 + 2)\n",
            'const char* a = "b < 1 && !c";\n',
            "const char16_t a = u'1';\n",
            "static_assert(sizeof(A) == 92 && !b);\n",
            "[[nodiscard(1 + 2)]] int a;\n",
            "using A = B[12];\n",
            in_body("KK_ASSERT(a < 1);"),
        ):
            self.assertEqual(mutants_of("src/x.cpp", source), [], source)


class MutantTest(unittest.TestCase):
    source = in_body("if (a < 10) {  // less than 10\n        F(a);\n    }\n    return a + 10;")

    def test_changes_its_place_and_nothing_else(self):
        mutants = mutants_of("src/x.cpp", self.source)
        self.assertGreater(len(mutants), 5)
        for mutant in mutants:
            applied = mutant.applied_to(self.source)
            self.assertNotEqual(applied, self.source)
            self.assertTrue(applied.startswith(self.source[: mutant.start]))
            self.assertTrue(applied.endswith(self.source[mutant.end :]))
            self.assertIn(mutant.before, [" ".join(line.split()) for line in self.source.splitlines()])

    def test_knows_its_lines(self):
        ten = [mutant for mutant in mutants_of("src/x.cpp", self.source) if mutant.operator == "constant"]
        self.assertEqual([mutant.line for mutant in ten], [3, 3, 6, 6])

    def test_keeps_its_identity_when_the_file_changes_elsewhere(self):
        before = [mutant.id for mutant in mutants_of("src/x.cpp", self.source)]
        after = [mutant.id for mutant in mutants_of("src/x.cpp", "// A line more.\n" + self.source)]
        self.assertEqual(before, after)
        self.assertEqual(len(set(before)), len(before))

    def test_has_another_identity_than_its_like_in_the_same_file_or_another(self):
        one = mutants_of("src/x.cpp", in_body("a = 0;"))
        two = mutants_of("src/x.cpp", in_body("a = 0;\n    a = 0;"))
        other = mutants_of("src/y.cpp", in_body("a = 0;"))
        self.assertEqual(len({mutant.id for mutant in two}), len(two))
        self.assertEqual({mutant.id for mutant in one} & {mutant.id for mutant in other}, set())


class SampleTest(unittest.TestCase):
    @staticmethod
    def drawn(seed, count):
        small = in_body("a = b + 1;")
        large = in_body("\n    ".join(f"if (a < {i}) {{\n        F(a);\n    }}" for i in range(1, 30)))
        by_file = {name: mutants_of(name, source) for name, source in (("src/s.cpp", small), ("src/l.cpp", large))}
        return [(mutant.file, mutant.operator, mutant.id) for mutant in sample(by_file, seed, count)]

    def test_the_same_seed_draws_the_same_mutants_and_another_draws_others(self):
        self.assertEqual(self.drawn(1, 20), self.drawn(1, 20))
        self.assertNotEqual(set(self.drawn(1, 20)), set(self.drawn(2, 20)))

    def test_draws_as_many_as_asked_and_none_twice(self):
        for count in (1, 20, 60):
            self.assertEqual(len(set(self.drawn(1, count))), count)

    def test_draws_by_the_size_of_the_file_and_all_kinds_alike(self):
        drawn = self.drawn(1, 59)
        self.assertEqual(collections.Counter(file for file, _, _ in drawn), {"src/l.cpp": 58, "src/s.cpp": 1})
        kinds = collections.Counter(kind for file, kind, _ in drawn if file == "src/l.cpp")
        self.assertEqual(set(kinds), {"comparison", "constant", "negate condition", "drop condition", "drop call"})
        self.assertLess(max(kinds.values()), 58 / 2)


class TrialTest(unittest.TestCase):
    def test_has_the_compiler_read_the_fault_and_leaves_the_source_alone(self):
        with tempfile.TemporaryDirectory() as name:
            root, work = pathlib.Path(name) / "tree", pathlib.Path(name) / "work"
            (root / "src").mkdir(parents=True)
            work.mkdir()
            file, source = root / "src/x.cpp", in_body("return a < b;")
            file.write_text(source, encoding="utf-8")
            (mutant,) = mutants_of("src/x.cpp", source)

            tree = types.SimpleNamespace(root=root, sources_with=lambda path: [path])
            trial = Trial(types.SimpleNamespace(tree=tree), mutant, work)

            option, overlay = trial.overlay
            (entry,) = json.loads(pathlib.Path(overlay).read_text(encoding="utf-8"))["roots"]
            read_instead = pathlib.Path(entry["external-contents"])
            self.assertEqual((option, entry["name"]), ("-ivfsoverlay", str(file)))
            self.assertEqual(read_instead.read_text(encoding="utf-8"), in_body("return a <= b;"))
            self.assertEqual(file.read_text(encoding="utf-8"), source)
            self.assertEqual([path.name for path in (root / "src").iterdir()], ["x.cpp"])


class OwnTestsTest(unittest.TestCase):
    def test_are_the_files_named_after_the_header_in_its_layer(self):
        tree = Tree.__new__(Tree)  # without a build
        tree.root = pathlib.Path("/project")
        header = tree.root / "src/image/reader.h"
        own = [name for name in ("image/reader_test.cpp", "image/reader_open_test.cpp", "image/readers_test.cpp",
                                 "image/fast_reader_test.cpp", "image/reader_fixture.h", "exports/reader_test.cpp")
               if tree.is_own_test(tree.root / "tests" / name, header)]
        self.assertEqual(own, ["image/reader_test.cpp", "image/reader_open_test.cpp"])


class ExplanationsTest(unittest.TestCase):
    def test_belong_to_their_file_and_lines(self):
        with tempfile.TemporaryDirectory() as name:
            page = pathlib.Path(name) / "survivors.md"
            page.write_text("# Title\n\n## `src/x.cpp`\n\n* `a < b;` becomes\n  `a <= b;`: never equal.\n"
                            "* `F(a);` becomes nothing: done again later.\n", encoding="utf-8")
            reasons = report.explanations(page)
        self.assertEqual(reasons, {
            ("src/x.cpp", "a < b;", "a <= b;"): "never equal.",
            ("src/x.cpp", "F(a);", ""): "done again later.",
        })
        dropped = {"file": "src/x.cpp", "before": "F(a);", "after": ";"}
        self.assertIn(report.key_of(dropped), reasons)
        self.assertNotIn(report.key_of(dropped | {"file": "src/y.cpp"}), reasons)

    def test_that_cannot_be_read_are_an_error(self):
        with tempfile.TemporaryDirectory() as name:
            page = pathlib.Path(name) / "survivors.md"
            page.write_text("## `src/x.cpp`\n\n* `a < b;` turns into `a <= b;`: never equal.\n", encoding="utf-8")
            with self.assertRaises(SystemExit):
                report.explanations(page)


if __name__ == "__main__":
    unittest.main(verbosity=2)
