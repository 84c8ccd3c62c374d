"""KestrelkitCore.dll for Python 3: its records and functions, and calls that raise and return Python's own types.

    kit = kestrelkit.Kestrelkit(r"C:\\kestrelkit\\KestrelkitCore.dll")
    for disk in kit.list_disks():
        print(disk.number, disk.size)

Every function of the DLL is there under its own name (kit.dll.KkMountImage), with argument types; kestrelkit.h says
what it does. Negative results of the methods below raise KestrelkitError.
"""

import ctypes
from ctypes import POINTER, c_char_p, c_int32, c_uint8, c_uint16, c_uint32, c_uint64

PARTITION_STYLE_RAW, PARTITION_STYLE_MBR, PARTITION_STYLE_GPT = 0, 1, 2

WideChar = c_uint16  # c_wchar has four bytes where this is not Windows
WideText = POINTER(WideChar)


class Record(ctypes.LittleEndianStructure):
    """All records are packed. A new one is zero-filled, as the library wants it."""

    _pack_ = 1


class KkDiskInfo(Record):
    _fields_ = [
        ("number", c_uint32),
        ("notWritten4", c_uint32),
        ("size", c_uint64),
        ("sectorSize", c_uint32),
        ("partitionStyle", c_uint32),
        ("partitionCount", c_uint32),
        ("notWritten28", c_uint32),
    ]


class KkPartitionInfo(Record):
    _fields_ = [
        ("number", c_uint32),
        ("startOffset", c_uint64),
        ("length", c_uint64),
        ("typeGuid", c_uint8 * 16),
        ("mbrType", c_uint8),
        ("name", WideChar * 36),
        ("driveLetter", WideChar * 4),
        ("fileSystemSize", c_uint64),
        ("fileSystemName", WideChar * 12),
        ("deviceName", WideChar * 48),
        ("volumePath", WideChar * 64),
    ]


class BackupResult(Record):
    _fields_ = [
        ("snapshotsRequested", c_uint32),
        ("snapshotsUsed", c_uint32),
        ("partitionsCopied", c_uint32),
        ("reserved12", c_uint32),
        ("bytesCopied", c_uint64),
        ("snapshotUsedBlockCopies", c_uint32),
        ("snapshotWholeCopies", c_uint32),
        ("liveUsedBlockCopies", c_uint32),
        ("liveWholeCopies", c_uint32),
        ("rawDiskCopies", c_uint32),
        ("reserved44", c_uint32),
    ]


class ImageInfoRecord(Record):
    _fields_ = [
        ("virtualSize", c_uint64),
        ("logicalSectorSize", c_uint32),
        ("blockSize", c_uint32),
        ("diskGuid", c_uint8 * 16),
        ("partitionCount", c_uint32),
        ("partitionStyle", c_uint32),
    ]


class ImagePartitionRecord(Record):
    _fields_ = [
        ("number", c_uint32),
        ("offset", c_uint64),
        ("length", c_uint64),
        ("typeGuid", c_uint8 * 16),
        ("name", WideChar * 36),
    ]


