#!/usr/bin/env python3
"""Compares the records and functions that the examples declare with those of the public header, as compilers see them.

usage: records_check.py BRIDGE
"""

import ctypes
import os
import pathlib
import re
import subprocess
import sys
import tempfile
import unittest

import bridge_case

ROOT = pathlib.Path(__file__).resolve().parents[2]
sys.path[:0] = [str(ROOT / "tools"), str(ROOT / "examples" / "python")]

import kestrelkit  # noqa: E402  the example
import kestrelkit_header  # noqa: E402

HEADER = kestrelkit_header.read()
INCLUDE = f"-I{ROOT / 'include'}"
RECORD_NAMES = {record.name for record in HEADER.records}

CTYPES = {
    "uint8_t": ctypes.c_uint8, "KkWideChar": ctypes.c_uint16, "uint32_t": ctypes.c_uint32, "int32_t": ctypes.c_int32,
    "uint64_t": ctypes.c_uint64,
}
CSHARP = {"uint8_t": "Byte", "KkWideChar": "UInt16", "uint32_t": "UInt32", "int32_t": "Int32", "uint64_t": "UInt64"}
RUST = {"uint8_t": "u8", "KkWideChar": "u16", "uint32_t": "u32", "int32_t": "i32", "uint64_t": "u64", "char": "u8"}


def pointee(c_type):
    """What a C type points to, and whether it may be changed; nothing for what is no pointer."""
    match = re.fullmatch(r"(const )?(\w+)\*", c_type)
    return (match.group(2), match.group(1) is None) if match else (None, None)


def measured():
    """Sizes and offsets by name, from a program that Clang compiled."""
    lines = []
    for record in HEADER.records:
        lines.append(f'    printf("{record.name} %zu\\n", sizeof({record.name}));')
        for field in record.fields:
            place = f"{record.name}.{field.name}"
            lines.append(f'    printf("{place} %zu\\n", offsetof({record.name}, {field.name}));')
            lines.append(f'    printf("{place}: %zu\\n", sizeof((({record.name}*)0)->{field.name}));')
    source = "#include <stddef.h>\n#include <stdio.h>\n" + '#include "kestrelkit/kestrelkit.h"\n'
    source += "int main(void)\n{\n" + "\n".join(lines) + "\n}\n"
    with tempfile.TemporaryDirectory() as folder:
        program = os.path.join(folder, "facts")
        command = ["clang-19", "-std=c11", INCLUDE, "-xc", "-", "-o", program]
        subprocess.run(command, input=source, text=True, check=True)
        output = subprocess.run([program], capture_output=True, text=True, check=True).stdout
    return {name: int(value) for name, value in (line.rsplit(" ", 1) for line in output.splitlines())}


FIGURES = measured()


