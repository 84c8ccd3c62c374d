#!/usr/bin/env python3
"""Checks a built KestrelkitCore.dll from the outside: what it imports and exports, how it is protected, how large it is.

usage: dll_check.py DLL PUBLIC_HEADER [--size-limit BYTES]
"""

import argparse
import pathlib
import re
import subprocess
import sys
import unittest

PERMITTED_IMPORTS = {
    "NtCreateFile", "NtReadFile", "NtWriteFile", "NtClose", "NtDeviceIoControlFile", "NtFsControlFile",
    "NtQueryInformationFile", "NtQueryVolumeInformationFile", "NtFlushBuffersFile", "NtQuerySystemTime",
    "RtlTimeToTimeFields", "RtlRandomEx", "RtlUnicodeToUTF8N", "RtlAllocateHeap", "RtlFreeHeap",
    "RtlAdjustPrivilege", "NtShutdownSystem", "LdrLoadDll", "LdrGetProcedureAddress",
}
OPTIONS = None


def readobj(*flags):
    run = subprocess.run(["llvm-readobj-19", *flags, OPTIONS.dll], capture_output=True, text=True, check=True)
    return run.stdout


class DllCheck(unittest.TestCase):
    def test_imports_ntdll_alone_and_only_permitted_names(self):
        text = readobj("--coff-imports")
        self.assertEqual(re.findall(r"^  Name: (.+)$", text, re.MULTILINE), ["ntdll.dll"])
        names = set(re.findall(r"Symbol: (\S+) \(", text))
        self.assertTrue(names)
        self.assertEqual(names - PERMITTED_IMPORTS, set())

    def test_exports_exactly_what_the_public_header_declares(self):
        header = pathlib.Path(OPTIONS.header).read_text(encoding="utf-8")
        declared = re.findall(r"^KK_API KK_STATUS KK_CALL (Kk\w+)\(", header, re.MULTILINE)
        self.assertTrue(declared)
        exported = re.findall(r"^  Name: (.+)$", readobj("--coff-exports"), re.MULTILINE)
        self.assertEqual(sorted(exported), sorted(declared))

    def test_is_a_64_bit_image_that_can_move_and_does_not_execute_data(self):
        text = readobj("--file-headers")
        self.assertIn("Machine: IMAGE_FILE_MACHINE_AMD64", text)
        for flag in ("DYNAMIC_BASE", "HIGH_ENTROPY_VA", "NX_COMPAT"):
            self.assertIn(f"IMAGE_DLL_CHARACTERISTICS_{flag} ", text)
        self.assertIn("AddressOfEntryPoint: 0x", text)
        self.assertNotIn("AddressOfEntryPoint: 0x0\n", text)

    def test_has_no_section_that_is_writable_and_executable(self):
        sections = re.split(r"^  Section \{$", readobj("--sections"), flags=re.MULTILINE)[1:]
        self.assertTrue(sections)
        for section in sections:
            both = "IMAGE_SCN_MEM_WRITE" in section and "IMAGE_SCN_MEM_EXECUTE" in section
            self.assertFalse(both, section)

    def test_has_unwind_data_so_that_faults_find_the_callers_handlers(self):
        self.assertRegex(readobj("--file-headers"), r"ExceptionTableSize: 0x[1-9A-F]")

    def test_has_no_thread_local_storage(self):
        self.assertNotIn("StartAddressOfRawData", readobj("--coff-tls-directory"))

    def test_stays_below_its_size_limit(self):
        if OPTIONS.size_limit is not None:
            self.assertLess(pathlib.Path(OPTIONS.dll).stat().st_size, OPTIONS.size_limit)

    def test_names_no_path_of_the_machine_that_built_it(self):
        content = pathlib.Path(OPTIONS.dll).read_bytes()
        folder = str(pathlib.Path(OPTIONS.dll).resolve().parent).encode()
        self.assertFalse(folder in content, "the build folder's path is in the file")


if __name__ == "__main__":
    parser = argparse.ArgumentParser()
    parser.add_argument("dll")
    parser.add_argument("header")
    parser.add_argument("--size-limit", type=int)
    OPTIONS, rest = parser.parse_known_args()
    unittest.main(argv=[sys.argv[0], *rest])
