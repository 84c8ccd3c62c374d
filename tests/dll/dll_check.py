#!/usr/bin/env python3
"""Checks a built KestrelkitCore.dll from outside: what it imports and exports, how it is protected, how large it is.

usage: dll_check.py DLL PUBLIC_HEADER [--size-limit BYTES] [--by-lld] [--traps]
"""

import argparse
import functools
import pathlib
import re
import subprocess
import sys
import unittest

from indirect_calls import unexpected_targets

IMPORTS = {
    "NtCreateFile", "NtReadFile", "NtWriteFile", "NtClose", "NtDeviceIoControlFile", "NtFsControlFile",
    "NtQueryInformationFile", "NtQueryVolumeInformationFile", "NtFlushBuffersFile", "NtQuerySystemTime",
    "RtlTimeToTimeFields", "RtlRandomEx", "RtlUnicodeToUTF8N", "RtlAllocateHeap", "RtlFreeHeap",
    "RtlAdjustPrivilege", "NtShutdownSystem", "LdrLoadDll", "LdrGetProcedureAddress",
}
EXPORT_COUNT = 22
SLOT_BYTES = 8
OPTIONS = None


def output_of(*command):
    return subprocess.run([*command, OPTIONS.dll], capture_output=True, text=True, check=True).stdout


@functools.cache
def readobj(*flags):
    return output_of("llvm-readobj-19", *flags)


@functools.cache
def disassembly():
    return output_of("llvm-objdump-19", "--disassemble", "--no-show-raw-insn")


def number(name, text):
    """What the tool says behind a name, as a number."""
    return int(re.search(rf"\b{name}: (0x[0-9A-F]+|\d+)", text).group(1), 0)


def image_base():
    return number("ImageBase", readobj("--file-headers"))


def sections():
    return re.split(r"^  Section \{$", readobj("--sections"), flags=re.MULTILINE)[1:]


def section_at(address):
    """What the tool says of the section that holds the address."""
    starts = [(image_base() + number("VirtualAddress", section), section) for section in sections()]
    return max(start for start in starts if start[0] <= address)[1]


def pointer_at(address):
    """The pointer that the file holds for the address."""
    section = section_at(address)
    place = address - image_base() - number("VirtualAddress", section) + number("PointerToRawData", section)
    return int.from_bytes(pathlib.Path(OPTIONS.dll).read_bytes()[place:place + SLOT_BYTES], "little")


def import_slots():
    """The addresses of the pointers to what is imported, and the names."""
    text = readobj("--coff-imports")
    first = image_base() + number("ImportAddressTableRVA", text)
    return {first + index * SLOT_BYTES: name for index, name in enumerate(re.findall(r"Symbol: (\S+) \(", text))}


def readers_of(slot):
    """Addresses of the instructions that name the slot."""
    return re.findall(rf"^ *([0-9a-f]+):.*# {slot:#x}\b", disassembly(), re.MULTILINE)


def is_used(slot):
    """Whether code calls through the slot. LLD adds a jump through every slot, called or not."""
    readers = readers_of(slot)
    if not OPTIONS.by_lld or len(readers) != 1:
        return bool(readers)
    return re.search(rf"\b(?:call|jmp)q?\s+0x{readers[0]}\b", disassembly()) is not None


