#!/usr/bin/python3
"""Times libvhdi at what KkInspectImage does: inspect_with_libvhdi.py IMAGE COUNT. Prints JSON.

One inspection opens the image, asks for its size and its sector size, reads the GPT's header and its entries, and
closes it. The search through the entries is left out of the time, for it is Python's work and not libvhdi's.
"""

import json
import struct
import sys
import time

import pyvhdi


def inspect(path):
    file = pyvhdi.file()
    file.open(path)
    size = file.get_media_size()
    sector = file.get_bytes_per_sector()
    header = file.read_buffer_at_offset(sector, sector)
    lba, count, entry_bytes = struct.unpack_from("<QII", header, 72)
    entries = file.read_buffer_at_offset(count * entry_bytes, lba * sector)
    file.close()
    return size, sector, entry_bytes, entries


def partitions(sector, entry_bytes, entries):
    found = []
    for at in range(0, len(entries), entry_bytes):
        first, last = struct.unpack_from("<QQ", entries, at + 32)
        if any(entries[at:at + 16]):
            found.append([first * sector, (last - first + 1) * sector])
    return found


def main():
    path, count = sys.argv[1], int(sys.argv[2])
    for _ in range(count // 10 + 1):
        inspect(path)
    started, cpu_started = time.perf_counter(), time.process_time()
    for _ in range(count):
        size, sector, entry_bytes, entries = inspect(path)
    seconds, cpu_seconds = time.perf_counter() - started, time.process_time() - cpu_started
    print(json.dumps({"seconds": seconds / count, "cpuSeconds": cpu_seconds / count, "size": size, "sector": sector,
                      "partitions": partitions(sector, entry_bytes, entries)}))


if __name__ == "__main__":
    main()
