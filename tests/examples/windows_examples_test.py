#!/usr/bin/env python3
"""Compiles the examples in C and C++ and the wrapper with every compiler at hand, and runs the programs under Wine.

usage: windows_examples_test.py KKCTL_EXE
The DLL and its import library must lie beside the program. Fails where there is no Wine.
"""

import os
import pathlib
import shutil
import subprocess
import sys

import wine_case
from machine_case import EFI_LENGTH, EFI_START, NTFS_LENGTH, NTFS_START, make_gpt_disk
from wine_case import WineCase

ROOT = pathlib.Path(__file__).resolve().parents[2]
FLAGS = ["-Wall", "-Wextra", "-Wpedantic", "-Wconversion", "-Wshadow", "-Werror", f"-I{ROOT / 'include'}"]
C_EXAMPLE = ROOT / "examples" / "c" / "list_and_backup.c"
CPP_EXAMPLE = ROOT / "examples" / "cpp" / "inspect_and_restore.cpp"
WINDOWS_CLANG = ["--target=x86_64-w64-mingw32"]

library_folder = []


def compile_with(compiler, *arguments, source=None):
    subprocess.run([*compiler, *FLAGS, *arguments], input=source, text=True, check=True)


class WindowsExamplesTest(WineCase):
    @classmethod
    def setUpClass(cls):
        super().setUpClass()
        cls.list_and_backup = cls.at("list_and_backup.exe")
        cls.inspect_and_restore = cls.at("inspect_and_restore.exe")
        shutil.copy(os.path.join(library_folder[0], "KestrelkitCore.dll"), cls.folder)
        compile_with(["x86_64-w64-mingw32-gcc", "-std=c11"], "-municode", C_EXAMPLE, "-o",
                     cls.list_and_backup, f"-L{library_folder[0]}", "-lKestrelkitCore")
        compile_with(["x86_64-w64-mingw32-g++", "-std=c++20"], "-municode", "-static", CPP_EXAMPLE, "-o",
                     cls.inspect_and_restore)

    @classmethod
    def at(cls, name):
        return os.path.join(cls.folder, name)

    def run_example(self, example, *arguments, expect):
        wine_case.program[:] = [example]
        return self.run_kkctl(*arguments, expect=expect)

    def test_clang_compiles_them_too(self):
        compile_with(["clang-19", *WINDOWS_CLANG, "-std=c11"], "-fsyntax-only", C_EXAMPLE)
        compile_with(["clang++-19", *WINDOWS_CLANG, "-std=c++20"], "-fsyntax-only", CPP_EXAMPLE)

    def test_the_wrapper_stands_alone_for_linux_and_windows(self):
        for compiler in (["g++"], ["clang++-19"], ["x86_64-w64-mingw32-g++"], ["clang++-19", *WINDOWS_CLANG]):
            compile_with([*compiler, "-std=c++20"], "-fsyntax-only", "-xc++", "-",
                         source='#include "kestrelkit/kestrelkit.hpp"\n')
        compile_with(["clang++-19", "-std=c++20"], "-fsyntax-only", "-xc++", "-",
                     source='#include "kestrelkit/kestrelkit_types.hpp"\n')

    def test_c_finds_no_disks_where_none_tells_its_layout(self):
        output, _ = self.run_example(self.list_and_backup, expect=0)
        self.assertEqual(output, "No disk can be read. Is this process elevated?\n")

    def test_c_tells_why_a_backup_failed_and_leaves_no_image(self):
        _, errors = self.run_example(self.list_and_backup, "0", "x.vhdx", expect=1)
        self.assertEqual(errors, "KkBackup: 0xC00000BB\n")
        self.assertFalse(os.path.exists(self.at("x.vhdx")))

    def test_c_touches_no_image_that_exists(self):
        with open(self.at("there.vhdx"), "w", encoding="utf-8") as file:
            file.write("mine")
        _, errors = self.run_example(self.list_and_backup, "0", "there.vhdx", expect=1)
        self.assertIn("there.vhdx exists already", errors)
        with open(self.at("there.vhdx"), encoding="utf-8") as file:
            self.assertEqual(file.read(), "mine")

    def test_c_wants_a_number_for_the_disk(self):
        self.run_example(self.list_and_backup, "C:", "x.vhdx", expect=2)

    def test_cpp_inspects_an_image(self):
        disk = self.at("gpt.raw")
        make_gpt_disk(disk)
        subprocess.run(["qemu-img", "convert", "-f", "raw", "-O", "vhdx", disk, self.at("gpt.vhdx")], check=True)

        output, _ = self.run_example(self.inspect_and_restore, "gpt.vhdx", expect=0)

        self.assertEqual(output, "GPT, 64 MiB, sectors of 512 bytes\n"
                                 f"  1  at {EFI_START}  {EFI_LENGTH >> 20} MiB\n"
                                 f"  2  at {NTFS_START}  {NTFS_LENGTH >> 20} MiB\n")

        _, errors = self.run_example(self.inspect_and_restore, "gpt.vhdx", "2", "0", expect=1)
        self.assertIn("has no free region", errors)

    def test_cpp_tells_the_status_of_a_failure(self):
        _, errors = self.run_example(self.inspect_and_restore, "none.vhdx", expect=1)
        self.assertEqual(errors, "KkInspectImage: 0xC0000034\n")
        self.run_example(self.inspect_and_restore, "gpt.vhdx", "2", "nonsense", expect=2)


if __name__ == "__main__":
    library_folder[:] = [os.path.dirname(os.path.abspath(sys.argv[1]))]
    wine_case.main()
