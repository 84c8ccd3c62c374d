#!/usr/bin/env python3
"""Runs kkctl for the simulated machine on images of real disk files: inspects, restores, clones, mounts and recovers,
and lets other tools judge.

Usage: image_test.py KKCTL [DLL]
"""

import json
import os
import shutil
import subprocess

import machine_case
from machine_case import (BASIC_DATA, DISK_SIZE, EFI_LENGTH, EFI_START, MIB, NTFS_LENGTH, NTFS_START, PAYLOAD,
                          MachineCase, make_empty_file, make_gpt_disk, make_mbr_disk, read_range, run_tool, sha256)

TROUBLE = ("Caution", "Warning", "Problem", "Invalid", "ERROR", "Error", "corrupt", "mismatch", "verlap", "FAILED")
BACKUP_BOOT_SECTOR = 512  # the last one of an NTFS partition, behind its file system


class ImageCase(MachineCase):
    """A GPT disk, and a whole backup of it. Each test has an empty disk and a copy of the image to itself."""

    @classmethod
    def setUpClass(cls):
        super().setUpClass()
        cls.source = os.path.join(cls.folder, "source.raw")
        cls.backup = os.path.join(cls.folder, "source.vhdx")
        make_gpt_disk(cls.source)
        subprocess.run([*machine_case.program, "--disk", cls.source, "backup", "0", cls.backup],
                       stdout=subprocess.DEVNULL, check=True)

    def setUp(self):
        self.work = os.path.join(self.folder, self._testMethodName)
        os.mkdir(self.work)
        self.addCleanup(shutil.rmtree, self.work)
        self.image = self.at("image.vhdx")
        shutil.copy(self.backup, self.image)
        self.image_digest = sha256(self.image)
        self.target = self.at("target.raw")
        make_empty_file(self.target, 2 * DISK_SIZE)
        self.disks = [self.target]

    def at(self, name):
        return os.path.join(self.work, name)

    def json_of(self, *arguments, **options):
        return json.loads(self.run_kkctl(*arguments, "--json", **options).stdout)

    def run_lines(self, *lines, expect=0):
        return self.run_kkctl("shell", stdin="".join(line + "\n" for line in lines), expect=expect).stdout

    def add_partitions(self, *sizes):
        """Gives the empty disk a GPT with partitions on whole MiB; returns their places."""
        options = []
        places = []
        start = 1
        for number, size in enumerate(sizes, 1):
            options += ["-n", f"{number}:{start * 2048}:+{size}M", "-t", f"{number}:0700"]
            places.append((start * MIB, size * MIB))
            start += size
        run_tool("sgdisk", "-o", *options, self.target)
        return places

    # Judges

    def judge(self, *command, says):
        """Exit codes of checkers say too little: their text has to be right too, and without a word of trouble."""
        result = subprocess.run(command, capture_output=True, text=True, stdin=subprocess.DEVNULL)
        output = result.stdout + result.stderr
        self.assertEqual(result.returncode, 0, output)
        self.assertIn(says, output)
        for word in TROUBLE:
            self.assertNotIn(word, output.replace(says, ""), " ".join(command))
        return output

    def judge_table(self):
        self.judge("sgdisk", "-v", self.target, says="No problems found")
        self.judge("sfdisk", "--verify", self.target, says="No errors detected.")

    def cut_out(self, start, length, name="volume"):
        path = self.at(name)
        with open(path, "wb") as file:
            file.write(read_range(self.target, start, length))
        return path

    def judge_files(self, volume):
        content = subprocess.run(["ntfscat", volume, "file.bin"], capture_output=True, check=True).stdout
        self.assertEqual(content, PAYLOAD)

    def judge_same_volume(self, start):
        """The partition begins with the very bytes of the source's, and its files are the same to ntfscmp."""
        volume = self.cut_out(start, NTFS_LENGTH)
        original = self.at("original")
        with open(original, "wb") as file:
            file.write(read_range(self.source, NTFS_START, NTFS_LENGTH))
        self.assertEqual(sha256(volume), sha256(original))
        self.judge("ntfsfix", "-n", volume, says="was processed successfully")
        said = subprocess.run(["ntfscmp", "-P", original, volume], capture_output=True, text=True, check=True)
        lines = (said.stdout + said.stderr).splitlines()
        self.assertTrue(len(lines) == 1 and lines[0].startswith("ntfscmp v"), lines)

    def judge_resized_volume(self, start, length):
        volume = self.cut_out(start, length)
        report = self.judge("ntfsresize", "-i", "-f", volume, says="Checking filesystem consistency")
        size = int(report.split("Current volume size: ")[1].split()[0])
        self.assertLess(length - size, 2 * 4096 + 512, "the file system fills its partition")
        self.judge_files(volume)

    def assert_image_unchanged(self):
        self.assertEqual(sha256(self.image), self.image_digest)


