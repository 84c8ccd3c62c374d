"""Reads which payload blocks a VHDX file holds. Others' listings report the whole disk as one run of data."""

import struct
import uuid

REGION_TABLE = 192 << 10
BLOCK_TABLE_REGION = uuid.UUID("2dc27766-f623-4200-9d64-115e9bfd4a08")
METADATA_REGION = uuid.UUID("8b7ca206-4790-4b9a-b8fe-575f050f886e")
FILE_PARAMETERS = uuid.UUID("caa16737-fa36-4d43-b3b6-33f0aa44e76b")
VIRTUAL_SIZE = uuid.UUID("2fa54224-cd1b-4876-b211-5dbed83bf4b8")
SECTOR_SIZE = uuid.UUID("8141bf1d-a96f-4709-ba47-f233a8faab5f")
FULLY_PRESENT = 6
NOT_PRESENT, ZERO = 0, 2  # the states that QEMU gives to blocks without data; such entries name no place
STATE_MASK = 7
SECTORS_PER_CHUNK = 1 << 23


class VhdxBlocks:
    def __init__(self, path):
        with open(path, "rb") as file:
            table = self._read(file, REGION_TABLE, 64 << 10)
            if table[:4] != b"regi":
                raise ValueError("no region table")
            regions = self._entries(table, 16, struct.unpack_from("<I", table, 8)[0], "<QI")
            metadata = self._read(file, *regions[METADATA_REGION])
            items = self._entries(metadata, 32, struct.unpack_from("<H", metadata, 10)[0], "<II")
            self.block_size = self._number(metadata, items[FILE_PARAMETERS][0], 4)
            self.virtual_size = self._number(metadata, items[VIRTUAL_SIZE][0], 8)
            self.sector_size = self._number(metadata, items[SECTOR_SIZE][0], 4)
            raw = self._read(file, *regions[BLOCK_TABLE_REGION])
        self._table = struct.unpack(f"<{len(raw) // 8}Q", raw)
        self.blocks_per_chunk = SECTORS_PER_CHUNK * self.sector_size // self.block_size

    @property
    def entries(self):
        """The entry of every payload block. One for a sector bitmap follows the entries of each whole chunk."""
        count = -(-self.virtual_size // self.block_size)
        return [self._table[block + block // self.blocks_per_chunk] for block in range(count)]

    @property
    def present(self):
        return {block for block, entry in enumerate(self.entries) if entry & STATE_MASK == FULLY_PRESENT}

    @property
    def absent_entries(self):
        return {entry for entry in self.entries if entry & STATE_MASK != FULLY_PRESENT}

    @property
    def sector_bitmap_entries(self):
        return set(self._table[self.blocks_per_chunk::self.blocks_per_chunk + 1])

    @staticmethod
    def _read(file, offset, length):
        file.seek(offset)
        return file.read(length)

    @staticmethod
    def _entries(table, header_size, count, fields):
        starts = range(header_size, header_size + 32 * count, 32)
        return {uuid.UUID(bytes_le=table[at:at + 16]): struct.unpack_from(fields, table, at + 16) for at in starts}

    @staticmethod
    def _number(metadata, offset, size):
        return int.from_bytes(metadata[offset:offset + size], "little")
