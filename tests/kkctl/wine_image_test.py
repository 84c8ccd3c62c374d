#!/usr/bin/env python3
"""Runs the commands on images of kkctl.exe under Wine, whose loader and file layer this project did not write.

Usage: wine_image_test.py KKCTL_EXE KKCTL
The library must lie beside KKCTL_EXE; KKCTL is the program for the simulated machine, which makes backups. Fails
where there is no Wine. Wine ends a process that attaches an image or creates an overlay, so neither is tried.
"""

import json
import os
import shutil
import subprocess
import sys

import wine_case
from machine_case import (BASIC_DATA, DISK_SIZE, EFI_LENGTH, EFI_START, MIB, NTFS_LENGTH, NTFS_START, make_gpt_disk,
                          make_mbr_disk, read_range, run_tool, sha256)
from wine_case import WineCase

EFI_SYSTEM = "c12a7328-f81f-11d2-ba4b-00a0c93ec93b"
BLOCK_SIZE = 2 * MIB
NOT_SUPPORTED = "0xC00000BB KK_STATUS_NOT_SUPPORTED"
NO_SUCH_DISK = "0xC0000034 STATUS_OBJECT_NAME_NOT_FOUND"
NOT_OPENED = "0x80070002 KK_E_FILE_NOT_FOUND"

host_kkctl = []


def convert(raw, image, *options):
    run_tool("qemu-img", "convert", "-f", "raw", "-O", "vhdx", "-o", ",".join([f"block_size={BLOCK_SIZE}", *options]),
             raw, image)


class ImageCase(WineCase):
    """The folder has a GPT disk and an MBR disk as files, and images of them made by QEMU."""

    @classmethod
    def setUpClass(cls):
        super().setUpClass()
        cls.gpt, cls.mbr = cls.at("gpt.raw"), cls.at("mbr.raw")
        if os.path.exists(cls.gpt):
            return
        make_gpt_disk(cls.gpt)
        make_mbr_disk(cls.mbr)
        convert(cls.gpt, cls.at("gpt.vhdx"))
        convert(cls.gpt, cls.at("fixed.vhdx"), "subformat=fixed")
        convert(cls.mbr, cls.at("mbr.vhdx"))

    @classmethod
    def at(cls, name):
        return os.path.join(cls.folder, name)

    def times_of_last_writes(self):
        return [os.stat(self.at(name)).st_mtime_ns for name in ("gpt.vhdx", "fixed.vhdx", "mbr.vhdx")]

    def setUp(self):
        self.before = self.times_of_last_writes()

    def tearDown(self):
        self.assertEqual(self.times_of_last_writes(), self.before, "no image is written to")

    def target(self, size, fill=b"\0"):
        """A file in the folder, by its name: what begins with a slash is an option for programs of Windows."""
        name = self._testMethodName + ".raw"
        with open(self.at(name), "wb") as file:
            file.write(fill * size)
        return name

    def json_of(self, *arguments):
        return json.loads(self.run_kkctl(*arguments, "--json", expect=0)[0])

    def volume(self):
        with open(self.at("volume.raw"), "wb") as file:
            file.write(read_range(self.gpt, NTFS_START, NTFS_LENGTH))
        return "volume.raw"

    def assert_same(self, name, start, source, source_start, length):
        self.assertTrue(read_range(self.at(name), start, length) == read_range(source, source_start, length),
                        f"{name} differs from {source}")


