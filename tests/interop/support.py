"""Runs others' tools, reads what they say, and compares files that are mostly holes.

Exit codes are not trusted where the text says more: table checkers exit with 0 for most damage.
"""

import hashlib
import json
import os
import re
import subprocess
from dataclasses import dataclass

KIB = 1 << 10
MIB = 1 << 20
SECTOR = 512
PIECE = 4 * MIB
ZEROS = bytes(PIECE)

# Texts must not be translated, and names beyond ASCII must come through. mtools dislikes odd track counts.
ENVIRONMENT = dict(os.environ, LC_ALL="C.UTF-8", MTOOLS_SKIP_CHECK="1",
                   PATH=os.environ.get("PATH", "") + ":/usr/sbin:/sbin")


@dataclass(frozen=True)
class Run:
    command: tuple
    code: int
    out: bytes
    errors: bytes

    @property
    def text(self):
        return (self.out + self.errors).decode("utf-8", "replace")

    def __str__(self):
        return f"{' '.join(self.command)}\nexit {self.code}\n{self.text}"


def run(*command, stdin=b""):
    """Runs a tool to its end, whatever that is."""
    words = tuple(str(word) for word in command)
    done = subprocess.run(words, input=stdin, capture_output=True, env=ENVIRONMENT, check=False)
    return Run(words, done.returncode, done.stdout, done.stderr)


def must(*command, stdin=b""):
    """Runs a tool that a test stands on: its failure is the test's error."""
    result = run(*command, stdin=stdin)
    if result.code != 0:
        raise RuntimeError(str(result))
    return result


# Partition tables

def sgdisk_complaint(disk):
    """What sgdisk has against a GPT, or None. It may find nothing only because it made a new table up."""
    result = run("sgdisk", "-v", disk)
    bad_words = ("Caution", "Warning", "Problem", "Invalid", "ERROR", "Creating new GPT", "converting MBR")
    is_fine = result.code == 0 and "No problems found" in result.text and not any(w in result.text for w in bad_words)
    return None if is_fine else str(result)


def sfdisk_complaint(disk):
    result = run("sfdisk", "--verify", disk)
    findings = result.text.replace("No errors detected.", "")
    bad_words = re.search("corrupt|mismatch|overlap|too big|error|greater|unrecognized", findings, re.IGNORECASE)
    is_fine = result.code == 0 and "No errors detected." in result.text and bad_words is None
    return None if is_fine else str(result)


def sfdisk_table(disk):
    return json.loads(must("sfdisk", "-J", disk).out)["partitiontable"]


# File systems

def ntfs_clusters(volume):
    """(clusters, free clusters), as ntfsinfo counts them."""
    text = must("ntfsinfo", "-f", "-m", volume).text
    return tuple(int(re.search(rf"{label}: (\d+)", text).group(1)) for label in ("Volume Size in Clusters",
                                                                                "Free Clusters"))


def ntfs_used_runs(volume, cluster_count):
    """[first, end) of every run of used clusters. Bits behind the last cluster are padding."""
    bitmap = must("ntfscat", "-f", "-i", "6", volume).out
    bits = "".join(f"{byte:08b}"[::-1] for byte in bitmap)[:cluster_count]
    return [match.span() for match in re.finditer("1+", bits)]


def ntfs_file_digest(volume, name):
    return hashlib.sha256(must("ntfscat", "-f", volume, name).out).hexdigest()


def fat_file_digest(volume, name):
    return hashlib.sha256(must("mcopy", "-n", "-i", volume, "::" + name, "-").out).hexdigest()


# Files that are mostly holes

def data_ranges(path, start=0, end=None):
    """The ranges of a file that are not holes, in pieces."""
    with open(path, "rb", buffering=0) as file:
        end = os.fstat(file.fileno()).st_size if end is None else end
        at = start
        while at < end:
            try:
                at = os.lseek(file.fileno(), at, os.SEEK_DATA)
            except OSError:  # nothing but a hole up to the file's end
                return
            data_end = min(os.lseek(file.fileno(), at, os.SEEK_HOLE), end)
            while at < data_end:
                length = min(PIECE, data_end - at)
                yield at, length
                at += length


def digest(path):
    """A checksum of a file's size and of all that is not zero in it; how the holes lie does not matter."""
    total = hashlib.sha256(str(os.path.getsize(path)).encode())
    with open(path, "rb", buffering=0) as file:
        for at, length in data_ranges(path):
            for page in range(at - at % (64 * KIB), at + length, 64 * KIB):
                data = os.pread(file.fileno(), 64 * KIB, page)
                if data != ZEROS[:len(data)]:
                    total.update(page.to_bytes(8, "little") + data)
    return total.hexdigest()


def copy_range(source, source_offset, target, target_offset, length):
    """Copies what is not a hole into a file that has the room."""
    with open(source, "rb", buffering=0) as reader, open(target, "r+b", buffering=0) as writer:
        for at, size in data_ranges(source, source_offset, source_offset + length):
            os.pwrite(writer.fileno(), os.pread(reader.fileno(), size, at), at - source_offset + target_offset)


def extract(source, offset, length, target):
    with open(target, "wb") as file:
        file.truncate(length)
    copy_range(source, offset, target, 0, length)


def first_difference(path_a, offset_a, path_b, offset_b, length):
    """The distance from the two offsets to the first piece that differs, or None."""
    with open(path_a, "rb", buffering=0) as a, open(path_b, "rb", buffering=0) as b:
        for at in range(0, length, PIECE):
            size = min(PIECE, length - at)
            data_a = os.pread(a.fileno(), size, offset_a + at)
            data_b = os.pread(b.fileno(), size, offset_b + at)
            if len(data_a) != size or data_a != data_b:
                return at
    return None


def first_nonzero(path, start, end):
    """The offset of a piece that is not all zeros, or None."""
    with open(path, "rb", buffering=0) as file:
        for at, length in data_ranges(path, start, end):
            if os.pread(file.fileno(), length, at) != ZEROS[:length]:
                return at
    return None
