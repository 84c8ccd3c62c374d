"""Makes the source disks: files with tables by sgdisk and sfdisk and file systems filled without mounting.

Wherever a backup must not look, there is rubbish: in free clusters, between partitions, in the boot code.
"""

import hashlib
import os
import random
from concurrent.futures import ThreadPoolExecutor
from dataclasses import dataclass, field

from support import KIB, MIB, SECTOR, copy_range, must, ntfs_clusters, ntfs_used_runs, sfdisk_table

GIB = 1 << 30
RUBBISH_STEP = 256 * KIB  # dense enough to reach every block of an image
FIRST_FILE_INODE = 64
# Around the sizes at which NTFS stores data in another way: in its record, in one cluster, in one cluster more.
# Every third is cut short on NTFS, which leaves holes among the used clusters; those are the large ones.
FILE_SIZES = (300_000, 0, 1, 200_000, 511, 700, 524_288, 1100, 4095, 1_000_003, 4096, 4097, 131_072, 65535, 65537)


@dataclass
class Volume:
    """A partition's bytes as a file of its own, and what the file system on it holds."""
    kind: str  # "NTFS", "FAT" or "raw"
    path: str
    cluster_size: int = 0
    used_runs: list = field(default_factory=list)
    files: dict = field(default_factory=dict)  # name to sha256

    @property
    def used_bytes(self):
        return sum(end - first for first, end in self.used_runs) * self.cluster_size


@dataclass
class SourcePartition:
    """A partition as the library counts and as sfdisk describes it."""
    number: int
    start: int
    length: int
    type: str
    id: str
    name: str
    volume: Volume

    @property
    def gets_a_volume(self):
        return self.type.lower() != "e3c9e316-0b5c-4db8-817d-f92df00215ae"  # the reserved partition's type


@dataclass
class SourceDisk:
    path: str
    style: str
    size: int
    id: str
    partitions: list


def new_file(path, size):
    with open(path, "wb") as file:
        file.truncate(size)
    return path


def write_at(path, offset, data):
    with open(path, "r+b", buffering=0) as file:
        os.pwrite(file.fileno(), data, offset)


def rubbish(length, seed):
    return random.Random(seed).randbytes(length)


# Volumes