class DllCheck(unittest.TestCase):
    def test_imports_the_permitted_names_from_ntdll_and_nothing_else(self):
        text = readobj("--coff-imports")
        self.assertEqual(re.findall(r"^  Name: (.+)$", text, re.MULTILINE), ["ntdll.dll"])
        self.assertEqual(sorted(re.findall(r"Symbol: (\S+) \(", text)), sorted(IMPORTS))

    def test_uses_every_name_that_it_imports(self):
        unused = [name for slot, name in import_slots().items() if not is_used(slot)]
        self.assertEqual(unused, [])

    def test_exports_exactly_what_the_public_header_declares(self):
        header = pathlib.Path(OPTIONS.header).read_text(encoding="utf-8")
        declared = re.findall(r"^KK_API KK_STATUS KK_CALL (Kk\w+)\(", header, re.MULTILINE)
        self.assertEqual(len(declared), EXPORT_COUNT)
        exported = re.findall(r"^  Name: (.+)$", readobj("--coff-exports"), re.MULTILINE)
        self.assertEqual(sorted(exported), sorted(declared))

    def test_is_a_64_bit_image_that_can_move_and_does_not_execute_data(self):
        text = readobj("--file-headers")
        self.assertIn("Machine: IMAGE_FILE_MACHINE_AMD64", text)
        for flag in ("DYNAMIC_BASE", "HIGH_ENTROPY_VA", "NX_COMPAT"):
            self.assertIn(f"IMAGE_DLL_CHARACTERISTICS_{flag} ", text)
        self.assertIn("AddressOfEntryPoint: 0x", text)
        self.assertNotIn("AddressOfEntryPoint: 0x0\n", text)
        self.assertNotIn("IMAGE_FILE_RELOCS_STRIPPED", text)
        self.assertIn("Type: DIR64", readobj("--coff-basereloc"))

    def test_lets_the_processor_guard_return_addresses(self):
        if OPTIONS.by_lld:
            self.assertIn("IMAGE_DLL_CHARACTERISTICS_EX_CET_COMPAT ", readobj("--coff-debug-directory"))

    def test_lets_the_system_guard_indirect_calls(self):
        if OPTIONS.by_lld:
            self.assertIn("IMAGE_DLL_CHARACTERISTICS_GUARD_CF ", readobj("--file-headers"))
            config = readobj("--coff-load-config")
            for flag in ("CF_INSTRUMENTED", "CF_FUNCTION_TABLE_PRESENT"):
                self.assertIn(f" {flag} ", config)
            for pointer in ("GuardCFCheckFunction", "GuardCFCheckDispatch"):
                self.assertNotIn("IMAGE_SCN_MEM_WRITE", section_at(number(pointer, config)), pointer)

    def test_calls_through_pointers_by_the_guard_or_into_the_system(self):
        if OPTIONS.by_lld:
            guard = number("GuardCFCheckDispatch", readobj("--coff-load-config"))
            self.assertTrue(readers_of(guard))
            # Until the system has put its own in the place, the guard is a jump to whatever it is given.
            found = unexpected_targets(disassembly(), {guard, *import_slots()}, exempt=pointer_at(guard))
            self.assertEqual(found, [])

    def test_permits_guarded_calls_of_the_entry_point_and_of_every_export(self):
        if OPTIONS.by_lld:
            offsets = re.findall(r"^  RVA: (.+)$", readobj("--coff-exports"), re.MULTILINE)
            exports = {image_base() + int(offset, 16) for offset in offsets}
            table = readobj("--coff-load-config").split("GuardFidTable [")[1].split("]")[0]
            targets = {int(address, 16) for address in re.findall(r"0x[0-9A-F]+", table)}
            self.assertEqual(len(exports), EXPORT_COUNT)
            entry = image_base() + number("AddressOfEntryPoint", readobj("--file-headers"))
            self.assertEqual((exports | {entry}) - targets, set())

    def test_traps_undefined_behaviour_if_it_was_built_to(self):
        self.assertEqual(bool(re.search(r"\bud[12]", disassembly())), OPTIONS.traps)

    def test_has_no_section_that_is_writable_and_executable(self):
        self.assertTrue(sections())
        for section in sections():
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
    parser.add_argument("--by-lld", action="store_true", help="expect what GCC and its linker cannot do as well")
    parser.add_argument("--traps", action="store_true", help="expect instructions that end undefined behaviour")
    OPTIONS, rest = parser.parse_known_args()
    unittest.main(argv=[sys.argv[0], *rest])
