// KestrelkitCore.dll for C#: its records and functions. Compile with /unsafe, for 64-bit processes. kestrelkit.h says
// what the functions do. Negative results are failures.
using System.Runtime.InteropServices;

// No search for the library: it lies beside the program, which is probably elevated.
[assembly: DefaultDllImportSearchPaths(DllImportSearchPath.AssemblyDirectory)]

namespace Kestrelkit
{
    public enum PartitionStyle : uint { Raw = 0, Mbr = 1, Gpt = 2 }

    /// A physical disk.
    [StructLayout(LayoutKind.Sequential, Pack = 1)]
    public struct KkDiskInfo
    {
        public uint number;
        public uint notWritten4;
        public ulong size;
        public uint sectorSize;
        public PartitionStyle partitionStyle;
        public uint partitionCount;
        public uint notWritten28;
    }

    /// A partition of a disk. Text is UTF-16 and need not have a terminator: read it with Text.Of.
    [StructLayout(LayoutKind.Sequential, Pack = 1)]
    public unsafe struct KkPartitionInfo
    {
        public uint number;
        public ulong startOffset;
        public ulong length;
        public fixed byte typeGuid[16];
        public byte mbrType;
        public fixed ushort name[36];
        public fixed ushort driveLetter[4];
        public ulong fileSystemSize;
        public fixed ushort fileSystemName[12];
        public fixed ushort deviceName[48];
        public fixed ushort volumePath[64];
    }

    /// What a backup did.
    [StructLayout(LayoutKind.Sequential, Pack = 1)]
    public struct BackupResult
    {
        public uint snapshotsRequested;
        public uint snapshotsUsed;
        public uint partitionsCopied;
        public uint reserved12;
        public ulong bytesCopied;
        public uint snapshotUsedBlockCopies;
        public uint snapshotWholeCopies;
        public uint liveUsedBlockCopies;
        public uint liveWholeCopies;
        public uint rawDiskCopies;
        public uint reserved44;
    }

    /// What an image holds.
    [StructLayout(LayoutKind.Sequential, Pack = 1)]
    public unsafe struct ImageInfoRecord
    {
        public ulong virtualSize;
        public uint logicalSectorSize;
        public uint blockSize;
        public fixed byte diskGuid[16];
        public uint partitionCount;
        public PartitionStyle partitionStyle;
    }

    /// A partition in an image.
    [StructLayout(LayoutKind.Sequential, Pack = 1)]
    public unsafe struct ImagePartitionRecord
    {
        public uint number;
        public ulong offset;
        public ulong length;
        public fixed byte typeGuid[16];
        public fixed ushort name[36];
    }

    public static class Text
    {
        /// The text in a record's field of so many units, up to its terminator or its end.
        public static unsafe string Of(ushort* field, int units)
        {
            int length = 0;
            while (length < units && field[length] != 0)
            {
                ++length;
            }
            return new string((char*)field, 0, length);
        }
    }

    /// The functions, as they are. Arrays must be zero-filled, which new ones are.
    public static unsafe class Native
    {
        private const string Library = "KestrelkitCore";

        [DllImport(Library, ExactSpelling = true)]
        public static extern int KkListDisks([In, Out] KkDiskInfo[] records, uint capacity, out uint count);

        [DllImport(Library, ExactSpelling = true)]
        public static extern int KkListPartitions(uint diskNumber, [In, Out] KkPartitionInfo[] records, uint capacity,
                                                  out uint count);

        [DllImport(Library, ExactSpelling = true, CharSet = CharSet.Unicode)]
        public static extern int KkSetDriveLetter(uint diskNumber, ulong startOffset, char letter);

        [DllImport(Library, ExactSpelling = true, CharSet = CharSet.Unicode)]
        public static extern int KkAddMountPoint(uint diskNumber, ulong startOffset, string directory);

        [DllImport(Library, ExactSpelling = true)]
        public static extern int KkCreatePartition(uint diskNumber, ulong regionStart, ulong regionLength, ulong size,
                                                   out ulong startOffset);

        [DllImport(Library, ExactSpelling = true)]
        public static extern int KkDeletePartition(uint diskNumber, ulong startOffset);

        [DllImport(Library, ExactSpelling = true)]
        public static extern int KkExtendPartition(uint diskNumber, ulong startOffset, ulong newSize);

        [DllImport(Library, ExactSpelling = true)]
        public static extern int KkShrinkPartition(uint diskNumber, ulong startOffset, ulong newSize);

        [DllImport(Library, ExactSpelling = true, CharSet = CharSet.Unicode)]
        public static extern int KkFormatPartition(int diskNumber, ulong startOffset, string fileSystem, string label,
                                                   int quick);

        [DllImport(Library, ExactSpelling = true)]
        public static extern int KkReboot();

        [DllImport(Library, ExactSpelling = true, CharSet = CharSet.Unicode)]
        public static extern int KkBackup(uint diskNumber, string imagePath, uint[] partitionNumbers,
                                          uint partitionCount, uint usedBlocksOnly, uint omitRemove, uint useSnapshots,
                                          [MarshalAs(UnmanagedType.LPStr)] string backupSetId, uint setDiskIndex,
                                          uint setDiskCount, uint compact, ref BackupResult result);

        [DllImport(Library, ExactSpelling = true, CharSet = CharSet.Unicode)]
        public static extern int KkInspectImage(string imagePath, ref ImageInfoRecord info,
                                                [In, Out] ImagePartitionRecord[] partitions, uint capacity,
                                                out uint count);

        [DllImport(Library, ExactSpelling = true, CharSet = CharSet.Unicode)]
        public static extern int KkMountImage(string imagePath, ref uint diskNumber);

        [DllImport(Library, ExactSpelling = true, CharSet = CharSet.Unicode)]
        public static extern int KkUnmountImage(string imagePath);

        [DllImport(Library, ExactSpelling = true, CharSet = CharSet.Unicode)]
        public static extern int KkQueryDiskImage(uint diskNumber, out uint isImage, [Out] char[] imagePath,
                                                  uint imagePathChars);

        [DllImport(Library, ExactSpelling = true, CharSet = CharSet.Unicode)]
        public static extern int KkRestorePartitions(string imagePath, string targetPath, uint[] partitionNumbers,
                                                     uint partitionCount, int writePartitionTable);

        [DllImport(Library, ExactSpelling = true, CharSet = CharSet.Unicode)]
        public static extern int KkRestoreToFreeSpace(string imagePath, uint partitionNumber, uint targetDiskNumber,
                                                      ulong regionStart, ulong regionLength, int keepSourceSize);

        [DllImport(Library, ExactSpelling = true, CharSet = CharSet.Unicode)]
        public static extern int KkRestoreToVolume(string imagePath, uint partitionNumber, string volumePath,
                                                   uint extendFileSystem);

        [DllImport(Library, ExactSpelling = true, CharSet = CharSet.Unicode)]
        public static extern int KkCloneVolume(string sourcePath, string targetPath, uint extendFileSystem);

        [DllImport(Library, ExactSpelling = true, CharSet = CharSet.Unicode)]
        public static extern int KkMountImageOverlay(string parentImagePath, string overlayPath, ref uint diskNumber);

        [DllImport(Library, ExactSpelling = true, CharSet = CharSet.Unicode)]
        public static extern int KkDiscardOverlay(string overlayPath);

        [DllImport(Library, ExactSpelling = true, CharSet = CharSet.Unicode)]
        public static extern int KkRecoverShrinkToFit(string imagePath, int partitionNumber, uint targetDiskNumber,
                                                      ulong targetPartitionOffset);
    }
}
