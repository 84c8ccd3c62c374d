#!/usr/bin/env python3
"""Lists all disks and partitions, or backs a disk up and shows how far it is. For an elevated prompt:

    python list_and_backup.py LIBRARY
    python list_and_backup.py LIBRARY DISK IMAGE
"""

import os
import sys
import threading

import kestrelkit
from kestrelkit import text_of

STYLES = {
    kestrelkit.PARTITION_STYLE_RAW: "no table",
    kestrelkit.PARTITION_STYLE_MBR: "MBR",
    kestrelkit.PARTITION_STYLE_GPT: "GPT",
}


def list_all(kit):
    disks = kit.list_disks()
    if not disks:
        print("No disk can be read. Is this process elevated?")
    for disk in disks:
        print(f"Disk {disk.number}: {disk.size >> 20} MiB, {STYLES.get(disk.partitionStyle, '?')}")
        for partition in kit.list_partitions(disk.number):
            print(f"  {partition.number}  at {partition.startOffset}  {partition.length >> 20} MiB"
                  f"  {text_of(partition.driveLetter)}  {text_of(partition.fileSystemName)}  {text_of(partition.name)}")


class Backup(threading.Thread):
    """A long call on a thread of its own."""

    def __init__(self, kit, disk, image):
        super().__init__()
        self.kit, self.disk, self.image = kit, disk, image
        self.result = self.error = None

    def run(self):
        try:
            self.result = self.kit.backup(self.disk, self.image)
        except kestrelkit.KestrelkitError as error:
            self.error = error


def back_up(kit, disk, image):
    if os.path.exists(image):
        sys.exit(f"{image} exists already")
    total = sum(partition.length for partition in kit.list_partitions(disk))
    backup = Backup(kit, disk, image)
    backup.start()
    while backup.is_alive():
        backup.join(0.5)
        written = os.path.getsize(image) if os.path.exists(image) else 0
        print(f"\r{written >> 20} MiB of at most {total >> 20} MiB", end="", flush=True)
    print()
    if backup.error:
        # Half an image, or none. It was not there before, so it is ours.
        if os.path.exists(image):
            os.remove(image)
        sys.exit(str(backup.error))
    print(f"{backup.result.partitionsCopied} partitions, {backup.result.bytesCopied} bytes, "
          f"snapshots: {'yes' if backup.result.snapshotsUsed else 'no'}")

    info, partitions = kit.inspect_image(image)
    print(f"The image shows a disk of {info.virtualSize >> 20} MiB with {len(partitions)} partitions")


def main(arguments):
    if len(arguments) not in (1, 3):
        sys.exit(__doc__)
    kit = kestrelkit.Kestrelkit(os.path.abspath(arguments[0]))
    try:
        if len(arguments) == 1:
            list_all(kit)
        else:
            back_up(kit, int(arguments[1]), os.path.abspath(arguments[2]))
    except kestrelkit.KestrelkitError as error:
        sys.exit(str(error))


if __name__ == "__main__":
    main(sys.argv[1:])
