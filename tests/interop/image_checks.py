"""One backup, made once and judged by many: every test here runs for each kind of backup."""

import calendar
import json
import os
import pathlib
import re
import time

import pyvhdi

from expectation import BLOCK_SIZE, Expectation, Options
from support import (PIECE, SECTOR, data_ranges, digest, extract, fat_file_digest, first_difference, first_nonzero,
                     must, ntfs_file_digest, run, sfdisk_complaint, sfdisk_table, sgdisk_complaint)
from vhdx_blocks import NOT_PRESENT, ZERO, VhdxBlocks

TOOL_NAMES = re.compile(r"^(ntfs\w+ v\S+ \(libntfs-3g\)|Device name +: .*|NTFS partition .* was processed.*)\n", re.M)
ALTERNATE_BOOT_SECTOR_IS_MISSING = ("Mounting volume... OK\n"
                                    "Processing of $MFT and $MFTMirr completed successfully.\n"
                                    "Checking the alternate boot sector... BAD\n"
                                    "Error: Failed to fix the alternate boot sector\n")


def strict_json(data):
    """Parses what every reader agrees on: valid UTF-8, no byte-order mark, no key twice, no NaN."""
    def unique(pairs):
        keys = [key for key, _ in pairs]
        if len(keys) != len(set(keys)):
            raise ValueError(f"a key occurs twice among {keys}")
        return dict(pairs)

    def refuse(constant):
        raise ValueError(f"{constant} is no JSON")
    return json.loads(data.decode("utf-8"), object_pairs_hook=unique, parse_constant=refuse)


class Shared:
    """What all tests of one run use; set when it starts."""
    kkctl = ""
    folder = ""
    disks = {}