class RecordsCheck(unittest.TestCase):
    maxDiff = None

    def test_the_header_is_read_as_clang_reads_it(self):
        widths = {"uint8_t": 1, "KkWideChar": 2, "uint32_t": 4, "uint64_t": 8}
        self.assertEqual(len(HEADER.records), 5)
        for record in HEADER.records:
            end = 0
            for field in record.fields:
                self.assertEqual(FIGURES[f"{record.name}.{field.name}"], end)
                end += widths[field.type] * field.count
                self.assertEqual(FIGURES[f"{record.name}.{field.name}:"], widths[field.type] * field.count)
            self.assertEqual(FIGURES[record.name], end)

    def test_records_are_the_same_for_windows(self):
        lines = ["#include <stddef.h>", '#include "kestrelkit/kestrelkit.h"']
        for record in HEADER.records:
            lines.append(f'_Static_assert(sizeof({record.name}) == {FIGURES[record.name]}, "");')
            for field in record.fields:
                offset = FIGURES[f"{record.name}.{field.name}"]
                lines.append(f'_Static_assert(offsetof({record.name}, {field.name}) == {offset}, "");')
        command = ["clang-19", "--target=x86_64-w64-mingw32", "-std=c11", INCLUDE, "-fsyntax-only", "-xc", "-"]
        run = subprocess.run(command, input="\n".join(lines), capture_output=True, text=True, check=False)
        self.assertEqual(run.returncode, 0, run.stderr)

    # Python

    def test_records_of_python(self):
        for record in HEADER.records:
            declared = getattr(kestrelkit, record.name)
            self.assertEqual(ctypes.sizeof(declared), FIGURES[record.name])
            self.assertEqual([name for name, _ in declared._fields_], [field.name for field in record.fields])
            for field, (_, kind) in zip(record.fields, declared._fields_):
                place = f"{record.name}.{field.name}"
                self.assertEqual(getattr(declared, field.name).offset, FIGURES[place], place)
                expected = CTYPES[field.type] * field.count if field.is_array else CTYPES[field.type]
                self.assertIs(kind, expected, place)

    def test_functions_of_python(self):
        self.assertEqual(list(kestrelkit.EXPORTS), [export.name for export in HEADER.exports])
        for export in HEADER.exports:
            expected = [self.python_type(parameter.type) for parameter in export.parameters]
            self.assertEqual(kestrelkit.EXPORTS[export.name], expected, export.name)

    @staticmethod
    def python_type(c_type):
        target, _ = pointee(c_type)
        if target is None:
            return CTYPES[c_type]
        if target == "char":
            return ctypes.c_char_p
        return ctypes.POINTER(getattr(kestrelkit, target) if target in RECORD_NAMES else CTYPES[target])

    # C#

    @classmethod
    def csharp_facts(cls):
        with tempfile.TemporaryDirectory() as folder:
            program = os.path.join(folder, "facts.exe")
            sources = (ROOT / "tests/examples/facts.cs", ROOT / "examples/csharp/Kestrelkit.cs")
            bridge_case.compile_csharp(program, *sources)
            return subprocess.run(["mono", program], capture_output=True, text=True, check=True).stdout.splitlines()

    def test_records_and_functions_of_csharp(self):
        expected = []
        for record in HEADER.records:
            expected.append(f"record {record.name} {FIGURES[record.name]}")
            for field in record.fields:
                offset = FIGURES[f"{record.name}.{field.name}"]
                expected.append(f"field {record.name} {field.name} {offset} {CSHARP[field.type]} {field.count}")
        for export in HEADER.exports:
            types = [self.csharp_type(parameter.type) for parameter in export.parameters]
            # Without it text would be handed over in the system's code page.
            charset = "Unicode" if {"text", "Char"} & set(types) else "None"
            expected.append(" ".join(["export", export.name, export.name, charset, "Int32", *types]))
        self.assertEqual(self.csharp_facts(), expected)

    @staticmethod
    def csharp_type(c_type):
        target, _ = pointee(c_type)
        if target is None:
            return "Char" if c_type == "KkWideChar" else CSHARP[c_type]
        if target == "KkWideChar":
            return "text"
        if target == "char":
            return "LPStr"
        return (target if target in RECORD_NAMES else CSHARP[target]) + "*"

    # Rust

    def test_records_and_functions_of_rust(self):
        lines = [f'#[path = "{ROOT}/examples/rust/kestrelkit.rs"]', "mod kestrelkit;", "use kestrelkit::*;",
                 "fn main() {"]
        expected = []
        for record in HEADER.records:
            lines.append(f"let r = {record.name}::default(); let start = &r as *const _ as usize;")
            lines.append(f'println!("{record.name} {{}}", std::mem::size_of::<{record.name}>());')
            expected.append(f"{record.name} {FIGURES[record.name]}")
            for field in record.fields:
                kind = f"[{RUST[field.type]}; {field.count}]" if field.is_array else RUST[field.type]
                place = f"{record.name}.{field.name}"
                lines.append(f"let _: {kind} = r.{field.name};")
                lines.append(f'println!("{place} {{}}", std::ptr::addr_of!(r.{field.name}) as usize - start);')
                expected.append(f"{place} {FIGURES[place]}")
        for export in HEADER.exports:
            types = ", ".join(self.rust_type(parameter.type) for parameter in export.parameters)
            lines.append(f'let _: unsafe extern "system" fn({types}) -> i32 = {export.name};')
        with tempfile.TemporaryDirectory() as folder:
            source, program = os.path.join(folder, "facts.rs"), os.path.join(folder, "facts")
            pathlib.Path(source).write_text("\n".join([*lines, "}"]), encoding="utf-8")
            bridge_case.compile_rust(source, program)
            run = bridge_case.run(program)
        self.assertEqual(run.stdout.splitlines(), expected, run.stderr)

    @staticmethod
    def rust_type(c_type):
        target, is_mutable = pointee(c_type)
        if target is None:
            return RUST[c_type]
        return ("*mut " if is_mutable else "*const ") + (target if target in RECORD_NAMES else RUST[target])

    # C++

    def test_the_wrapper_for_cpp_takes_each_function_by_its_name(self):
        text = (ROOT / "include/kestrelkit/kestrelkit.hpp").read_text(encoding="utf-8")
        pairs = [(export.name[2].lower() + export.name[3:], export.name) for export in HEADER.exports]
        members = re.findall(r"decltype\(&(\w+)\) (\w+) = nullptr;", text)
        self.assertEqual([(member, name) for name, member in members], pairs)
        self.assertEqual(re.findall(r"exports\.(\w+) = &(\w+);", text), pairs)
        self.assertEqual(re.findall(r'fill\(exports\.(\w+), "(\w+)"\);', text), pairs)
        self.assertEqual(sorted(set(re.findall(r"exports_\.(\w+)", text))), sorted(member for member, _ in pairs))


if __name__ == "__main__":
    bridge_case.bridge[:] = [os.path.abspath(sys.argv.pop(1))]
    unittest.main()