EXPORTS = {
    "KkListDisks": [POINTER(KkDiskInfo), c_uint32, POINTER(c_uint32)],
    "KkListPartitions": [c_uint32, POINTER(KkPartitionInfo), c_uint32, POINTER(c_uint32)],
    "KkSetDriveLetter": [c_uint32, c_uint64, WideChar],
    "KkAddMountPoint": [c_uint32, c_uint64, WideText],
    "KkCreatePartition": [c_uint32, c_uint64, c_uint64, c_uint64, POINTER(c_uint64)],
    "KkDeletePartition": [c_uint32, c_uint64],
    "KkExtendPartition": [c_uint32, c_uint64, c_uint64],
    "KkShrinkPartition": [c_uint32, c_uint64, c_uint64],
    "KkFormatPartition": [c_int32, c_uint64, WideText, WideText, c_int32],
    "KkReboot": [],
    "KkBackup": [
        c_uint32, WideText, POINTER(c_uint32), c_uint32, c_uint32, c_uint32, c_uint32, c_char_p, c_uint32, c_uint32,
        c_uint32, POINTER(BackupResult),
    ],
    "KkInspectImage": [
        WideText, POINTER(ImageInfoRecord), POINTER(ImagePartitionRecord), c_uint32, POINTER(c_uint32),
    ],
    "KkMountImage": [WideText, POINTER(c_uint32)],
    "KkUnmountImage": [WideText],
    "KkQueryDiskImage": [c_uint32, POINTER(c_uint32), WideText, c_uint32],
    "KkRestorePartitions": [WideText, WideText, POINTER(c_uint32), c_uint32, c_int32],
    "KkRestoreToFreeSpace": [WideText, c_uint32, c_uint32, c_uint64, c_uint64, c_int32],
    "KkRestoreToVolume": [WideText, c_uint32, WideText, c_uint32],
    "KkCloneVolume": [WideText, WideText, c_uint32],
    "KkMountImageOverlay": [WideText, WideText, POINTER(c_uint32)],
    "KkDiscardOverlay": [WideText],
    "KkRecoverShrinkToFit": [WideText, c_int32, c_uint32, c_uint64],
}


class KestrelkitError(OSError):
    """A call failed. `status` is what it returned, as its 32 bits."""

    def __init__(self, call, status):
        self.status = status & 0xFFFFFFFF
        super().__init__(f"{call}: 0x{self.status:08X}")


def wide(text):
    """Text as the library takes it: UTF-16 with a terminator."""
    encoded = (text + "\0").encode("utf-16-le")
    return (WideChar * (len(encoded) // 2)).from_buffer_copy(encoded)


def text_of(field):
    """The text in a record's field, which need not have a terminator."""
    return bytes(field).decode("utf-16-le", "replace").split("\0", 1)[0]


def numbers_of(partitions):
    """Pointer and count of a list of partition numbers; None means all. To the library an empty list would too."""
    if partitions is None:
        return None, 0
    if not partitions:
        raise ValueError("no partition is chosen")
    return (c_uint32 * len(partitions))(*partitions), len(partitions)


class Kestrelkit:
    """The loaded library. ctypes releases the interpreter's lock during calls, so other threads go on."""

    def __init__(self, path):
        # The whole path, so that no folder is searched. 64-bit Windows has one calling convention.
        self.dll = ctypes.CDLL(path)
        for name, argument_types in EXPORTS.items():
            function = getattr(self.dll, name)
            function.argtypes = argument_types
            function.restype = c_int32

    def call(self, name, *arguments):
        status = getattr(self.dll, name)(*arguments)
        if status < 0:
            raise KestrelkitError(name, status)
        return status

    def _fetch(self, record_type, call):
        """Counts, then fetches into zeroed records, and keeps what was written."""
        count = c_uint32()
        call(None, 0, count)
        records = (record_type * count.value)()
        call(records, len(records), count)
        return list(records[: count.value])

    def list_disks(self):
        return self._fetch(KkDiskInfo, lambda *rest: self.call("KkListDisks", *rest))

    def list_partitions(self, disk):
        return self._fetch(KkPartitionInfo, lambda *rest: self.call("KkListPartitions", disk, *rest))

    def inspect_image(self, path):
        """An ImageInfoRecord and the list of partitions."""
        info = ImageInfoRecord()
        partitions = self._fetch(
            ImagePartitionRecord, lambda *rest: self.call("KkInspectImage", wide(path), info, *rest)
        )
        return info, partitions

    def backup(self, disk, image, partitions=None, used_blocks=True, snapshots=True, compact=False):
        """A BackupResult. After a failure half an image may be there; deleting it is up to the caller."""
        result = BackupResult()
        self.call("KkBackup", disk, wide(image), *numbers_of(partitions), used_blocks, 0, snapshots, None, 0, 1,
                  compact, result)
        return result

    def restore_partitions(self, image, target, partitions=None, write_table=False):
        self.call("KkRestorePartitions", wide(image), wide(target), *numbers_of(partitions), write_table)