class ImageChecks:
    disk_name = ""
    options = Options()

    @classmethod
    def setUpClass(cls):
        cls.disk = Shared.disks[cls.disk_name]
        cls.expected = Expectation(cls.disk, cls.options)
        cls.image = os.path.join(Shared.folder, cls.__name__ + ".vhdx")
        cls.raw = cls.image + ".raw"
        before = digest(cls.disk.path)
        cls.started = int(time.time())
        cls.backup = run(Shared.kkctl, "--json", "--disk", cls.disk.path, "backup", 0, cls.image, *cls.options.words)
        cls.ended = time.time()
        if cls.backup.code != 0:
            raise AssertionError(str(cls.backup))
        cls.source_is_unchanged = digest(cls.disk.path) == before
        # If this fails the image is so broken that the tests below say more than an error here.
        cls.conversion = run("qemu-img", "convert", "-f", "vhdx", "-O", "raw", cls.image, cls.raw)

    @classmethod
    def tearDownClass(cls):
        for path in (cls.image, cls.image + ".json", cls.raw):
            pathlib.Path(path).unlink(missing_ok=True)

    def copies(self, kind):
        """The partitions of one kind in the image, each as a file that lasts while it is looked at."""
        for partition in (p for p in self.expected.copied if p.volume.kind == kind):
            path = f"{self.raw}.{partition.number}"
            extract(self.raw, self.expected.offsets[partition.number], partition.length, path)
            try:
                yield partition, path
            finally:
                os.remove(path)

    def assert_same_json(self, found, expected):
        self.assertEqual(found, expected)
        # Python takes false for 0 and true for 1; a reader of the file might not.
        self.assertEqual(json.dumps(found, sort_keys=True), json.dumps(expected, sort_keys=True))

    # The run

    def test_kkctl_reports_what_was_copied_and_nothing_on_standard_error(self):
        files = {"image": self.image, "manifest": self.image + ".json"}
        self.assert_same_json(strict_json(self.backup.out), {**self.expected.statistics, **files})
        self.assertEqual(self.backup.errors, b"")

    def test_the_source_disk_is_unchanged(self):
        self.assertTrue(self.source_is_unchanged)

    # The image file

    def test_qemu_finds_no_error_in_the_image(self):
        check = run("qemu-img", "check", "-f", "vhdx", "--output=json", self.image)
        self.assertEqual(check.code, 0, check)
        report = json.loads(check.out)
        self.assertEqual((report["check-errors"], report.get("corruptions", 0), report.get("leaks", 0)), (0, 0, 0))

    def test_qemu_sees_the_virtual_size_and_blocks_of_two_mebibytes(self):
        info = json.loads(must("qemu-img", "info", "--output=json", self.image).out)
        self.assertEqual((info["format"], info["virtual-size"], info["cluster-size"], info["dirty-flag"]),
                         ("vhdx", self.expected.virtual_size, BLOCK_SIZE, False))
        self.assertEqual(self.conversion.code, 0, self.conversion)
        self.assertEqual(os.path.getsize(self.raw), self.expected.virtual_size)

    def test_exactly_the_blocks_that_were_written_are_allocated(self):
        blocks = VhdxBlocks(self.image)
        self.assertEqual((blocks.block_size, blocks.sector_size), (BLOCK_SIZE, SECTOR))
        self.assertEqual(sorted(blocks.present), sorted(self.expected.blocks))
        self.assertLessEqual(blocks.absent_entries, {NOT_PRESENT, ZERO})
        self.assertLessEqual(blocks.sector_bitmap_entries, {0})

    def test_a_second_reader_of_the_format_sees_the_same_bytes(self):
        file = pyvhdi.file()
        file.open(self.image)
        self.assertEqual(file.get_media_size(), self.expected.virtual_size)
        self.assertEqual(file.get_bytes_per_sector(), SECTOR)
        end = 0
        with open(self.raw, "rb") as raw:
            for at, length in data_ranges(self.raw):
                self.assert_reads_as_zeros(file, end, at)
                raw.seek(at)
                self.assertTrue(file.read_buffer_at_offset(length, at) == raw.read(length), f"differs near {at}")
                end = at + length
        self.assert_reads_as_zeros(file, end, self.expected.virtual_size)
        file.close()

    def assert_reads_as_zeros(self, file, start, end):
        """Of a long hole only both ends are read: the rest would be minutes of zeros."""
        for at, length in {(start, min(PIECE, end - start)), (max(start, end - PIECE), min(PIECE, end - start))}:
            self.assertFalse(length > 0 and any(file.read_buffer_at_offset(length, at).strip(b"\0")), f"data near {at}")

    # The bytes

    def test_every_copied_byte_equals_its_source(self):
        for piece in self.expected.pieces:
            self.assertIsNone(first_difference(self.raw, piece.image_offset, self.disk.path, piece.source_offset,
                                               piece.length), piece)

    def test_whatever_was_not_copied_reads_as_zeros(self):
        written = self.expected.table_ranges + [(piece.image_offset, piece.end) for piece in self.expected.pieces]
        end = 0
        for start, next_end in sorted(written) + [(self.expected.virtual_size, 0)]:
            self.assertIsNone(first_nonzero(self.raw, end, start), f"between {end} and {start}")
            end = max(end, next_end)

    # File systems

    def test_ntfsresize_finds_every_ntfs_copy_consistent_and_as_full_as_its_source(self):
        command = ("ntfsresize", "-i", "-f", "--no-progress-bar")
        for partition, copy in self.copies("NTFS"):
            found, expected = run(*command, copy), must(*command, partition.volume.path)
            self.assertEqual(found.code, 0, found)
            self.assertIn("You might resize at ", found.text)
            self.assertEqual(TOOL_NAMES.sub("", found.text), TOOL_NAMES.sub("", expected.text))

    def test_ntfsfix_misses_the_backup_boot_sector_in_used_block_copies_and_nothing_else(self):
        for partition, copy in self.copies("NTFS"):
            found, source = run("ntfsfix", "-n", copy), must("ntfsfix", "-n", partition.volume.path)
            if self.expected.copies_used_blocks(partition):  # it lies behind the last cluster, which no bitmap covers
                self.assertEqual((found.code, found.text), (1, ALTERNATE_BOOT_SECTOR_IS_MISSING))
            else:
                self.assertIn("Checking the alternate boot sector... OK", found.text)
                self.assertEqual((found.code, TOOL_NAMES.sub("", found.text)), (0, TOOL_NAMES.sub("", source.text)))

    def test_ntfscmp_finds_every_ntfs_copy_equal_to_its_source(self):
        for partition, copy in self.copies("NTFS"):
            found = run("ntfscmp", "-P", partition.volume.path, copy)
            self.assertEqual((found.code, TOOL_NAMES.sub("", found.text)), (0, ""))

    def test_files_read_from_ntfs_copies_have_their_checksums(self):
        for partition, copy in self.copies("NTFS"):
            found = {name: ntfs_file_digest(copy, name) for name in partition.volume.files}
            self.assertEqual(found, partition.volume.files)

    def test_fsck_finds_every_fat_copy_clean_and_as_full_as_its_source(self):
        for partition, copy in self.copies("FAT"):
            found, source = (run("fsck.fat", "-n", path) for path in (copy, partition.volume.path))
            self.assertEqual(found.code, 0, found)
            self.assertEqual(found.text.replace(copy, ""), source.text.replace(partition.volume.path, ""))

    def test_files_read_from_fat_copies_have_their_checksums(self):
        for partition, copy in self.copies("FAT"):
            found = {name: fat_file_digest(copy, name) for name in partition.volume.files}
            self.assertEqual(found, partition.volume.files)

    # The table

    def test_sfdisk_finds_no_error_in_the_table(self):
        self.assertIsNone(sfdisk_complaint(self.raw))

    def test_the_boot_code_is_blank(self):
        self.assertIsNone(first_nonzero(self.raw, 0, 446))

    # The manifest

    def test_manifest_members_are_in_order(self):
        order = must("jq", "-c", "keys_unsorted", self.image + ".json").out
        self.assertEqual(json.loads(order), list(self.expected.manifest))
        entry_orders = must("jq", "-c", ".partitions[] | keys_unsorted", self.image + ".json").text.splitlines()
        self.assertEqual([json.loads(order) for order in entry_orders],
                         [list(entry) for entry in self.expected.manifest["partitions"]])

    def test_the_manifest_says_what_was_backed_up(self):
        found, expected = strict_json(self.manifest_bytes()), self.expected.manifest
        written = calendar.timegm(time.strptime(found["backupTimeUtc"], "%Y-%m-%dT%H:%M:%SZ"))
        self.assertTrue(self.started <= written <= self.ended, found["backupTimeUtc"])
        self.assertRegex(found["backupSetId"], self.options.set_id and ".+" or r"\Aset-[0-9a-f]{16}\Z")
        made_up = {"backupTimeUtc": found["backupTimeUtc"], "backupSetId": self.options.set_id or found["backupSetId"]}
        self.assert_same_json(found, {**expected, **made_up})

    def test_the_manifest_is_compact_and_every_json_reader_takes_it(self):
        data = self.manifest_bytes()
        self.assertEqual(run("jq", "-e", ".", self.image + ".json").code, 0)
        compact = json.dumps(strict_json(data), ensure_ascii=False, separators=(",", ":"))
        self.assertEqual(data.decode("utf-8"), compact)

    def manifest_bytes(self):
        with open(self.image + ".json", "rb") as file:
            return file.read()


