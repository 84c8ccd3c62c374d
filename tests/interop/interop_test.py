#!/usr/bin/env python3
"""Backs disks up with the shipped library and lets others' tools judge the images.

Usage: interop_test.py KKCTL [unittest arguments]
"""

import os
import shutil
import sys
import tempfile
import unittest

sys.dont_write_bytecode = True  # a test leaves nothing in the source tree

try:
    import pyvhdi  # noqa: F401
except ImportError:
    # The module belongs to the distribution's interpreter, which need not be the first one in the path.
    if sys.executable == "/usr/bin/python3":
        sys.exit("interop_test.py needs pyvhdi (Debian: python3-libvhdi)")
    os.execv("/usr/bin/python3", ["/usr/bin/python3", *sys.argv])

import disks
from expectation import Options
from image_checks import GptImageChecks, MbrImageChecks, Shared, strict_json
from support import SECTOR, digest, ntfs_clusters, run, sfdisk_complaint, sgdisk_complaint


def setUpModule():
    Shared.folder = tempfile.mkdtemp(prefix="kestrelkit_interop_")
    try:
        Shared.disks = disks.make_all(Shared.folder)
    except BaseException:
        tearDownModule()
        raise


def tearDownModule():
    shutil.rmtree(Shared.folder)


# GPT

class FullBackupOfAGptDisk(GptImageChecks, unittest.TestCase):
    disk_name = "gpt"
    options = Options(set_id='n\u00e4chtlich "1" \\ /', set_index=3, set_count=4_294_967_295)


class UsedBlocksBackupOfAGptDisk(GptImageChecks, unittest.TestCase):
    disk_name = "gpt"
    options = Options(used_blocks=True)


class UsedBlocksBackupFromSnapshotsOfAGptDisk(GptImageChecks, unittest.TestCase):
    disk_name = "gpt"
    options = Options(used_blocks=True, snapshots=True)


class FullBackupFromSnapshotsOfAGptDisk(GptImageChecks, unittest.TestCase):
    disk_name = "gpt"
    options = Options(snapshots=True)


class CompactBackupOfAGptDisk(GptImageChecks, unittest.TestCase):
    disk_name = "gpt"
    options = Options(compact=True, used_blocks=True)


class CompactBackupOfSomePartitionsOfAGptDisk(GptImageChecks, unittest.TestCase):
    disk_name = "gpt"
    options = Options(partitions=(4, 2), compact=True)


class BackupOfAGptDiskThatKeepsOmittedPartitionsEmpty(GptImageChecks, unittest.TestCase):
    disk_name = "gpt"
    options = Options(partitions=(4, 1))


class BackupOfAGptDiskThatRemovesOmittedPartitions(GptImageChecks, unittest.TestCase):
    disk_name = "gpt"
    options = Options(partitions=(3, 2), remove_omitted=True, used_blocks=True)


class UsedBlocksBackupOfADiskBeyondFourGibibytes(GptImageChecks, unittest.TestCase):
    disk_name = "large"
    options = Options(used_blocks=True)


class CompactBackupFromSnapshotsOfADiskBeyondFourGibibytes(GptImageChecks, unittest.TestCase):
    disk_name = "large"
    options = Options(used_blocks=True, snapshots=True, compact=True)


# MBR

class FullBackupOfAnMbrDisk(MbrImageChecks, unittest.TestCase):
    disk_name = "mbr"


class UsedBlocksBackupOfAnMbrDisk(MbrImageChecks, unittest.TestCase):
    disk_name = "mbr"
    options = Options(used_blocks=True, set_id="b" * 63, set_index=1, set_count=2)


class UsedBlocksBackupFromSnapshotsOfAnMbrDisk(MbrImageChecks, unittest.TestCase):
    disk_name = "mbr"
    options = Options(used_blocks=True, snapshots=True)


class CompactBackupOfAnMbrDisk(MbrImageChecks, unittest.TestCase):
    disk_name = "mbr"
    options = Options(compact=True, used_blocks=True)


class BackupOfAnMbrDiskThatKeepsOmittedPartitionsEmpty(MbrImageChecks, unittest.TestCase):
    disk_name = "mbr"
    options = Options(partitions=(3, 1), used_blocks=True)


class BackupOfAnMbrDiskThatRemovesOmittedPartitions(MbrImageChecks, unittest.TestCase):
    disk_name = "mbr"
    options = Options(partitions=(4, 3), remove_omitted=True)