def make_ntfs(path, start, length, cluster_size, file_count, large_file=0):
    new_file(path, length)
    must("mkntfs", "-F", "-Q", "-q", "-s", SECTOR, "-p", start // SECTOR, "-H", 255, "-S", 63, "-c", cluster_size, path)
    volume = Volume("NTFS", path, cluster_size)
    sizes = [FILE_SIZES[i % len(FILE_SIZES)] for i in range(file_count)] + ([large_file] if large_file else [])
    contents = [rubbish(size, seed=i) for i, size in enumerate(sizes)]
    for i, content in enumerate(contents):
        put_ntfs_file(path, f"file {i:02}.bin", content)
    for i in range(0, file_count, 3):
        contents[i] = contents[i][:len(contents[i]) // 3]
        must("ntfstruncate", "-f", path, FIRST_FILE_INODE + i, "0x80", len(contents[i]))
    volume.files = {f"file {i:02}.bin": hashlib.sha256(content).hexdigest() for i, content in enumerate(contents)}
    clusters, _ = ntfs_clusters(path)
    volume.used_runs = ntfs_used_runs(path, clusters)
    spoil_free_clusters(volume, clusters)
    return volume


def put_ntfs_file(volume, name, content):
    file = volume + ".content"
    with open(file, "wb") as stream:
        stream.write(content)
    must("ntfscp", "-f", "-q", volume, file, name)
    os.remove(file)


def spoil_free_clusters(volume, clusters):
    used = [cluster for first, end in volume.used_runs for cluster in range(first, end)]
    step = max(1, RUBBISH_STEP // volume.cluster_size)
    for cluster in sorted(set(range(0, clusters, step)) - set(used)):
        write_at(volume.path, cluster * volume.cluster_size, rubbish(volume.cluster_size, seed=cluster))


def make_fat(path, start, length):
    new_file(path, length)
    must("mkfs.vfat", "-F", 32, "-s", 1, "-h", start // SECTOR, path)
    volume = Volume("FAT", path)
    for i, size in enumerate(FILE_SIZES):
        content = rubbish(size, seed=1000 + i)
        must("mcopy", "-i", path, "-", f"::FILE{i:02}.BIN", stdin=content)
        volume.files[f"FILE{i:02}.BIN"] = hashlib.sha256(content).hexdigest()
    return volume


def make_raw(path, length):
    with open(path, "wb") as file:
        file.write(rubbish(length, seed=length))
    return Volume("raw", path)


# Disks

def assemble(path, style, volumes):
    """Puts the volumes where the table says and rubbish where no partition is; reads the facts from sfdisk."""
    table = sfdisk_table(path)
    entries = [entry for entry in table["partitions"] if entry["type"] not in ("5", "f")]
    disk = SourceDisk(path, style, os.path.getsize(path), table["id"], [])
    for number, (entry, volume) in enumerate(zip(entries, volumes, strict=True), start=1):
        start, length = entry["start"] * SECTOR, entry["size"] * SECTOR
        assert os.path.getsize(volume.path) == length
        copy_range(volume.path, 0, path, start, length)
        # sfdisk numbers logical drives from 5; the system just counts partitions.
        disk.partitions.append(SourcePartition(number, start, length, entry["type"], entry.get("uuid", ""),
                                               entry.get("name", ""), volume))
    spoil_gaps(disk)
    return disk


def spoil_gaps(disk):
    """Rubbish goes right before each partition, where the gap is large enough to hold no record of a chain."""
    write_at(disk.path, 0, rubbish(440, seed=0))
    ends = [0] + [partition.start + partition.length for partition in disk.partitions]
    for partition in disk.partitions:
        gap = partition.start - max(end for end in ends if end <= partition.start)
        if gap >= MIB:
            write_at(disk.path, partition.start - 64 * KIB, rubbish(64 * KIB, seed=partition.start))


def make_gpt_disk(folder, pool):
    """Four partitions; the third slot's lies behind the fourth's, starts are odd numbers of MiB, names are hard."""
    path = new_file(os.path.join(folder, "gpt.raw"), 171 * MIB + 70 * SECTOR)
    made = [pool.submit(make_fat, path + ".1", 1 * MIB, 35 * MIB),
            pool.submit(make_raw, path + ".2", 4 * MIB),
            pool.submit(make_ntfs, path + ".3", 97 * MIB, 64 * MIB, 4096, 60),
            pool.submit(make_ntfs, path + ".4", 41 * MIB, 48 * MIB, 65536, 15)]
    must("sgdisk", "-o",
         "-n", "1:2048:+35M", "-t", "1:EF00", "-c", "1:EFI system partition", "-A", "1:set:0",
         "-n", "2:73728:+4M", "-t", "2:0C01", "-c", "2:",
         "-n", "3:198656:+64M", "-t", "3:0700", "-c", '3:Sch\u00f6ne "Daten" \\ 100 \u20ac', "-A", "3:set:63",
         "-n", "4:83968:+48M", "-t", "4:0700", "-c", "4:" + 36 * "\u20ac", path)
    return assemble(path, "GPT", [volume.result() for volume in made])


def make_mbr_disk(folder, pool):
    """Two primary partitions, the first one active, and two logical drives. Lengths are no whole MiB or clusters."""
    path = new_file(os.path.join(folder, "mbr.raw"), 128 * MIB + 13 * SECTOR)
    lengths = [40 * MIB + 3 * SECTOR, 35 * MIB + 2 * SECTOR, 30 * MIB + SECTOR, 5 * MIB + 7 * SECTOR]
    starts = [1 * MIB, 43 * MIB, 80 * MIB, 113 * MIB]
    made = [pool.submit(make_ntfs, path + ".1", starts[0], lengths[0], 2048, 30),
            pool.submit(make_fat, path + ".2", starts[1], lengths[1]),
            pool.submit(make_ntfs, path + ".3", starts[2], lengths[2], 4096, 15),
            pool.submit(make_raw, path + ".4", lengths[3])]
    lines = [f"start={start // SECTOR}, size={length // SECTOR}" for start, length in zip(starts, lengths)]
    lines = ["label: dos", "label-id: 0x1234abcd", lines[0] + ", type=7, bootable", lines[1] + ", type=c",
             f"start={79 * MIB // SECTOR}, type=f", lines[2] + ", type=7", lines[3] + ", type=83"]
    must("sfdisk", path, stdin="\n".join(lines).encode())
    return assemble(path, "MBR", [volume.result() for volume in made])


def make_large_disk(folder, pool):
    """Larger than a chunk of the block table, and a volume lies across the border between the first two chunks."""
    path = new_file(os.path.join(folder, "large.raw"), 5 * GIB)
    made = [pool.submit(make_raw, path + ".1", MIB),
            pool.submit(make_ntfs, path + ".2", 4 * GIB - 65 * MIB, 320 * MIB, 4096, 15, 60 * MIB),
            pool.submit(make_fat, path + ".3", 4 * GIB + 301 * MIB, 35 * MIB)]
    sectors_per_mib = MIB // SECTOR
    must("sgdisk", "-o", "-n", "1:2048:+1M", "-t", "1:0C01",
         "-n", f"2:{(4096 - 65) * sectors_per_mib}:+320M", "-t", "2:0700",
         "-n", f"3:{(4096 + 301) * sectors_per_mib}:+35M", "-t", "3:0700", path)
    return assemble(path, "GPT", [volume.result() for volume in made])


def make_all(folder):
    makers = {"gpt": make_gpt_disk, "mbr": make_mbr_disk, "large": make_large_disk}
    with ThreadPoolExecutor(os.cpu_count() or 1) as pool:
        return {name: make(folder, pool) for name, make in makers.items()}
