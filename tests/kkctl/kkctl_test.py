#!/usr/bin/env python3
"""Runs kkctl for the simulated machine on real disk files: lists and backs up.

Usage: kkctl_test.py KKCTL [DLL]
"""

import json
import os
import pty
import re
import subprocess

import machine_case
from machine_case import (BASIC_DATA, DISK_SIZE, EFI_LENGTH, EFI_START, MIB, NTFS_LENGTH, NTFS_START, MachineCase,
                          make_empty_file, make_gpt_disk, make_mbr_disk, read_range, run_tool, sha256)


class KkctlTest(MachineCase):
    @classmethod
    def setUpClass(cls):
        super().setUpClass()
        cls.gpt = os.path.join(cls.folder, "gpt.raw")
        cls.mbr = os.path.join(cls.folder, "mbr.raw")
        cls.blank = os.path.join(cls.folder, "blank.raw")
        make_gpt_disk(cls.gpt)
        make_mbr_disk(cls.mbr)
        make_empty_file(cls.blank, 4 * MIB)
        cls.disks = [cls.gpt, cls.mbr, cls.blank]
        cls.hashes = {path: sha256(path) for path in cls.disks}

    def setUp(self):
        self.image = os.path.join(self.folder, self._testMethodName + ".vhdx")

    def tearDown(self):
        for path, digest in self.hashes.items():
            self.assertEqual(sha256(path), digest, path + " was changed")

    def raw_copy_of(self, image):
        raw = image + ".raw"
        run_tool("qemu-img", "convert", "-f", "vhdx", "-O", "raw", image, raw)
        return raw

    def backup_json(self, *arguments):
        return json.loads(self.run_kkctl("backup", *arguments, "--json").stdout)

    # Listing

    def test_a_machine_without_disks(self):
        self.assertEqual(self.run_kkctl("disks", disks=[]).stdout, "There is no disk that can be read.\n")

    def test_disks_in_order(self):
        lines = self.run_kkctl("disks").stdout.splitlines()
        self.assertEqual(lines[0].split(), ["DISK", "SIZE", "BYTES", "SECTOR", "STYLE", "PARTITIONS"])
        self.assertEqual(lines[1].split(), ["0", "64.0", "MiB", "67108864", "512", "GPT", "2"])
        self.assertEqual(lines[2].split(), ["1", "64.0", "MiB", "67108864", "512", "MBR", "2"])
        self.assertEqual(lines[3].split(), ["2", "4.0", "MiB", "4194304", "512", "RAW", "0"])

    def test_disks_as_json_for_jq(self):
        output = self.run_kkctl("disks", "--json").stdout
        jq = subprocess.run(["jq", "-c", "[.disks[] | [.number, .size, .sectorSize, .partitionStyle, "
                             ".partitionCount]]"], input=output, capture_output=True, text=True, check=True)
        self.assertEqual(jq.stdout.strip(), '[[0,67108864,512,"GPT",2],[1,67108864,512,"MBR",2],'
                                            '[2,4194304,512,"RAW",0]]')

    def test_partitions_of_a_gpt_disk(self):
        lines = self.run_kkctl("partitions", "0").stdout.splitlines()
        self.assertIn("EFI system", lines[1])
        self.assertIn("Basic data  Dat\u00e4n", lines[2])
        self.assertIn("NTFS", lines[2])
        self.assertIn("\\Device\\HarddiskVolume", lines[2])
        self.assertEqual([line.split() for line in lines[3:]],
                         [[], ["FREE", "FROM", "LENGTH", "SIZE"], ["5242880", "3145728", "3.0", "MiB"],
                          ["50331648", "16759808", "15.9", "MiB"]])

    def test_free_regions_as_json(self):
        def regions(disk):
            document = json.loads(self.run_kkctl("partitions", disk, "--json").stdout)
            return [(region["startOffset"], region["length"]) for region in document["freeRegions"]]
        self.assertEqual(regions("0"), [(5 * MIB, 3 * MIB), (48 * MIB, DISK_SIZE - 48 * MIB - 34 * 512)])
        self.assertEqual(regions("1"), [(3 * MIB, 2 * MIB), (9 * MIB, DISK_SIZE - 9 * MIB)])
        self.assertEqual(regions("2"), [])

    def test_partitions_as_json(self):
        document = json.loads(self.run_kkctl("partitions", "0", "--json").stdout)
        self.assertEqual(document["disk"], 0)
        efi, data = document["partitions"]
        self.assertEqual((efi["number"], efi["startOffset"], efi["length"]), (1, EFI_START, EFI_LENGTH))
        self.assertEqual((data["startOffset"], data["length"]), (NTFS_START, NTFS_LENGTH))
        self.assertEqual((data["typeGuid"], data["typeName"]), (BASIC_DATA, "Basic data"))
        self.assertEqual((data["name"], data["mbrType"]), ("Dat\u00e4n", 0))
        self.assertEqual((data["fileSystemName"], data["driveLetter"]), ("NTFS", ""))
        self.assertEqual(data["fileSystemSize"], NTFS_LENGTH - 512)
        self.assertRegex(data["deviceName"], r"^\\Device\\HarddiskVolume\d+$")
        self.assertRegex(data["volumePath"], r"^\\\\\?\\Volume\{[0-9a-f-]{36}\}\\$")

    def test_partitions_of_an_mbr_disk_include_logical_drives(self):
        partitions = json.loads(self.run_kkctl("--json", "partitions", "1").stdout)["partitions"]
        self.assertEqual([(p["startOffset"], p["mbrType"], p["typeName"]) for p in partitions],
                         [(MIB, 0x0C, "FAT32 (LBA)"), (5 * MIB, 0x07, "NTFS/exFAT")])

    def test_a_disk_without_a_table_has_no_partitions(self):
        self.assertEqual(self.run_kkctl("partitions", "2").stdout, "Disk 2 has no partitions.\n")

    def test_a_missing_disk_is_a_failure(self):
        result = self.run_kkctl("partitions", "9", expect=1)
        self.assertEqual(result.stdout, "")
        self.assertIn("0xC0000034 STATUS_OBJECT_NAME_NOT_FOUND", result.stderr)

    # Backing up

    def test_a_whole_backup_holds_the_same_partitions(self):
        self.run_kkctl("backup", "0", self.image)
        raw = self.raw_copy_of(self.image)
        for start, length in ((EFI_START, EFI_LENGTH), (NTFS_START, NTFS_LENGTH)):
            self.assertEqual(read_range(raw, start, length), read_range(self.gpt, start, length))
        with open(self.image + ".json", encoding="utf-8") as file:
            manifest = json.load(file)
        self.assertEqual([p["name"] for p in manifest["partitions"]], ["EFI system", "Dat\u00e4n"])

    def test_the_report_counts_sources_and_bytes(self):
        report = self.backup_json("0", self.image)
        self.assertEqual((report["disk"], report["image"], report["manifest"]),
                         (0, self.image, self.image + ".json"))
        self.assertEqual(report["partitionsCopied"], 2)
        self.assertEqual(report["bytesCopied"], EFI_LENGTH + NTFS_LENGTH)
        self.assertFalse(report["snapshotsRequested"] or report["snapshotsUsed"])
        self.assertEqual(report["liveWholeCopies"] + report["rawDiskCopies"], 2)

    def test_used_blocks_copy_less(self):
        report = self.backup_json("0", self.image, "--used-blocks")
        self.assertEqual(report["liveUsedBlockCopies"], 1)
        self.assertLess(report["bytesCopied"], EFI_LENGTH + NTFS_LENGTH // 2)

    def test_snapshots_are_used(self):
        report = self.backup_json("0", self.image, "--snapshots", "--used-blocks")
        self.assertTrue(report["snapshotsRequested"] and report["snapshotsUsed"])
        self.assertEqual(report["snapshotUsedBlockCopies"], 1)

    def test_options_reach_image_and_manifest(self):
        report = self.backup_json("0", self.image, "--partitions", "2", "--compact", "--set-id", "nightly",
                                  "--set-index", "1", "--set-count", "3")
        self.assertEqual(report["partitionsCopied"], 1)
        with open(self.image + ".json", encoding="utf-8") as file:
            manifest = json.load(file)
        self.assertEqual((manifest["backupSetId"], manifest["setDiskIndex"], manifest["setDiskCount"]),
                         ("nightly", 1, 3))
        self.assertEqual((manifest["compact"], manifest["omittedMode"]), (True, "remove"))
        self.assertEqual([(p["offset"], p["originalOffset"]) for p in manifest["partitions"]], [(MIB, NTFS_START)])
        raw = self.raw_copy_of(self.image)
        self.assertEqual(read_range(raw, MIB, NTFS_LENGTH), read_range(self.gpt, NTFS_START, NTFS_LENGTH))

    def test_each_backup_set_has_an_identifier_of_its_own(self):
        identifiers = set()
        for number in (1, 2):
            image = f"{self.image}.{number}.vhdx"
            self.run_kkctl("backup", "1", image)
            with open(image + ".json", encoding="utf-8") as file:
                identifiers.add(json.load(file)["backupSetId"])
        self.assertEqual(len(identifiers), 2)

    def test_relative_paths_start_from_the_current_folder(self):
        self.run_kkctl("backup", "1", "relative.vhdx", cwd=self.folder)
        self.assertTrue(os.path.exists(os.path.join(self.folder, "relative.vhdx")))
        self.assertTrue(os.path.exists(os.path.join(self.folder, "relative.vhdx.json")))

    def test_an_existing_file_is_never_overwritten(self):
        with open(self.image, "wb") as file:
            file.write(b"precious")
        result = self.run_kkctl("backup", "1", self.image, expect=1)
        self.assertIn("0xC0000001 KK_STATUS_UNSUCCESSFUL", result.stderr)
        self.assertIn("exists already; a backup never overwrites a file", result.stderr)
        with open(self.image, "rb") as file:
            self.assertEqual(file.read(), b"precious")

    def test_a_disk_without_a_table_cannot_be_backed_up(self):
        result = self.run_kkctl("backup", "2", self.image, expect=1)
        self.assertIn("0xC00000BB KK_STATUS_NOT_SUPPORTED", result.stderr)
        self.assertFalse(os.path.exists(self.image))

    def test_a_partition_that_is_not_there_is_refused(self):
        result = self.run_kkctl("backup", "0", self.image, "--partitions", "2,7", expect=2)
        self.assertIn("disk 0 has no partition 7", result.stderr)
        self.assertFalse(os.path.exists(self.image))

    # Progress

    def shown_on_terminal(self, *arguments, stdin=b""):
        terminal, program_side = pty.openpty()
        with subprocess.Popen(self.command_line(*arguments), stdout=subprocess.DEVNULL, stdin=subprocess.PIPE,
                              stderr=program_side) as process:
            os.close(program_side)
            process.stdin.write(stdin)
            process.stdin.close()
            shown = b""
            try:
                while chunk := os.read(terminal, 4096):
                    shown += chunk
            except OSError:  # the program's side was closed
                pass
        os.close(terminal)
        self.assertEqual(process.returncode, 0, shown)
        return shown.decode()

    def test_progress_is_shown_on_a_terminal_only(self):
        shown = self.shown_on_terminal("backup", "0", self.image)
        self.assertRegex(shown, r"of 44\.0 MiB \(\d+ %\)")
        self.assertTrue(shown.endswith(" \r"), shown[-80:])

    def test_progress_of_a_second_backup_begins_anew(self):
        script = f"backup 0 {self.image}\nbackup 1 {self.image}.2.vhdx\n"
        shown = self.shown_on_terminal("shell", stdin=script.encode())
        first, second = (re.findall(r"([\d.]+ \w+) of " + total, shown) for total in (r"44\.0 MiB", r"6\.0 MiB"))
        self.assertEqual((first[0], second[0]), ("0 B", "0 B"))

    # Usage

    def test_usage_errors_exit_with_two(self):
        for arguments in ([], ["unknown"], ["partitions"], ["partitions", "x"], ["backup", "0"],
                          ["backup", "0", self.image, "--partitions", "1,"]):
            self.run_kkctl(*arguments, expect=2)
        self.run_kkctl("disks", disks=["/no/such/file"], expect=2)

    def test_a_missing_library_is_a_failure(self):
        result = self.run_kkctl("--dll", "/no/such.dll", "disks", expect=1)
        self.assertIn("/no/such.dll", result.stderr)


if __name__ == "__main__":
    machine_case.main()