class InspectTest(ImageCase):
    def test_a_backup_shows_the_disk_that_it_was_made_of(self):
        seen = self.json_of("inspect", self.image)
        table = json.loads(subprocess.run(["sfdisk", "-J", self.source], capture_output=True,
                                          check=True).stdout)["partitiontable"]
        self.assertEqual((seen["size"], seen["sectorSize"], seen["partitionStyle"], seen["diskGuid"]),
                         (DISK_SIZE, 512, "GPT", table["id"].lower()))
        self.assertEqual([(p["number"], p["startOffset"], p["length"], p["typeName"], p["name"])
                          for p in seen["partitions"]],
                         [(1, EFI_START, EFI_LENGTH, "EFI system", "EFI system"),
                          (2, NTFS_START, NTFS_LENGTH, "Basic data", "Dat\u00e4n")])

    def test_no_disk_is_needed(self):
        lines = self.run_kkctl("inspect", self.image, disks=[]).stdout.splitlines()
        self.assertEqual(lines[-1].split(), ["2", "8388608", "41943040", "40.0", "MiB", "Basic", "data", "Dat\u00e4n"])

    def test_what_is_no_image(self):
        result = self.run_kkctl("inspect", self.source, expect=1)
        self.assertIn("0xC000014C KK_STATUS_REGISTRY_CORRUPT", result.stderr)