class InspectTest(ImageCase):
    def assert_holds_the_gpt_disk(self, image):
        seen = self.json_of("inspect", image)
        table = json.loads(subprocess.run(["sfdisk", "-J", self.gpt], capture_output=True,
                                          check=True).stdout)["partitiontable"]
        self.assertEqual((seen["image"], seen["size"], seen["sectorSize"], seen["partitionStyle"]),
                         (image, DISK_SIZE, 512, "GPT"))
        self.assertEqual(seen["diskGuid"], table["id"].lower())
        self.assertEqual([(p["number"], p["startOffset"], p["length"], p["typeGuid"], p["name"])
                          for p in seen["partitions"]],
                         [(1, EFI_START, EFI_LENGTH, EFI_SYSTEM, "EFI system"),
                          (2, NTFS_START, NTFS_LENGTH, BASIC_DATA, "Dat\u00e4n")])
        return seen

    def test_an_image_that_qemu_made_of_a_gpt_disk(self):
        for image in ("gpt.vhdx", "fixed.vhdx"):
            self.assertEqual(self.assert_holds_the_gpt_disk(image)["blockSize"], BLOCK_SIZE)

    def test_an_image_that_qemu_made_of_an_mbr_disk(self):
        seen = self.json_of("inspect", "mbr.vhdx")
        self.assertEqual((seen["size"], seen["sectorSize"], seen["partitionStyle"], seen["diskGuid"]),
                         (DISK_SIZE, 512, "MBR", "00000000-0000-0000-0000-000000000000"))
        self.assertEqual([(p["number"], p["startOffset"], p["length"], p["typeName"]) for p in seen["partitions"]],
                         [(1, 1 * MIB, 2 * MIB, "FAT32"), (2, 4 * MIB, 20 * MIB, "Type 0x05")])

    def test_a_backup(self):
        subprocess.run([*host_kkctl, "--disk", self.gpt, "backup", "0", self.at("backup.vhdx"), "--used-blocks"],
                       stdout=subprocess.DEVNULL, check=True)
        self.assert_holds_the_gpt_disk("backup.vhdx")

    def test_the_table_is_for_people(self):
        lines = self.run_kkctl("inspect", "gpt.vhdx", expect=0)[0].splitlines()
        self.assertIn("Disk size   64.0 MiB (67108864 bytes)", lines)
        self.assertIn("Style       GPT", lines)
        self.assertEqual(lines[-1].split()[-3:], ["Basic", "data", "Dat\u00e4n"])

    def test_paths_may_be_those_of_windows(self):
        path = "Z:" + self.at("gpt.vhdx").replace("/", "\\")
        self.assertEqual(self.json_of("inspect", path)["size"], DISK_SIZE)

    def test_what_is_no_image(self):
        for name, status in (("gpt.raw", "0xC000014C KK_STATUS_REGISTRY_CORRUPT"), ("none.vhdx", NO_SUCH_DISK)):
            output, errors = self.run_kkctl("inspect", name, expect=1)
            self.assertEqual(output, "")
            self.assertIn(status, errors)


class RestoreTest(ImageCase):
    def test_partitions_and_a_table_onto_a_file(self):
        target = self.target(DISK_SIZE)
        output, _ = self.run_kkctl("restore", "gpt.vhdx", target, "--write-table", expect=0)
        self.assertEqual(output, f"Restored all partitions of gpt.vhdx onto {target}, with a new partition table\n")
        for start, length in ((EFI_START, EFI_LENGTH), (NTFS_START, NTFS_LENGTH)):
            self.assert_same(target, start, self.gpt, start, length)
        judged = subprocess.run(["sgdisk", "-v", self.at(target)], capture_output=True, text=True,
                                stdin=subprocess.DEVNULL)
        self.assertIn("No problems found", judged.stdout + judged.stderr)
        for word in ("Caution", "Warning", "Problem", "Invalid", "ERROR", "Creating", "converting"):
            self.assertNotIn(word, judged.stdout + judged.stderr)

    def test_one_partition_and_nothing_else(self):
        target = self.target(DISK_SIZE, fill=b"\xA5")
        self.run_kkctl("restore", "fixed.vhdx", target, "--partitions", "1", expect=0)
        self.assert_same(target, EFI_START, self.gpt, EFI_START, EFI_LENGTH)
        before, behind = ((0, EFI_START), (EFI_START + EFI_LENGTH, DISK_SIZE))
        for start, length in (before, behind):
            self.assertEqual(read_range(self.at(target), start, length).strip(b"\xA5"), b"")

    def test_a_file_that_is_too_small_stays_as_it_is(self):
        target = self.target(16 * MIB, fill=b"\xA5")
        before = sha256(self.at(target))
        _, errors = self.run_kkctl("restore", "gpt.vhdx", target, "--write-table", expect=1)
        self.assertIn("0xC0000023 KK_STATUS_BUFFER_TOO_SMALL", errors)
        _, errors = self.run_kkctl("restore-volume", "gpt.vhdx", "2", target, expect=1)
        self.assertIn("0xC0000023 KK_STATUS_BUFFER_TOO_SMALL", errors)
        self.assertEqual(sha256(self.at(target)), before)

    def test_a_partition_onto_a_file_that_stands_for_a_volume(self):
        target = self.target(NTFS_LENGTH)
        self.run_kkctl("restore-volume", "gpt.vhdx", "2", target, "--extend", expect=0)
        self.assert_same(target, 0, self.gpt, NTFS_START, NTFS_LENGTH)

    def test_a_partition_of_an_mbr_image(self):
        target = self.target(20 * MIB)
        self.run_kkctl("restore-volume", "mbr.vhdx", "2", target, expect=0)
        self.assert_same(target, 0, self.mbr, 4 * MIB, 20 * MIB)
        _, errors = self.run_kkctl("restore", "mbr.vhdx", target, expect=2)
        self.assertIn("mbr.vhdx has an MBR", errors)

    def test_a_partition_that_the_image_lacks(self):
        target = self.target(NTFS_LENGTH)
        _, errors = self.run_kkctl("restore", "gpt.vhdx", target, "--partitions", "2,3", expect=2)
        self.assertIn("gpt.vhdx has no partition 3", errors)

    def test_disks_of_wine_do_not_tell_their_layout(self):
        for disk, status in (("0", NOT_SUPPORTED), ("1", NO_SUCH_DISK)):
            _, errors = self.run_kkctl("restore-free", "gpt.vhdx", "2", disk, "1M", "1G", expect=1)
            self.assertIn(status, errors)
            _, errors = self.run_kkctl("recover", "gpt.vhdx", "2", disk, "1M", expect=1)
            self.assertIn("0xC0000001 KK_STATUS_UNSUCCESSFUL", errors)
        self.assertFalse(os.path.exists(self.at("gpt.vhdx.rec.avhdx")))


