#!/usr/bin/env python3
"""Runs kkctl for the simulated machine on real disk files: changes tables and volumes, and lets other tools judge.

Usage: edit_test.py KKCTL [DLL]
"""

import json
import os
import pty
import shutil
import subprocess
import unittest

import machine_case
from machine_case import (BASIC_DATA, DISK_SIZE, EFI_LENGTH, EFI_START, MIB, NTFS_LENGTH, NTFS_START, PAYLOAD,
                          MachineCase, make_empty_file, make_gpt_disk, make_mbr_disk, read_range, run_tool, sha256)

GPT_END = DISK_SIZE - 34 * 512
NOBODY = 65534
TROUBLE = ("Caution", "Warning", "Problem", "Invalid", "ERROR", "Error", "corrupt", "mismatch", "verlap", "FAILED")


class EditCase(MachineCase):
    """Each test has a copy of the disks to itself: a GPT disk and an MBR disk, each with partitions and gaps."""

    @classmethod
    def setUpClass(cls):
        super().setUpClass()
        cls.originals = os.path.join(cls.folder, "originals")
        os.mkdir(cls.originals)
        make_gpt_disk(os.path.join(cls.originals, "gpt.raw"))
        make_mbr_disk(os.path.join(cls.originals, "mbr.raw"))

    def setUp(self):
        work = os.path.join(self.folder, self._testMethodName)
        shutil.copytree(self.originals, work)
        self.addCleanup(shutil.rmtree, work)
        self.gpt = os.path.join(work, "gpt.raw")
        self.mbr = os.path.join(work, "mbr.raw")
        self.volume = os.path.join(work, "volume")
        self.mounts = os.path.join(work, "mounts")
        os.mkdir(self.mounts)
        self.disks = [self.gpt, self.mbr]

    # Judges

    def judge(self, *command, says, allowing=""):
        """Exit codes of checkers say too little: their text has to be right too, and without a word of trouble."""
        result = subprocess.run(command, capture_output=True, text=True, stdin=subprocess.DEVNULL)
        output = result.stdout + result.stderr
        self.assertEqual(result.returncode, 0, output)
        self.assertIn(says, output)
        for word in TROUBLE:
            self.assertNotIn(word, output.replace(says, "").replace(allowing, ""), " ".join(command))
        return output

    def judge_tables(self, allowing=""):
        self.judge("sgdisk", "-v", self.gpt, says="No problems found", allowing=allowing)
        for disk in self.disks:
            self.judge("sfdisk", "--verify", disk, says="No errors detected.")

    def table(self, disk):
        output = subprocess.run(["sfdisk", "-J", disk], capture_output=True, check=True).stdout
        entries = json.loads(output)["partitiontable"]["partitions"]
        return [(entry["start"] * 512, entry["size"] * 512, entry["type"].lower()) for entry in entries]

    def cut_out(self, disk, start, length):
        with open(self.volume, "wb") as file:
            file.write(read_range(disk, start, length))
        return self.volume

    def judge_ntfs(self, disk, start, length):
        """What the tools say of the file system in the partition, and that its file is whole."""
        volume = self.cut_out(disk, start, length)
        self.judge("ntfsfix", "-n", volume, says="was processed successfully")
        report = self.judge("ntfsresize", "-i", "-f", volume, says="Checking filesystem consistency")
        size = int(report.split("Current volume size: ")[1].split()[0])
        self.assertLess(length - size, 2 * 4096 + 512, "the file system fills its partition")
        return volume

    def judge_payload(self, volume):
        content = subprocess.run(["ntfscat", volume, "file.bin"], capture_output=True, check=True).stdout
        self.assertEqual(content, PAYLOAD)

    def json_of(self, *arguments):
        return json.loads(self.run_kkctl(*arguments, "--json").stdout)

    def free_regions(self, disk):
        return [(region["startOffset"], region["length"]) for region in self.json_of("partitions", disk)["freeRegions"]]

    def fail_kkctl(self, *arguments, status, **options):
        """The command fails with that status, and the disks stay as they are."""
        before = [sha256(disk) for disk in self.disks]
        result = self.run_kkctl(*arguments, expect=1, **options)
        self.assertEqual(result.stdout, "")
        self.assertIn(status, result.stderr)
        self.assertEqual([sha256(disk) for disk in self.disks], before)


