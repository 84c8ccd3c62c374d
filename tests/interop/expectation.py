"""What an image and its manifest should hold, worked out from the source disk and the options alone."""

from dataclasses import dataclass

from support import MIB, SECTOR

BLOCK_SIZE = 2 * MIB
GPT_ENTRY_SECTORS = 32
NO_GUID = "00000000-0000-0000-0000-000000000000"


@dataclass(frozen=True)
class Options:
    partitions: tuple = ()
    used_blocks: bool = False
    remove_omitted: bool = False
    snapshots: bool = False
    compact: bool = False
    set_id: str = ""
    set_index: int = 0
    set_count: int = 1

    @property
    def words(self):
        flags = {"--used-blocks": self.used_blocks, "--remove-omitted": self.remove_omitted,
                 "--snapshots": self.snapshots, "--compact": self.compact}
        words = [flag for flag, is_set in flags.items() if is_set]
        if self.partitions:
            words += ["--partitions", ",".join(map(str, self.partitions))]
        if self.set_id:
            words += ["--set-id", self.set_id, "--set-index", str(self.set_index), "--set-count", str(self.set_count)]
        return words

    @property
    def removes(self):
        return self.remove_omitted or self.compact

    def chooses(self, partition):
        return not self.partitions or partition.number in self.partitions


@dataclass(frozen=True)
class Piece:
    """Bytes of the image that equal bytes of the source disk."""
    image_offset: int
    source_offset: int
    length: int

    @property
    def end(self):
        return self.image_offset + self.length


class Expectation:
    def __init__(self, disk, options):
        self.disk = disk
        self.options = options
        self.copied = [partition for partition in disk.partitions if options.chooses(partition)]
        if options.compact:
            self.copied.sort(key=lambda partition: partition.start)
        self.offsets, end = self._place()
        self.virtual_size = end + (1 + GPT_ENTRY_SECTORS) * SECTOR if options.compact else disk.size

    def _place(self):
        """Where each copied partition lies in the image, and the end of the last one when they are packed."""
        if not self.options.compact:
            return {partition.number: partition.start for partition in self.copied}, None
        offsets, cursor = {}, MIB
        for partition in self.copied:
            offsets[partition.number] = cursor
            cursor += -(-partition.length // MIB) * MIB
        return offsets, cursor

    def copies_used_blocks(self, partition):
        return self.options.used_blocks and partition.volume.kind == "NTFS"

    @property
    def listed(self):
        """The partitions that the image's table names, in its order, with their offsets."""
        if self.options.compact:
            listed = self.copied
        else:
            listed = [p for p in self.disk.partitions if self.options.chooses(p) or not self.options.removes]
        return [(partition, self.offsets.get(partition.number, partition.start)) for partition in listed]

    @property
    def table_ranges(self):
        """Where the image holds a table of its own: [start, end)."""
        if self.disk.style == "MBR":
            return [(0, SECTOR)]
        return [(0, (2 + GPT_ENTRY_SECTORS) * SECTOR),
                (self.virtual_size - (1 + GPT_ENTRY_SECTORS) * SECTOR, self.virtual_size)]

    @property
    def pieces(self):
        """All that is copied, by image offset."""
        pieces = [piece for partition in self.copied for piece in self._pieces_of(partition)]
        return sorted(pieces, key=lambda piece: piece.image_offset)

    def _pieces_of(self, partition):
        runs = [(0, partition.length)]
        if self.copies_used_blocks(partition):
            size = partition.volume.cluster_size
            runs = [(first * size, end * size) for first, end in partition.volume.used_runs]
        at = self.offsets[partition.number]
        return [Piece(at + start, partition.start + start, end - start) for start, end in runs]

    @property
    def blocks(self):
        """The numbers of the image's blocks into which something was written."""
        ranges = self.table_ranges + [(piece.image_offset, piece.end) for piece in self.pieces]
        return {block for start, end in ranges for block in range(start // BLOCK_SIZE, -(-end // BLOCK_SIZE))}

    @property
    def statistics(self):
        """kkctl's report, without the names of the files."""
        source = "snapshot" if self.options.snapshots else "live"
        with_volume = [partition for partition in self.copied if partition.gets_a_volume]
        used = [partition for partition in with_volume if self.copies_used_blocks(partition)]
        numbers = dict.fromkeys(("snapshotUsedBlockCopies", "snapshotWholeCopies", "liveUsedBlockCopies",
                                 "liveWholeCopies"), 0)
        numbers[source + "UsedBlockCopies"] = len(used)
        numbers[source + "WholeCopies"] = len(with_volume) - len(used)
        return {"disk": 0, "snapshotsRequested": self.options.snapshots, "snapshotsUsed": self.options.snapshots,
                "partitionsCopied": len(self.copied), "bytesCopied": sum(piece.length for piece in self.pieces),
                **numbers, "rawDiskCopies": len(self.copied) - len(with_volume)}

    @property
    def manifest(self):
        """The manifest, without its time and, where none was given, without the set's identifier."""
        disk, options = self.disk, self.options
        members = {
            "tool": "Kestrelkit", "formatVersion": 2, "backupTimeUtc": None, "sourceDiskNumber": 0,
            "sourceDiskSize": disk.size, "sectorSize": SECTOR, "virtualSize": self.virtual_size,
            "partitionStyle": disk.style, "diskGuid": disk.id.lower() if disk.style == "GPT" else NO_GUID,
            "usedVss": options.snapshots, "usedBlocksOnly": options.used_blocks, "compact": options.compact,
            "omittedMode": "remove" if options.removes else "keepEmpty", "backupSetId": options.set_id or None,
            "setDiskIndex": options.set_index, "setDiskCount": options.set_count,
        }
        described = [p for p in disk.partitions if options.chooses(p) or not options.removes]
        return {**members, "partitions": [self._manifest_entry(partition) for partition in described]}

    def _manifest_entry(self, partition):
        return {"index": partition.number, "offset": self.offsets.get(partition.number, partition.start),
                "originalOffset": partition.start, "length": partition.length,
                "typeGuid": partition.type.lower() if self.disk.style == "GPT" else NO_GUID,
                "name": partition.name, "driveLetter": "", "present": self.options.chooses(partition)}