class RestoreTest(ImageCase):
    def test_a_whole_image_onto_an_empty_disk(self):
        output = self.run_kkctl("restore", self.image, "0", "--write-table").stdout
        self.assertEqual(output, f"Restored all partitions of {self.image} onto disk 0, with a new partition table\n")
        self.judge_table()
        self.assertEqual(read_range(self.target, EFI_START, EFI_LENGTH), b"pattern!" * (EFI_LENGTH // 8))
        self.judge_same_volume(NTFS_START)
        self.assert_image_unchanged()

    def test_one_partition_beside_others(self):
        self.add_partitions(4, 3, 40)
        with open(self.target, "r+b") as file:
            file.write(read_range(self.target, 0, EFI_START) + b"others!!" * (EFI_LENGTH // 8))
        report = self.json_of("restore", self.image, "0", "--partitions", "2")
        self.assertEqual((report["target"], report["partitions"], report["tableWritten"]), ("0", [2], False))
        self.assertEqual(read_range(self.target, EFI_START, EFI_LENGTH), b"others!!" * (EFI_LENGTH // 8))
        self.judge_table()
        self.judge_same_volume(NTFS_START)

    def test_a_disk_that_is_too_small_stays_as_it_is(self):
        make_empty_file(self.target, NTFS_START + NTFS_LENGTH)
        result = self.run_kkctl("restore", self.image, "0", "--write-table", expect=1)
        self.assertIn("0xC0000023 KK_STATUS_BUFFER_TOO_SMALL", result.stderr)
        self.assertEqual(read_range(self.target, 0, DISK_SIZE), bytes(NTFS_START + NTFS_LENGTH))

    def test_a_partition_that_the_image_lacks_is_refused(self):
        result = self.run_kkctl("restore", self.image, "0", "--partitions", "2,3", expect=2)
        self.assertEqual(result.stderr, f"kkctl: {self.image} has no partition 3\n")

    def test_into_free_space_that_partitions_shows(self):
        self.add_partitions(4)
        region = self.json_of("partitions", "0")["freeRegions"][0]
        created = self.json_of("restore-free", self.image, "2", "0", str(region["startOffset"]),
                               str(region["length"]), "--keep-size")
        self.assertEqual((created["startOffset"], created["length"], created["fileSystemName"]),
                         (5 * MIB, NTFS_LENGTH, "NTFS"))
        self.judge_table()
        self.judge_same_volume(5 * MIB)

    def test_into_all_of_the_free_space(self):
        self.add_partitions(4)
        output = self.run_kkctl("restore-free", self.image, "2", "0", "5M", "60M").stdout
        self.assertEqual(output, f"Restored partition 2 of {self.image} as the partition at 5242880 of disk 0 "
                                 "(60.0 MiB, NTFS of only 39.9 MiB)\n")
        self.judge_table()
        self.judge_same_volume(5 * MIB)

    def test_a_partition_of_an_mbr_image_into_free_space(self):
        mbr = self.at("mbr.raw")
        make_mbr_disk(mbr)
        with open(mbr, "r+b") as file:
            file.seek(MIB)
            file.write(PAYLOAD)
        run_tool("qemu-img", "convert", "-f", "raw", "-O", "vhdx", mbr, self.image)
        self.add_partitions(4)
        created = self.json_of("restore-free", self.image, "1", "0", "5M", "60M", "--keep-size")
        self.assertEqual((created["startOffset"], created["length"]), (5 * MIB, 2 * MIB))
        self.assertEqual(read_range(self.target, 5 * MIB, 2 * MIB), PAYLOAD + bytes(MIB))
        result = self.run_kkctl("restore", self.image, "0", expect=2)
        self.assertIn("has an MBR, and restore needs a GPT", result.stderr)

    def test_onto_a_larger_volume(self):
        (start, length), = self.add_partitions(60)
        output = self.run_kkctl("restore-volume", self.image, "2", f"0@{start}", "--extend").stdout
        self.assertEqual(output, f"Restored partition 2 of {self.image} onto 0@{start}\n")
        self.judge_table()
        self.judge_resized_volume(start, length)

    def test_onto_a_volume_that_is_too_small(self):
        (start, length), = self.add_partitions(39)
        result = self.run_kkctl("restore-volume", self.image, "2", f"0@{start}", expect=1)
        self.assertIn("0xC0000023 KK_STATUS_BUFFER_TOO_SMALL", result.stderr)
        self.assertEqual(read_range(self.target, start, length), bytes(length))


class CloneTest(ImageCase):
    def test_a_volume_onto_a_larger_one(self):
        (start, length), = self.add_partitions(60)
        before = sha256(self.source)
        self.run_kkctl("clone", f"1@{NTFS_START}", f"0@{start}", "--extend", disks=[self.target, self.source])
        self.judge_resized_volume(start, length)
        self.judge_table()
        self.assertEqual(sha256(self.source), before)

    def test_volumes_by_their_devices(self):
        (start, _), = self.add_partitions(40)
        disks = [self.target, self.source]
        devices = {}
        for disk in ("0", "1"):
            for partition in self.json_of("partitions", disk, disks=disks)["partitions"]:
                devices[disk, partition["startOffset"]] = partition["deviceName"]
        self.run_kkctl("clone", devices["1", NTFS_START], devices["0", start], disks=disks)
        # What is cloned ends with the file system.
        length = NTFS_LENGTH - BACKUP_BOOT_SECTOR
        self.assertEqual(read_range(self.target, start, length), read_range(self.source, NTFS_START, length))
        self.assertEqual(read_range(self.target, start + length, BACKUP_BOOT_SECTOR), bytes(BACKUP_BOOT_SECTOR))

    def test_a_volume_of_a_mounted_image(self):
        (start, length), = self.add_partitions(60)
        output = self.run_lines(f"mount {self.image}", f"clone 1@{NTFS_START} 0@{start} --extend",
                                f"unmount {self.image}")
        self.assertIn(f"Cloned 1@{NTFS_START} onto 0@{start}\n", output)
        self.judge_resized_volume(start, length)


class MountTest(ImageCase):
    def volume_path(self, output):
        return output.split("shows the image ")[1].splitlines()[0]

    def test_a_mounted_image_is_a_disk_until_it_is_unmounted(self):
        output = self.run_lines(f'mount "{self.image}"', "partitions 1", "query 1", "query 0",
                                f'unmount "{self.image}"', "disks", "query 1")
        self.assertTrue(output.startswith(f"Mounted {self.image} as disk 1\n"), output)
        self.assertIn("Dat\u00e4n", output)
        self.assertTrue(self.volume_path(output).endswith(self.image.replace("/", "\\")), output)
        self.assertIn("Disk 0 shows no image.\n", output)
        self.assertIn(f"Unmounted {self.image}\n", output)
        listed = output.split("Unmounted")[1]
        self.assertNotIn("\n   1 ", listed)
        self.assertTrue(listed.endswith("Disk 1 shows no image.\n"), listed)

    def test_what_is_written_to_a_mounted_image_is_in_it(self):
        self.run_lines(f"mount {self.image}", "delete 1 1M", f"unmount {self.image}")
        self.assertEqual([p["number"] for p in self.json_of("inspect", self.image)["partitions"]], [2])
        self.judge("qemu-img", "check", "-f", "vhdx", self.image, says="No errors were found on the image.")

    def test_an_image_is_mounted_once(self):
        result = self.run_kkctl("shell", stdin=f"mount {self.image}\nmount {self.image}\n", expect=1)
        self.assertIn("kkctl: line 2 failed", result.stderr)
        self.assertIn(f"mounting {self.image}: 0x8007", result.stderr)

    def test_what_is_written_to_an_overlay_is_gone_with_it(self):
        overlay = self.at("changes.avhdx")
        output = self.run_lines(f"overlay {self.image} {overlay}", "shrink 1 8M 30M", "delete 1 1M", "partitions 1",
                                f"discard {overlay}", "query 1", f"mount {self.image}", "partitions 1")
        self.assertEqual(output.splitlines()[0],
                         f"Mounted {self.image} as disk 1; what is written to it goes into {overlay}")
        self.assertIn("31457280  30.0 MiB", output)
        changed, unchanged = output.split(f"Discarded {overlay}\n")
        self.assertNotIn("EFI system", changed)
        self.assertIn("EFI system", unchanged)
        self.assertIn("41943040  40.0 MiB", unchanged)
        self.assertFalse(os.path.exists(overlay))
        self.assert_image_unchanged()

    def test_an_overlay_never_replaces_a_file(self):
        overlay = self.at("precious")
        with open(overlay, "wb") as file:
            file.write(b"precious")
        result = self.run_kkctl("overlay", self.image, overlay, expect=1)
        self.assertIn("0x80070050 HRESULT of ERROR_FILE_EXISTS", result.stderr)
        with open(overlay, "rb") as file:
            self.assertEqual(file.read(), b"precious")

    def test_a_backup_is_not_discarded(self):
        result = self.run_kkctl("discard", self.backup, expect=2)
        self.assertIn("it is a backup", result.stderr)
        self.assertTrue(os.path.exists(self.backup))


class RecoverTest(ImageCase):
    def test_into_a_smaller_partition(self):
        _, (start, length) = self.add_partitions(4, 20)
        output = self.run_kkctl("recover", self.image, "2", "0", str(start)).stdout
        self.assertEqual(output, f"Recovered partition 2 of {self.image} into the partition at {start} of disk 0 "
                                 "(20.0 MiB, NTFS)\n")
        self.judge_table()
        self.judge_resized_volume(start, length)
        self.assertEqual(sorted(os.listdir(self.work)), ["image.vhdx", "target.raw", "volume"])
        self.assert_image_unchanged()

    def test_into_a_larger_partition(self):
        (start, length), = self.add_partitions(60)
        recovered = self.json_of("recover", self.image, "2", "0", str(start))
        self.assertEqual((recovered["length"], recovered["fileSystemName"]), (length, "NTFS"))
        self.judge_resized_volume(start, length)
        self.assert_image_unchanged()

    def test_what_an_earlier_run_left_is_cleared_away(self):
        (start, length), = self.add_partitions(20)
        with open(self.image + ".rec.avhdx", "wb") as file:
            file.write(b"left over")
        result = self.run_kkctl("recover", self.image, "2", "0", str(start), expect=1)
        self.assertIn("0x80070050", result.stderr)
        self.assertIn("an overlay that an earlier run had left was in the way; try again", result.stderr)
        self.run_kkctl("recover", self.image, "2", "0", str(start))
        self.judge_resized_volume(start, length)

    def test_contents_that_do_not_fit(self):
        (start, length), = self.add_partitions(2)
        self.run_kkctl("recover", self.image, "2", "0", str(start), expect=1)
        self.assertEqual(read_range(self.target, start, length), bytes(length))
        self.assert_image_unchanged()
        self.assertEqual(sorted(os.listdir(self.work)), ["image.vhdx", "target.raw"])


if __name__ == "__main__":
    machine_case.main()