class TableTest(EditCase):
    def test_create_on_a_gpt_disk_in_a_free_region_that_partitions_shows(self):
        start, length = self.free_regions("0")[1]
        created = self.json_of("create", "0", str(start), str(length), "3M")
        self.assertEqual((created["startOffset"], created["length"]), (48 * MIB, 3 * MIB))
        self.assertIn((48 * MIB, 3 * MIB, BASIC_DATA), self.table(self.gpt))
        self.assertEqual(self.free_regions("0"), [(5 * MIB, 3 * MIB), (51 * MIB, GPT_END - 51 * MIB)])
        self.judge_tables()

    def test_create_without_a_size_fills_the_region_with_whole_mebibytes(self):
        output = self.run_kkctl("create", "0", "48M", "1G").stdout
        self.assertEqual(output, "Created the partition at 50331648 of disk 0 (15.0 MiB)\n")
        self.assertIn((48 * MIB, 15 * MIB, BASIC_DATA), self.table(self.gpt))
        self.judge_tables()

    def test_create_on_an_mbr_disk(self):
        created = self.json_of("create", "1", "32M", "32M", "1000")
        self.assertEqual((created["startOffset"], created["length"]), (32 * MIB, 1024))
        self.assertIn((32 * MIB, 1024, "7"), self.table(self.mbr))
        self.judge_tables()

    def test_create_where_it_cannot_be(self):
        self.fail_kkctl("create", "0", "48M", "16M", "16M", status="0xC0000023 KK_STATUS_BUFFER_TOO_SMALL")
        self.fail_kkctl("create", "0", "8M", "1M", status="0xC000000D KK_STATUS_INVALID_PARAMETER")
        self.fail_kkctl("create", "9", "8M", "1M", status="0xC0000034 STATUS_OBJECT_NAME_NOT_FOUND")
        blank = os.path.join(self.folder, "blank.raw")
        make_empty_file(blank, 4 * MIB)
        self.fail_kkctl("create", "2", "1M", "1M", disks=[*self.disks, blank],
                        status="0xC00000BB KK_STATUS_NOT_SUPPORTED")

    def test_delete_leaves_the_data_and_the_other_partitions(self):
        self.assertEqual(self.json_of("delete", "0", "8M"), {"disk": 0, "startOffset": NTFS_START})
        self.assertEqual([entry[:2] for entry in self.table(self.gpt)], [(EFI_START, EFI_LENGTH)])
        self.judge_payload(self.cut_out(self.gpt, NTFS_START, NTFS_LENGTH))
        self.run_kkctl("delete", "1", "1M")
        self.assertEqual([entry[0] for entry in self.table(self.mbr)], [4 * MIB, 5 * MIB])
        self.judge_tables()

    def test_delete_of_what_is_not_there(self):
        self.fail_kkctl("delete", "0", "9M", status="0xC000000D KK_STATUS_INVALID_PARAMETER")

    @unittest.skipUnless(os.geteuid() == 0, "takes the rights of another user")
    def test_a_file_that_must_not_be_written_is_a_write_protected_disk(self):
        as_nobody = ["setpriv", f"--reuid={NOBODY}", "--clear-groups"]
        os.chmod(self.folder, 0o755)
        line = as_nobody + self.command_line("create", "0", "48M", "8M", disks=[self.gpt])
        if subprocess.run([*as_nobody, "test", "-x", line[len(as_nobody)]], check=False).returncode != 0:
            self.skipTest("the program lies where another user cannot go")
        before = sha256(self.gpt)
        result = subprocess.run(line, capture_output=True, text=True, stdin=subprocess.DEVNULL)
        self.assertEqual(result.returncode, 1, result.stderr)
        self.assertIn("0xC00000A2 STATUS_MEDIA_WRITE_PROTECTED", result.stderr)
        self.assertEqual(sha256(self.gpt), before)


class SizeTest(EditCase):
    def test_extend_and_shrink_keep_the_file(self):
        extended = self.json_of("extend", "0", "8M", "50M")
        self.assertEqual((extended["length"], extended["fileSystemName"]), (50 * MIB, "NTFS"))
        self.assertGreater(extended["fileSystemSize"], 49 * MIB)
        self.judge_payload(self.judge_ntfs(self.gpt, NTFS_START, 50 * MIB))
        self.judge_tables()

        output = self.run_kkctl("shrink", "0", "8M", "30M").stdout
        self.assertEqual(output, "Shrunk the partition at 8388608 of disk 0 (30.0 MiB, NTFS)\n")
        self.judge_payload(self.judge_ntfs(self.gpt, NTFS_START, 30 * MIB))
        self.assertIn((NTFS_START, 30 * MIB, BASIC_DATA), self.table(self.gpt))
        self.judge_tables()

    def test_extend_without_a_size_takes_all_the_room(self):
        extended = self.json_of("extend", "0", "8M")
        self.assertEqual(extended["length"], GPT_END - NTFS_START)
        self.judge_payload(self.judge_ntfs(self.gpt, NTFS_START, GPT_END - NTFS_START))
        self.judge_tables(allowing="Caution: Partition 2 doesn't end on a 2048-sector boundary.")

    def test_extend_up_to_the_next_partition(self):
        self.fail_kkctl("extend", "0", "1M", "8M", status="0xC0000023 KK_STATUS_BUFFER_TOO_SMALL")
        output = self.run_kkctl("extend", "0", "1M").stdout
        self.assertEqual(output, "Extended the partition at 1048576 of disk 0 (7.0 MiB)\n")
        self.assertEqual(self.table(self.gpt)[0][:2], (EFI_START, 7 * MIB))
        self.judge_tables()

    def test_shrink_below_what_the_contents_need(self):
        self.fail_kkctl("shrink", "0", "8M", "1M", status="0xC000007F KK_STATUS_DISK_FULL")