class CloneTest(ImageCase):
    def test_a_file_onto_a_larger_one(self):
        target = self.target(NTFS_LENGTH + MIB)
        self.run_kkctl("clone", self.volume(), target, expect=0)
        self.assert_same(target, 0, self.gpt, NTFS_START, NTFS_LENGTH)
        self.assertEqual(read_range(self.at(target), NTFS_LENGTH, MIB), bytes(MIB))

    def test_a_file_onto_a_smaller_one(self):
        target = self.target(MIB)
        _, errors = self.run_kkctl("clone", self.volume(), target, expect=1)
        self.assertIn("0xC0000023 KK_STATUS_BUFFER_TOO_SMALL", errors)
        self.assertEqual(read_range(self.at(target), 0, 2 * MIB), bytes(MIB))


class ServiceTest(ImageCase):
    """Wine's virtual-disk service opens nothing."""

    def test_images_are_not_mounted(self):
        for command in ("mount", "unmount"):
            output, errors = self.run_kkctl(command, "gpt.vhdx", expect=1)
            self.assertEqual(output, "")
            self.assertIn(NOT_OPENED, errors)

    def test_no_disk_shows_an_image(self):
        for disk in (0, 1):
            self.assertEqual(self.json_of("query", str(disk)), {"disk": disk, "isImage": False, "image": ""})

    def test_an_overlay_is_deleted_though_it_is_not_mounted(self):
        shutil.copy(self.at("gpt.vhdx"), self.at("overlay.avhdx"))
        output, errors = self.run_kkctl("discard", "overlay.avhdx", expect=1)
        self.assertEqual(output, "")
        self.assertIn(NOT_OPENED, errors)
        self.assertIn("the file was deleted all the same", errors)
        self.assertFalse(os.path.exists(self.at("overlay.avhdx")))

    def test_a_shell_does_several(self):
        script = "inspect gpt.vhdx\r\nmount gpt.vhdx\r\nquery 0\r\n".encode()
        output, errors = self.run_kkctl("shell", stdin=script, expect=1)
        self.assertIn("Style       GPT\n", output)
        self.assertTrue(output.endswith("Disk 0 shows no image.\n"), output)
        self.assertIn("kkctl: line 2 failed\n", errors)


class VolumeDeviceTest(ImageCase):
    """The last class, in the order of the names: what is run after a restart of Wine starts slowly."""

    def test_a_device_onto_a_file(self):
        devices = os.path.join(self.environment["WINEPREFIX"], "dosdevices")
        os.symlink(self.folder, os.path.join(devices, "x:"))
        os.symlink(self.at(self.volume()), os.path.join(devices, "x::"))
        self.stop_wine()
        target = self.target(NTFS_LENGTH)
        output, _ = self.run_kkctl("clone", "x:", target, expect=0)
        self.assertEqual(output, f"Cloned x: onto {target}\n")
        self.assert_same(target, 0, self.gpt, NTFS_START, NTFS_LENGTH)


if __name__ == "__main__":
    host_kkctl[:] = [os.path.abspath(sys.argv[2])]
    wine_case.main()
