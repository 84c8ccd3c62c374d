#!/usr/bin/env python3
"""Makes the package, and serves a front end from it as its author would.

Usage: package_test.py PROJECT BUILD_FOLDER VERSION
Where there is no Wine, what was built is not run.
"""

import hashlib
import pathlib
import re
import struct
import subprocess
import sys
import tempfile
import unittest
import zipfile

HERE = pathlib.Path(__file__).resolve().parent
sys.path[:0] = [str(HERE.parent / "kkctl"), str(HERE.parents[1] / "tools")]
import wine_case  # noqa: E402
from check_docs import LINK  # noqa: E402
from wine_case import WineCase  # noqa: E402

PROJECT = BUILD = VERSION = None
WORK = ROOT = None  # a folder of our own, and the unpacked package in it
FIXED_VERSION = struct.Struct("<13I")
FIXED_VERSION_SIGNATURE = 0xFEEF04BD


def run(*command):
    done = subprocess.run([str(word) for word in command], text=True, capture_output=True)
    if done.returncode != 0:
        raise AssertionError(f"{command[0]} failed:\n{done.stdout[-3000:]}{done.stderr[-3000:]}")
    return done.stdout


def unpack(folder):
    """Makes the package in the folder and unpacks it there."""
    run("cpack", "--config", BUILD / "CPackConfig.cmake", "-B", folder)
    name = f"KestrelkitCore-{VERSION}-x64"
    with zipfile.ZipFile(folder / f"{name}.zip") as package:
        package.extractall(folder)
    return folder / name


def sources_in(folder):
    files = [file for file in (PROJECT / folder).rglob("*") if file.is_file() and file.parent.name != "__pycache__"]
    return [str(file.relative_to(PROJECT)) for file in files]


def setUpModule():
    global WORK, ROOT
    folder = tempfile.TemporaryDirectory(prefix="kestrelkit package ")
    unittest.addModuleCleanup(folder.cleanup)
    WORK = pathlib.Path(folder.name)
    ROOT = unpack(WORK)
    wine_case.program[:] = [str(ROOT / "bin/kkctl.exe")]


def version_resource(file):
    """Numbers and texts of the version that the file carries."""
    text = run("llvm-readobj-19", "--coff-resources", file)
    rows = re.findall(r"^ +[0-9A-F]{4}: ((?:[0-9A-F]+ ?){1,4}) +\|", text, re.MULTILINE)
    data = bytes.fromhex("".join(rows))
    at = data.index(struct.pack("<I", FIXED_VERSION_SIGNATURE))
    fields = FIXED_VERSION.unpack_from(data, at)
    numbers = [(fields[field] >> 16, fields[field] & 0xFFFF, fields[field + 1] >> 16) for field in (2, 4)]
    # Keys and values follow each other, both with zeros behind them.
    words = data[at + FIXED_VERSION.size:].decode("utf-16-le", errors="replace")
    texts = dict(re.findall(r"(\w+)\0+([^\0]+)\0", words))
    return numbers, texts


