#pragma once

/// Reads a case a line, edits the disk as it was and compares with the disk as it is, with status and number.
inline constexpr char kSecondEditor[] = R"(
import struct, sys, zlib
folder = sys.argv[1]
CORRUPT, FULL, INVALID, NO_MEMORY, NO_SECTOR = 0xC000014C, 0xC000007F, 0xC000000D, 0xC0000017, 0xC0000015
NOBODY = 0xABABABAB
HEAP = 2 << 30

class Failure(Exception):
    pass

class Disk:
    def __init__(self, data):
        self.data = bytearray(data)
    def check(self, at, count):
        if at + count > (1 << 63) - 1:
            raise Failure(INVALID)
        if at + count > len(self.data):
            raise Failure(NO_SECTOR)
    def read(self, at, count):
        self.check(at, count)
        return self.data[at:at + count]
    def write(self, at, data):
        self.check(at, len(data))
        self.data[at:at + len(data)] = data

def pick(used, starts, edit):
    for slot, (taken, start) in enumerate(zip(used, starts)):
        if not taken if edit['mode'] == 0 else taken and start == edit['match']:
            return slot
    raise Failure(FULL if edit['mode'] == 0 else INVALID)

def gpt_header(disk, edit, lba):
    sector = edit['sector']
    if sector < 92 or lba * sector >= 1 << 64:
        raise Failure(CORRUPT)
    data = disk.read(lba * sector, sector)
    if data[:8] != b'EFI PART':
        raise Failure(CORRUPT)
    return data

def gpt_copy(disk, edit, lba):
    sector = edit['sector']
    head = gpt_header(disk, edit, lba)
    size, = struct.unpack_from('<I', head, 12)
    array_lba, count, width = struct.unpack_from('<QII', head, 72)
    if not 1 <= count <= 4096 or width < 128:
        raise Failure(CORRUPT)
    if count * width > 0xFFFFFFFF:
        raise Failure(NO_MEMORY)
    if array_lba * sector >= 1 << 64:
        raise Failure(CORRUPT)
    if count * width > HEAP - 4096:
        raise Failure(NO_MEMORY)
    array = disk.read(array_lba * sector, count * width)
    entries = [array[i * width:(i + 1) * width] for i in range(count)]
    slot = pick([any(e[:16]) for e in entries], [struct.unpack_from('<Q', e, 32)[0] for e in entries], edit)
    entry = entries[slot]
    if edit['mode'] == 2:
        struct.pack_into('<Q', entry, 40, edit['last'])
    else:
        entry[:] = bytes(width)
    if edit['mode'] == 0:
        entry[:56] = edit['type'] + edit['id'] + struct.pack('<QQQ', edit['first'], edit['last'], 0)
        name = edit['name'][:70]
        entry[56:56 + len(name)] = name
    array = b''.join(entries)
    head = bytearray(head[:92])
    struct.pack_into('<I', head, 88, zlib.crc32(array))
    struct.pack_into('<I', head, 16, 0)
    struct.pack_into('<I', head, 16, zlib.crc32(head[:min(size, 92)]))
    def commit():
        disk.write(array_lba * sector, array)
        disk.write(lba * sector, head + bytes(sector - 92))
    return slot + 1, commit

def edit_gpt(disk, edit, report):
    other, = struct.unpack_from('<Q', gpt_header(disk, edit, 1), 32)
    number, commit = gpt_copy(disk, edit, 1)
    report(number)
    commit()
    gpt_copy(disk, edit, other)[1]()

def edit_mbr(disk, edit, report):
    data = disk.read(0, edit['sector'])
    if data[510:512] != b'\x55\xAA':
        raise Failure(CORRUPT)
    records = [data[446 + 16 * i:462 + 16 * i] for i in range(4)]
    slot = pick([r[4] for r in records], [struct.unpack_from('<I', r, 8)[0] for r in records], edit)
    record = records[slot]
    if edit['mode'] == 0:
        far = b'\xFE\xFF\xFF'
        record = (b'\0' + far + edit['type'][:1] + far
            + struct.pack('<II', edit['first'] & 0xFFFFFFFF, edit['last'] & 0xFFFFFFFF))
    elif edit['mode'] == 1:
        record = bytes(16)
    else:
        record = record[:12] + struct.pack('<I', edit['last'] & 0xFFFFFFFF)
    data[446 + 16 * slot:462 + 16 * slot] = record
    report(slot + 1)
    disk.write(0, data)

before = open(folder + '/before', 'rb')
after = open(folder + '/after', 'rb')
outcomes = {}
for line in open(folder + '/cases'):
    case, size, style, sector, mode, match, first, last, kind, identity, name, status, number = line.split()
    disk = Disk(before.read(int(size)))
    edit = dict(sector=int(sector) or 512, mode=int(mode), match=int(match), first=int(first), last=int(last),
        type=bytes.fromhex(kind), id=bytes.fromhex(identity), name=bytes.fromhex(name[1:]))
    told = [NOBODY]
    expected = 0
    try:
        (edit_gpt if style == '2' else edit_mbr)(disk, edit, told.append)
    except Failure as failure:
        expected = failure.args[0]
    outcomes[expected] = outcomes.get(expected, 0) + 1
    if expected != int(status) or told[-1] != int(number):
        sys.exit(f'case {case}: {int(status):#x} {number} instead of {expected:#x} {told[-1]}: {line}')
    found = after.read(int(size))
    if found != disk.data:
        at = next(i for i, (a, b) in enumerate(zip(disk.data, found)) if a != b)
        sys.exit(f'case {case}, byte {at}: {found[at]:#x} instead of {disk.data[at]:#x}: {line}')
for expected in sorted(outcomes):
    print(f'{expected:#x}', 'often' if outcomes[expected] >= 10 else outcomes[expected])
)";
