"""What the tests of kkctl on the simulated machine have in common: disk files, and runs of the program on them."""

import hashlib
import os
import shutil
import subprocess
import sys
import tempfile
import unittest

MIB = 1 << 20
EFI_START, EFI_LENGTH = 1 * MIB, 4 * MIB
NTFS_START, NTFS_LENGTH = 8 * MIB, 40 * MIB
DISK_SIZE = 64 * MIB
BASIC_DATA = "ebd0a0a2-b9e5-4433-87c0-68b6b72699c7"

PAYLOAD = bytes(i * 37 % 251 for i in range(MIB))

program = []  # the command line up to the disks


def run_tool(*command, stdin=None):
    subprocess.run(command, check=True, input=stdin, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)


def make_empty_file(path, size):
    with open(path, "wb") as file:
        file.truncate(size)


def sha256(path):
    with open(path, "rb") as file:
        return hashlib.sha256(file.read()).hexdigest()


def read_range(path, start, length):
    with open(path, "rb") as file:
        file.seek(start)
        return file.read(length)


def make_gpt_disk(path):
    """An EFI partition with a pattern in it and an NTFS volume with a file in it."""
    make_empty_file(path, DISK_SIZE)
    run_tool("sgdisk", "-n", "1:2048:+4M", "-t", "1:EF00", "-c", "1:EFI system",
             "-n", "2:16384:+40M", "-t", "2:0700", "-c", "2:Dat\u00e4n", path)
    volume = path + ".ntfs"
    make_empty_file(volume, NTFS_LENGTH)
    run_tool("mkntfs", "-F", "-Q", "-q", "-p", str(NTFS_START // 512), "-H", "16", "-S", "63", volume)
    payload = path + ".payload"
    with open(payload, "wb") as file:
        file.write(PAYLOAD)
    run_tool("ntfscp", "-f", volume, payload, "file.bin")
    with open(path, "r+b") as disk, open(volume, "rb") as file:
        disk.seek(EFI_START)
        disk.write(b"pattern!" * (EFI_LENGTH // 8))
        disk.seek(NTFS_START)
        disk.write(file.read())
    os.remove(volume)
    os.remove(payload)


def make_mbr_disk(path):
    make_empty_file(path, DISK_SIZE)
    table = "label: dos\nstart=2048,size=4096,type=c\nstart=8192,size=40960,type=5\nstart=10240,size=8192,type=7\n"
    run_tool("sfdisk", path, stdin=table.encode())


class MachineCase(unittest.TestCase):
    """Has a folder for its disks, and no disk unless a test says which."""

    disks = []

    @classmethod
    def setUpClass(cls):
        cls.folder = tempfile.mkdtemp(prefix="kkctl_test_")
        cls.addClassCleanup(shutil.rmtree, cls.folder)

    def command_line(self, *arguments, disks=None):
        line = list(program)
        for disk in self.disks if disks is None else disks:
            line += ["--disk", disk]
        return [*line, *arguments]

    def run_kkctl(self, *arguments, expect=0, disks=None, stdin="", **options):
        result = subprocess.run(self.command_line(*arguments, disks=disks), capture_output=True, text=True,
                                input=stdin, **options)
        self.assertEqual(result.returncode, expect, result.stdout + result.stderr)
        if expect == 0:
            self.assertEqual(result.stderr, "")
        return result


def main():
    """The arguments of a test program: KKCTL [DLL]."""
    program[:] = [os.path.abspath(sys.argv[1])]
    if len(sys.argv) > 2:
        program.extend(["--dll", os.path.abspath(sys.argv[2])])
    unittest.main(argv=sys.argv[:1], verbosity=2)
