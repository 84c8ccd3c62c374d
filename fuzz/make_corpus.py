#!/usr/bin/env python3
"""Makes the fuzzers' first inputs of small real images and partition tables, by tools of others.

Usage: make_corpus.py FOLDER; the inputs go to FOLDER/image and FOLDER/table.
"""

import pathlib
import random
import struct
import subprocess
import sys
import tempfile

MIB = 1 << 20
UNIT = 512
DISK_BYTES = 24 * MIB
LAST_TABLE_SECTORS = 33


def run(*command, text=None):
    subprocess.run([str(word) for word in command], input=text, text=True, check=True, capture_output=True)


def gpt(disk):
    run("sgdisk", "-o", "-n", "1:2048:+4M", "-t", "1:ef00", "-n", "2:0:+6M", "-c", "2:Data", "-t", "2:0700", disk)


def gpt_with_many(disk):
    sizes = [word for number in range(1, 12) for word in ("-n", f"{number}:0:+1M")]
    run("sgdisk", "-o", *sizes, disk)


def gpt_without_partitions(disk):
    run("sgdisk", "-o", disk)


def mbr(disk):
    run("sfdisk", disk, text="label: dos\n2048,8192,7\n,4096,c\n,,5\n,2048,83\n")


def nothing(disk):
    del disk


TABLES = {"gpt": gpt, "many": gpt_with_many, "empty": gpt_without_partitions, "mbr": mbr, "none": nothing}
FORMATS = {
    "1m": "subformat=dynamic,block_size=1M",
    "2m": "subformat=dynamic,block_size=2M",
    "16m": "subformat=dynamic,block_size=16M",
    "fixed": "subformat=fixed",
}


def make_disk(path, table):
    path.write_bytes(b"")
    with open(path, "r+b") as disk:
        disk.truncate(DISK_BYTES)
        generator = random.Random(7)
        for place in (1 * MIB, 5 * MIB + 512, 13 * MIB):
            disk.seek(place)
            disk.write(generator.randbytes(600))
    TABLES[table](path)


def pieces_of(path):
    """What lies in a file, as the image fuzzer reads it."""
    data = path.read_bytes()
    found = []
    for offset in range(0, len(data), UNIT):
        unit = data[offset : offset + UNIT].rstrip(b"\0")
        if not unit:
            continue
        if found and found[-1][0] + len(found[-1][1]) == offset and len(found[-1][1]) < 0x8000:
            found[-1] = (found[-1][0], found[-1][1] + unit)
        else:
            found.append((offset, unit))
    packed = b"".join(struct.pack("<IH", offset, len(unit)) + unit for offset, unit in found)
    return struct.pack("<I", (len(data) + UNIT - 1) // UNIT) + packed


def main():
    target = pathlib.Path(sys.argv[1])
    for subject in ("image", "table"):
        (target / subject).mkdir(parents=True, exist_ok=True)
    with tempfile.TemporaryDirectory() as work:
        disk, image = pathlib.Path(work) / "disk", pathlib.Path(work) / "image.vhdx"
        for table in TABLES:
            make_disk(disk, table)
            start = disk.read_bytes()[: (LAST_TABLE_SECTORS + 1) * UNIT].rstrip(b"\0")
            (target / "table" / table).write_bytes(b"\x04" + start)
            (target / "table" / f"{table}-keep").write_bytes(b"\x2c" + start)
            for name, options in FORMATS.items():
                run("qemu-img", "convert", "-f", "raw", "-O", "vhdx", "-o", options, disk, image)
                (target / "image" / f"{table}-{name}").write_bytes(b"\x04" + pieces_of(image))


if __name__ == "__main__":
    main()
