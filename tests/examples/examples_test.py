#!/usr/bin/env python3
"""Runs the examples in Python, C# and Rust over the shipped DLL on a simulated machine.

usage: examples_test.py BRIDGE
"""

import os
import pathlib
import shutil
import subprocess
import sys
import tempfile
import unittest

import bridge_case

ROOT = pathlib.Path(__file__).resolve().parents[2]
sys.path.insert(0, str(ROOT / "tests" / "kkctl"))

from machine_case import EFI_LENGTH, EFI_START, NTFS_LENGTH, NTFS_START, make_gpt_disk, read_range  # noqa: E402

PYTHON_EXAMPLE = ROOT / "examples" / "python" / "list_and_backup.py"
PARTITIONS = [
    ["1", "at", str(EFI_START), str(EFI_LENGTH >> 20), "MiB", "EFI", "system"],
    ["2", "at", str(NTFS_START), str(NTFS_LENGTH >> 20), "MiB", "NTFS", "Dat\u00e4n"],
]


class ExamplesTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.folder = tempfile.mkdtemp(prefix="kk_examples_")
        cls.addClassCleanup(shutil.rmtree, cls.folder)
        cls.disk = cls.at("disk.raw")
        make_gpt_disk(cls.disk)

    @classmethod
    def at(cls, name):
        return os.path.join(cls.folder, name)

    def run_python(self, *arguments, disk=True):
        return bridge_case.run(sys.executable, str(PYTHON_EXAMPLE), bridge_case.bridge[0], *arguments,
                               disk=self.disk if disk else None)

    def assert_lists_the_disk(self, run, style="GPT"):
        self.assertEqual(run.returncode, 0, run.stdout + run.stderr)
        first, *others = run.stdout.splitlines()
        self.assertEqual(first, f"Disk 0: 64 MiB, {style}")
        self.assertEqual([line.split() for line in others], PARTITIONS)

    def test_python_lists_disks_and_partitions(self):
        self.assert_lists_the_disk(self.run_python())

    def test_python_finds_no_disks_on_a_machine_without_any(self):
        run = self.run_python(disk=False)
        self.assertEqual(run.stdout, "No disk can be read. Is this process elevated?\n", run.stderr)

    def test_python_backs_up_on_a_thread_of_its_own_and_shows_the_images_size(self):
        image = self.at("disk.vhdx")
        run = self.run_python("0", image)
        self.assertEqual(run.returncode, 0, run.stdout + run.stderr)
        *progress, counts, contents = run.stdout.splitlines()
        self.assertRegex(progress[-1], r"^\d+ MiB of at most 44 MiB$")
        self.assertGreater(int(progress[-1].split()[0]), 4, "the image's last size")
        self.assertRegex(counts, r"^2 partitions, \d{7,} bytes, snapshots: yes$")
        self.assertEqual(contents, "The image shows a disk of 64 MiB with 2 partitions")

        subprocess.run(["qemu-img", "convert", "-f", "vhdx", "-O", "raw", image, self.at("copy.raw")], check=True)
        self.assertEqual(read_range(self.at("copy.raw"), EFI_START, EFI_LENGTH),
                         read_range(self.disk, EFI_START, EFI_LENGTH))

        again = self.run_python("0", image)
        self.assertEqual((again.returncode, again.stdout), (1, ""))
        self.assertIn("disk.vhdx exists already", again.stderr)

    def test_python_raises_the_status_of_a_failure_and_leaves_no_image(self):
        for disk, folder, status in (("7", ".", "KkListPartitions: 0xC0000034"), ("0", "no", "KkBackup: 0xC0000001")):
            run = self.run_python(disk, self.at(f"{folder}/x.vhdx"))
            self.assertEqual(run.returncode, 1)
            self.assertIn(status, run.stderr)
            self.assertFalse(os.path.exists(self.at("x.vhdx")))

    def test_python_does_not_take_an_empty_choice_for_all_partitions(self):
        script = f"""if True:
            import sys
            sys.path.insert(0, {str(PYTHON_EXAMPLE.parent)!r})
            import kestrelkit
            kit = kestrelkit.Kestrelkit({bridge_case.bridge[0]!r})
            for call in (lambda: kit.backup(0, "/x", []), lambda: kit.restore_partitions("/x", "/y", [])):
                try:
                    call()
                except ValueError as error:
                    print(error)
        """
        run = bridge_case.run(sys.executable, "-c", script, disk=self.disk)
        self.assertEqual(run.stdout, "no partition is chosen\n" * 2, run.stderr)

    def test_csharp_lists_disks_and_partitions(self):
        program = self.at("ListDisks.exe")
        sources = sorted((ROOT / "examples" / "csharp").glob("*.cs"))
        bridge_case.compile_csharp(program, *sources)
        self.assert_lists_the_disk(bridge_case.run("mono", program, disk=self.disk), style="Gpt")

    def test_rust_lists_disks_and_partitions(self):
        program = self.at("list_disks")
        bridge_case.compile_rust(ROOT / "examples" / "rust" / "list_disks.rs", program)
        self.assert_lists_the_disk(bridge_case.run(program, disk=self.disk))


if __name__ == "__main__":
    bridge_case.bridge[:] = [os.path.abspath(sys.argv.pop(1))]
    unittest.main()