class SourceDisks(unittest.TestCase):
    """The tests above prove something only if the disks that they start from are what they seem."""

    def test_checkers_accept_the_source_tables(self):
        for disk in Shared.disks.values():
            self.assertIsNone(sfdisk_complaint(disk.path))
            if disk.style == "GPT":
                self.assertIsNone(sgdisk_complaint(disk.path))

    def test_two_tools_agree_on_the_number_of_used_clusters(self):
        for volume in self.ntfs_volumes():
            clusters, free = ntfs_clusters(volume.path)
            self.assertEqual(volume.used_bytes // volume.cluster_size, clusters - free)

    def test_used_clusters_are_scattered(self):
        for volume in self.ntfs_volumes():
            self.assertGreater(len(volume.used_runs), 5)

    def test_a_run_of_used_clusters_crosses_the_four_gibibyte_line(self):
        partition = Shared.disks["large"].partitions[1]
        border = (4 * disks.GIB - partition.start) // partition.volume.cluster_size
        self.assertTrue(any(first < border < end for first, end in partition.volume.used_runs))

    @staticmethod
    def ntfs_volumes():
        return [p.volume for disk in Shared.disks.values() for p in disk.partitions if p.volume.kind == "NTFS"]


class Listing(unittest.TestCase):
    def setUp(self):
        self.digests = {disk.path: digest(disk.path) for disk in Shared.disks.values()}

    def tearDown(self):
        self.assertEqual({path: digest(path) for path in self.digests}, self.digests)

    def kkctl_json(self, *arguments):
        disk_options = [word for disk in Shared.disks.values() for word in ("--disk", disk.path)]
        listing = run(Shared.kkctl, "--json", *disk_options, *arguments)
        self.assertEqual((listing.code, listing.errors), (0, b""), listing)
        return strict_json(listing.out)

    def test_disks_are_listed_as_sfdisk_sees_them_and_stay_unchanged(self):
        expected = [{"number": number, "size": disk.size, "sectorSize": SECTOR, "partitionStyle": disk.style,
                     "partitionCount": len(disk.partitions)} for number, disk in enumerate(Shared.disks.values())]
        self.assertEqual(self.kkctl_json("disks")["disks"], expected)

    def test_partitions_are_listed_as_sfdisk_sees_them_and_the_disks_stay_unchanged(self):
        for number, disk in enumerate(Shared.disks.values()):
            found = self.kkctl_json("partitions", number)["partitions"]
            facts = [(p["number"], p["startOffset"], p["length"], p["name"]) for p in found]
            self.assertEqual(facts, [(p.number, p.start, p.length, p.name) for p in disk.partitions])
            types = [p["typeGuid"].upper() if disk.style == "GPT" else f"{p['mbrType']:x}" for p in found]
            self.assertEqual(types, [p.type for p in disk.partitions])

    def test_file_systems_have_their_names(self):
        names = {"NTFS": "NTFS", "FAT": "FAT32", "raw": ""}
        for number, disk in enumerate(Shared.disks.values()):
            found = [p["fileSystemName"] for p in self.kkctl_json("partitions", number)["partitions"]]
            self.assertEqual(found, [names[p.volume.kind] for p in disk.partitions])

    def test_file_systems_have_the_size_that_their_boot_sectors_say(self):
        for number, disk in enumerate(Shared.disks.values()):
            found = [p["fileSystemSize"] for p in self.kkctl_json("partitions", number)["partitions"]]
            # The last sector of an NTFS partition is the boot sector's copy and does not count.
            self.assertEqual(found, [p.length - SECTOR if p.volume.kind == "NTFS" else 0 for p in disk.partitions])


class ExistingImage(unittest.TestCase):
    def test_a_backup_onto_an_existing_file_fails_and_leaves_it_alone(self):
        image = os.path.join(Shared.folder, "existing.vhdx")
        with open(image, "wb") as file:
            file.write(b"someone's only copy")
        before = os.stat(image)

        attempt = run(Shared.kkctl, "--disk", Shared.disks["gpt"].path, "backup", 0, image)

        self.assertEqual((attempt.code, attempt.out), (1, b""), attempt)
        self.assertIn("0xC0000001", attempt.text)
        self.assertEqual(os.stat(image).st_mtime_ns, before.st_mtime_ns)
        with open(image, "rb") as file:
            self.assertEqual(file.read(), b"someone's only copy")
        self.assertFalse(os.path.exists(image + ".json"))


if __name__ == "__main__":
    Shared.kkctl = os.path.abspath(sys.argv[1])
    unittest.main(argv=[sys.argv[0], *sys.argv[2:]])