class GptImageChecks(ImageChecks):
    def test_sgdisk_finds_no_problem_in_either_copy_of_the_table(self):
        self.assertIsNone(sgdisk_complaint(self.raw))

    def test_sfdisk_lists_the_kept_partitions_with_their_identities_and_no_attributes(self):
        table = sfdisk_table(self.raw)
        sectors = self.expected.virtual_size // SECTOR
        self.assertEqual((table["label"], table["id"], table["firstlba"], table["lastlba"], table["sectorsize"]),
                         ("gpt", self.disk.id, 34, sectors - 34, SECTOR))
        found = [{key: entry[key] for key in entry if key != "node"} for entry in table.get("partitions", [])]
        self.assertEqual(found, [self.entry(*listed) for listed in self.expected.listed])
        self.assertEqual([entry["node"] for entry in table.get("partitions", [])],
                         [f"{self.raw}{slot}" for slot in range(1, len(found) + 1)])

    @staticmethod
    def entry(partition, offset):
        name = {"name": partition.name} if partition.name else {}
        return {"start": offset // SECTOR, "size": partition.length // SECTOR, "type": partition.type,
                "uuid": partition.id, **name}

    def test_no_two_partitions_share_an_identity(self):  # which no checker looks at
        ids = [entry["uuid"] for entry in sfdisk_table(self.raw).get("partitions", [])]
        self.assertEqual(len(ids), len(set(ids)))


class MbrImageChecks(ImageChecks):
    def test_sfdisk_lists_the_kept_partitions_as_primary_ones_and_none_as_bootable(self):
        table = sfdisk_table(self.raw)
        self.assertEqual((table["label"], table["id"]), ("dos", "0x00000000"))
        found = [{key: entry[key] for key in entry if key != "node"} for entry in table.get("partitions", [])]
        self.assertEqual(found, [{"start": offset // SECTOR, "size": partition.length // SECTOR, "type": partition.type}
                                 for partition, offset in self.expected.listed])