class FormatTest(EditCase):
    START, LENGTH = 1 * MIB, 40 * MIB

    def setUp(self):
        super().setUp()
        run_tool("sgdisk", "-Z", "-o", self.gpt)
        make_empty_file(self.mbr, DISK_SIZE)
        run_tool("sfdisk", self.mbr, stdin=b"label: dos\nstart=2048,size=81920,type=7\n")
        with open(self.gpt, "r+b") as file:
            file.seek(self.START)
            file.write(b"old data" * (self.LENGTH // 8))
        self.run_kkctl("create", "0", str(self.START), str(self.LENGTH))

    def label_of(self, volume):
        return subprocess.run(["blkid", "-p", "-o", "value", "-s", "LABEL", volume], capture_output=True, text=True,
                              check=True).stdout.strip()

    def format(self, name, *options, disk="0"):
        formatted = self.json_of("format", disk, str(self.START), "--fs", name, *options)
        self.assertEqual((formatted["startOffset"], formatted["fileSystemName"], formatted["driveLetter"]),
                         (self.START, name, "D:"))
        return self.cut_out(self.disks[int(disk)], self.START, self.LENGTH)

    def test_ntfs(self):
        volume = self.format("NTFS", "--label", "M\u00fcller's files")
        self.judge_ntfs(self.gpt, self.START, self.LENGTH)
        self.assertEqual(self.label_of(volume), "M\u00fcller's files")

    def test_fat32(self):
        volume = self.format("FAT32", "--label", "my disk")
        self.judge("fsck.vfat", "-n", volume, says="files, ")
        self.assertEqual(self.label_of(volume), "MY DISK")

    def test_fat(self):
        volume = self.format("FAT")
        self.judge("fsck.vfat", "-n", volume, says="files, ")
        self.assertEqual(self.label_of(volume), "")

    def test_exfat_on_an_mbr_disk(self):
        volume = self.format("exFAT", "--label", "Fotos", disk="1")
        self.judge("fsck.exfat", "-n", volume, says="clean")
        self.assertEqual(self.label_of(volume), "Fotos")

    def test_ntfs_is_what_one_gets(self):
        formatted = self.json_of("format", "0", "1M")
        self.assertEqual(formatted["fileSystemName"], "NTFS")
        self.judge_ntfs(self.gpt, self.START, self.LENGTH)

    def test_only_a_full_format_goes_over_old_data(self):
        self.assertIn(b"old data", read_range(self.format("NTFS"), 0, self.LENGTH))
        self.assertNotIn(b"old data", read_range(self.format("NTFS", "--full"), 0, self.LENGTH))

    def test_what_the_format_command_does_not_make(self):
        self.fail_kkctl("format", "0", "1M", "--fs", "ZFS", status="0xC0000001 KK_STATUS_UNSUCCESSFUL")
        self.fail_kkctl("format", "0", "1M", "--fs", "FAT32", "--label", "twelve chars",
                        status="0xC0000001 KK_STATUS_UNSUCCESSFUL")
        self.fail_kkctl("format", "0", "2M", status="0xC000000D KK_STATUS_INVALID_PARAMETER")


class ShellTest(EditCase):
    def run_lines(self, *lines, expect=0):
        return self.run_kkctl("shell", stdin="\n".join(lines) + "\n", expect=expect)

    def test_letters_last_from_line_to_line(self):
        output = self.run_lines("letter 0 8M e", "partitions 0", "letter 0 8M X", "letter 0 1M E",
                                "partitions 0 --json").stdout
        self.assertIn("Gave a letter to the partition at 8388608 of disk 0 (40.0 MiB, NTFS, E:)\n", output)
        letters = [partition["driveLetter"] for partition in json.loads(output[output.index("{"):])["partitions"]]
        self.assertEqual(letters, ["E:", "X:"])
        self.assertEqual(self.json_of("letter", "0", "8M", "none")["driveLetter"], "", "nothing lasts outside")

    def test_a_letter_that_is_taken_is_refused(self):
        result = self.run_lines("letter 0 8M E", "letter 0 1M E", "letter 0 8M none", "letter 0 1M E", expect=1)
        self.assertIn("0x80070005 KK_E_ACCESSDENIED", result.stderr)
        self.assertIn("kkctl: line 2 failed", result.stderr)
        self.assertIn("Gave a letter to the partition at 1048576 of disk 0 (4.0 MiB, E:)", result.stdout)

    def test_mount_points_last_from_line_to_line(self):
        folder = os.path.join(self.mounts, "my disk")
        os.mkdir(folder)
        line = f'mountpoint 0 8M "{folder}"'
        self.assertEqual(self.run_lines(line).stdout, f"Mounted the partition at 8388608 of disk 0 on {folder}\n")
        result = self.run_lines(line, line, expect=1)
        self.assertIn("0x80070005 KK_E_ACCESSDENIED", result.stderr)
        self.assertIn("kkctl: line 2 failed", result.stderr)

    def test_a_folder_that_is_missing_or_not_empty_is_refused(self):
        self.fail_kkctl("mountpoint", "0", "8M", os.path.join(self.mounts, "none"),
                        status="0x80070005 KK_E_ACCESSDENIED")
        self.fail_kkctl("mountpoint", "0", "8M", os.path.dirname(self.mounts),
                        status="0x80070005 KK_E_ACCESSDENIED")
        self.fail_kkctl("mountpoint", "0", "9M", self.mounts, status="0xC0000013 KK_STATUS_NO_MEDIA_IN_DEVICE")

    def test_a_disk_is_made_up_by_a_script(self):
        image = os.path.join(self.mounts, "image.vhdx")
        output = self.run_lines("# a new partition in the last gap", "create 0 48M 16M", "",
                                'format 0 48M --label "From a script"', "letter 0 48M S", "shrink 0 8M 30M",
                                "extend 0 8M 35M", "delete 0 1M", "partitions 0", f'backup 0 "{image}" --used-blocks',
                                "exit", "delete 0 8M").stdout
        self.assertIn("NTFS  S:", output)
        self.assertTrue(os.path.exists(image))
        self.assertEqual([entry[:2] for entry in self.table(self.gpt)],
                         [(NTFS_START, 35 * MIB), (48 * MIB, 15 * MIB)])
        self.judge_ntfs(self.gpt, 48 * MIB, 15 * MIB)
        self.judge_payload(self.judge_ntfs(self.gpt, NTFS_START, 35 * MIB))
        self.judge_tables()

    def test_the_exit_code_is_that_of_the_first_failure(self):
        result = self.run_lines("nonsense", "partitions 9", "disks", expect=2)
        self.assertIn("there is no command or option nonsense", result.stderr)
        self.assertIn("GPT", result.stdout)
        self.run_lines("partitions 9", "nonsense", expect=1)
        self.run_lines("shell", expect=2)

    def test_restarts_are_pretended(self):
        output = self.run_lines("reboot", "reboot --json").stdout
        self.assertEqual(output, 'A real machine would restart now; the simulated one goes on.\n'
                                 '{\n  "restart": true,\n  "simulated": true\n}\n')


class TerminalTest(EditCase):
    def run_on_terminal(self, *arguments, typed):
        terminal, program_side = pty.openpty()
        os.write(terminal, typed)
        result = subprocess.run(self.command_line(*arguments), stdin=program_side, capture_output=True, text=True)
        os.close(program_side)
        os.close(terminal)
        return result

    def test_a_delete_is_asked_about(self):
        before = sha256(self.gpt)
        result = self.run_on_terminal("delete", "0", "8M", typed=b"n\n")
        self.assertEqual(result.returncode, 1)
        self.assertEqual(result.stderr, "kkctl: Delete the partition at 8388608 of disk 0 (40.0 MiB, NTFS) and lose "
                                        "all that is on it? [y/N] kkctl: nothing was done\n")
        self.assertEqual(sha256(self.gpt), before)

        self.assertEqual(self.run_on_terminal("delete", "0", "8M", typed=b"y\n").returncode, 0)
        self.assertEqual([entry[0] for entry in self.table(self.gpt)], [EFI_START])

    def test_a_shell_prompts_and_asks(self):
        result = self.run_on_terminal("shell", typed=b"delete 0 8M\nn\nnonsense\ndelete 0 1M --yes\nexit\n")
        self.assertEqual(result.returncode, 0, result.stderr)
        self.assertEqual(result.stderr.count("kkctl> "), 4)
        self.assertEqual(result.stderr.count("[y/N]"), 1)
        self.assertEqual([entry[0] for entry in self.table(self.gpt)], [NTFS_START])


if __name__ == "__main__":
    machine_case.main()