class PackageTest(unittest.TestCase):
    def test_holds_exactly_what_belongs_to_it(self):
        expected = [
            "CHANGELOG.md", "SHA256SUMS", "bin/KestrelkitCore.dll", "bin/KestrelkitCore.pdb", "bin/kkctl.exe",
            "docs/kkctl.md", "lib/KestrelkitCore.lib", "lib/cmake/KestrelkitCore/KestrelkitCoreConfig.cmake",
            "lib/cmake/KestrelkitCore/KestrelkitCoreConfigVersion.cmake", "lib/libKestrelkitCore.dll.a",
            *sources_in("include"), *sources_in("examples"), *sources_in("docs"),
        ]
        found = [str(file.relative_to(ROOT)) for file in ROOT.rglob("*") if file.is_file()]
        self.assertEqual(sorted(found), sorted(expected))

    def test_holds_what_its_documents_lead_to(self):
        for document in ROOT.rglob("*.md"):
            for target in LINK.findall(document.read_text(encoding="utf-8")):
                there = "://" in target or (document.parent / target).exists()
                self.assertTrue(there, f"{document.relative_to(ROOT)} leads to {target}")

    def test_tells_the_checksum_of_every_file(self):
        lines = (ROOT / "SHA256SUMS").read_text(encoding="utf-8").splitlines()
        told = {name: checksum for checksum, name in (line.split("  ", 1) for line in lines)}
        self.assertEqual(len(told), len(lines))
        actual = {
            str(file.relative_to(ROOT)): hashlib.sha256(file.read_bytes()).hexdigest()
            for file in ROOT.rglob("*") if file.is_file() and file.name != "SHA256SUMS"
        }
        self.assertEqual(told, actual)

    def test_says_the_same_version_everywhere(self):
        numbers = tuple(int(number) for number in VERSION.split("."))
        for name in ("KestrelkitCore.dll", "kkctl.exe"):
            with self.subTest(name):
                fixed, texts = version_resource(ROOT / "bin" / name)
                self.assertEqual(fixed, [numbers, numbers])
                self.assertEqual(texts.get("FileVersion"), VERSION)
                self.assertEqual(texts.get("ProductVersion"), VERSION)
                self.assertEqual(texts.get("OriginalFilename"), name)
        config = (ROOT / "lib/cmake/KestrelkitCore/KestrelkitCoreConfigVersion.cmake").read_text(encoding="utf-8")
        self.assertIn(f'set(PACKAGE_VERSION "{VERSION}")', config)
        latest = re.search(r"^## (\S+)", (ROOT / "CHANGELOG.md").read_text(encoding="utf-8"), re.MULTILINE)
        self.assertEqual(latest.group(1), VERSION)

    def test_refuses_to_serve_programs_of_other_systems(self):
        source = WORK / "other"
        source.mkdir()
        (source / "CMakeLists.txt").write_text(
            "cmake_minimum_required(VERSION 3.25)\nproject(Other NONE)\n"
            "find_package(KestrelkitCore QUIET)\n"
            "message(STATUS \"${KestrelkitCore_FOUND}: ${KestrelkitCore_NOT_FOUND_MESSAGE}\")\n", encoding="utf-8")
        output = run("cmake", "-S", source, "-B", source / "build", f"-DCMAKE_PREFIX_PATH={ROOT}")
        self.assertIn("0: KestrelkitCore.dll exists for 64-bit Windows only", output)


class ConsumerTest(unittest.TestCase):
    """Programs that are built from what is in the package, and what they answer under Wine."""

    def answer_under_wine(self, program, *arguments):
        if not wine_case.WINE:
            return None
        WineCase.setUpClass()
        with tempfile.TemporaryFile() as out:
            done = subprocess.run([*wine_case.WINE, program, *arguments], env=WineCase.environment,
                                  stdin=subprocess.DEVNULL, stdout=out, stderr=subprocess.DEVNULL,
                                  timeout=wine_case.RUN_SECONDS)
            return done.returncode, WineCase.text_in(out)

    def expect_under_wine(self, program, *arguments, answer):
        given = self.answer_under_wine(program, *arguments)
        if given is not None:
            self.assertEqual(given, answer)

    def test_the_console_program_tells_the_version(self):
        self.expect_under_wine(ROOT / "bin/kkctl.exe", "--version", answer=(0, f"kkctl {VERSION}\n"))

    def test_cmake_finds_it_for_c_and_cpp_with_mingw(self):
        build = WORK / "consumer"
        run("cmake", "-G", "Ninja", "-S", HERE / "consumer", "-B", build, f"-DCMAKE_PREFIX_PATH={ROOT}",
            f"-DCMAKE_TOOLCHAIN_FILE={PROJECT / 'cmake/mingw-gcc.cmake'}")
        run("cmake", "--build", build)
        self.expect_under_wine(build / "consumer_c.exe", answer=(0, "C: status 0, 0 disks\n"))
        self.expect_under_wine(build / "consumer_cpp.exe", answer=(0, "C++: status 0, 0 disks\n"))

    def test_microsofts_linker_can_use_the_import_library(self):
        # LLD in Microsoft's manner is the nearest to it here.
        program = WORK / "microsoft.exe"
        run("clang-19", "--target=x86_64-pc-windows-msvc", "-ffreestanding", "-std=c11", f"-I{ROOT / 'include'}",
            "-c", HERE / "consumer/microsoft.c", "-o", WORK / "microsoft.obj")
        run("lld-link-19", "/nodefaultlib", "/subsystem:console", "/entry:Start", f"/out:{program}",
            WORK / "microsoft.obj", ROOT / "lib/KestrelkitCore.lib")
        imports = run("llvm-readobj-19", "--coff-imports", program)
        self.assertEqual(re.findall(r"^  Name: (.+)$", imports, re.MULTILINE), ["KestrelkitCore.dll"])
        (WORK / "KestrelkitCore.dll").write_bytes((ROOT / "bin/KestrelkitCore.dll").read_bytes())
        self.expect_under_wine(program, answer=(100, ""))


if __name__ == "__main__":
    PROJECT, BUILD = (pathlib.Path(argument).resolve() for argument in sys.argv[1:3])
    VERSION = sys.argv[3]
    unittest.main(argv=sys.argv[:1], verbosity=2)
