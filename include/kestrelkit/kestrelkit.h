/*
 * The public interface of KestrelkitCore.dll, for C11 and C++20.
 *
 * Conventions of every function here:
 * - Offsets and lengths are bytes. Text is UTF-16 and NUL-terminated unless a field says otherwise.
 * - Records are packed and little-endian; the caller supplies them and owns them. Nothing that the library
 *   allocated is ever handed out.
 * - Calls are synchronous, run wholly on the calling thread, and may be made from several threads at once. Calls that
 *   change the same disk must not overlap, in whatever process. One caution: while one thread's call looks for a system
 *   library for the first time, all others find it missing. Until that is over they may get KK_STATUS_NOT_FOUND,
 *   KkQueryDiskImage report no image, KkBackup go without its snapshots (BackupResult::snapshotsUsed) and
 *   KkShrinkPartition leave a volume without its letter.
 * - A negative result is a failure, anything else a success. A status of the system (a failing open, read, write or
 *   control request) is passed on unchanged, so results other than the ones named below occur too.
 * - Paths are absolute Windows paths with backslashes (C:\images\disk.vhdx) or native names (\Device\...).
 *   UNC paths (\\server\share) are not understood by every step and must not be used.
 * - Disks and volumes open only for an elevated process; elsewhere the system's refusal is the result, or, where disks
 *   and volumes that do not open are left out, nothing is found.
 * - Volumes are looked for under the device numbers 1 to 127. The system counts numbers up with every arrival until it
 *   restarts; a volume with a higher number is treated as if it did not exist.
 */
#ifndef KESTRELKIT_KESTRELKIT_H
#define KESTRELKIT_KESTRELKIT_H

#if defined(_WIN32) && !defined(_WIN64)
#error "KestrelkitCore.dll exists for 64-bit Windows only"
#endif

#include <stdint.h>

#if defined(_WIN32)
#include <stddef.h>
#elif !defined(__cplusplus)
#include <uchar.h>
#endif

#if defined(_WIN32)
/** One UTF-16 unit. */
typedef wchar_t KkWideChar;
/** The platform's calling convention, on 64-bit Windows the only one. */
#define KK_CALL
#if defined(KK_BUILDING_LIBRARY)
#define KK_LINKAGE __declspec(dllexport)
#else
#define KK_LINKAGE __declspec(dllimport)
#endif
#else
/** One UTF-16 unit. */
typedef char16_t KkWideChar;
/** The Microsoft x64 calling convention, so that one caller serves the DLL and a build for another system. */
#define KK_CALL __attribute__((ms_abi))
#define KK_LINKAGE
#endif

#if defined(__cplusplus)
#define KK_NODISCARD [[nodiscard]]
#define KK_STATIC_ASSERT(condition, text) static_assert(condition, text)
#else
#define KK_NODISCARD
#define KK_STATIC_ASSERT(condition, text) _Static_assert(condition, text)
#endif

#define KK_API KK_NODISCARD KK_LINKAGE

#if defined(__cplusplus)
extern "C" {
#endif

/** The result of every call: negative is failure. Values follow the system's NTSTATUS and HRESULT numbering. */
typedef int32_t KK_STATUS;

/** Success. */
#define KK_STATUS_SUCCESS ((KK_STATUS)0)
/**
 * A write made no progress; an image could not be created, attached, detached or looked at; memory for an image's table
 * ran out; a volume does not tell its size; a format failed.
 */
#define KK_STATUS_UNSUCCESSFUL ((KK_STATUS)0xC0000001)
/**
 * A required argument is null or empty, nothing is where a partition or volume was named, a partition lies in the way,
 * or a size does not fit.
 */
#define KK_STATUS_INVALID_PARAMETER ((KK_STATUS)0xC000000D)
/** A read ended before the wanted bytes were there. */
#define KK_STATUS_END_OF_FILE ((KK_STATUS)0xC0000011)
/** There is no volume to mount or to recover, or no drive letter for it. */
#define KK_STATUS_NO_MEDIA_IN_DEVICE ((KK_STATUS)0xC0000013)
/** Memory ran out; while reading an image's table that is KK_STATUS_UNSUCCESSFUL. */
#define KK_STATUS_NO_MEMORY ((KK_STATUS)0xC0000017)
/** There is not enough room on the disk or volume for the wanted size. */
#define KK_STATUS_BUFFER_TOO_SMALL ((KK_STATUS)0xC0000023)
/** A partition table has no unused entry. */
#define KK_STATUS_DISK_FULL ((KK_STATUS)0xC000007F)
/** The operation does not apply, for example a backup of a disk that has no partition table. */
#define KK_STATUS_NOT_SUPPORTED ((KK_STATUS)0xC00000BB)
/** A partition table or an image is damaged or none at all: a signature is missing, or it says what it cannot. */
#define KK_STATUS_REGISTRY_CORRUPT ((KK_STATUS)0xC000014C)
/** A system library or one of its entry points, needed for this call, is missing. */
#define KK_STATUS_NOT_FOUND ((KK_STATUS)0xC0000225)
/** The virtual-disk service did not open a file, for whatever reason. */
#define KK_E_FILE_NOT_FOUND ((KK_STATUS)0x80070002)
/** The system refused a mount point, for whatever reason: the letter is taken, the folder is missing or not empty... */
#define KK_E_ACCESSDENIED ((KK_STATUS)0x80070005)

/** Values of KkDiskInfo::partitionStyle and ImageInfoRecord::partitionStyle. */
#define KK_PARTITION_STYLE_RAW 0u /**< no partition table was recognised */
#define KK_PARTITION_STYLE_MBR 1u
#define KK_PARTITION_STYLE_GPT 2u

#pragma pack(push, 1)

/** One physical disk. */
typedef struct KkDiskInfo {
    uint32_t number;         /**< N of \\.\PhysicalDriveN, 0 to 31 */
    uint32_t notWritten4;    /**< keeps what the caller put here */
    uint64_t size;           /**< bytes, never 0 */
    uint32_t sectorSize;     /**< bytes in a logical sector; 512 when the disk reports 0 */
    uint32_t partitionStyle; /**< KK_PARTITION_STYLE_... */
    uint32_t partitionCount; /**< as KkListPartitions counts */
    uint32_t notWritten28;   /**< keeps what the caller put here */
} KkDiskInfo;

/** One partition of a disk and what is known of the volume on it. */
typedef struct KkPartitionInfo {
    uint32_t number;      /**< the system's partition number; not a table slot, and it may change */
    uint64_t startOffset; /**< bytes from the disk's start; names the partition in all other calls */
    uint64_t length;      /**< bytes */
    uint8_t typeGuid[16]; /**< GPT partition type in its on-disk byte order (UEFI 2.10, 5.3.3); zero on MBR disks */
    uint8_t mbrType;      /**< MBR partition type; 0 on GPT disks */
    KkWideChar name[36];  /**< GPT partition name as the table holds it, not terminated when all 36 are used */
    KkWideChar driveLetter[4];     /**< "C:" or empty; the fourth unit is never written */
    uint64_t fileSystemSize;       /**< bytes that NTFS spans; 0 for every other file system or none */
    KkWideChar fileSystemName[12]; /**< "NTFS", "FAT32", ..., cut to 11 units; empty when unknown or RAW */
    KkWideChar deviceName[48];     /**< "\Device\HarddiskVolumeN", at most 47 units, written WITHOUT a terminator */
    KkWideChar volumePath[64];     /**< "\\?\Volume{GUID}\", or empty */
} KkPartitionInfo;

/** What a backup did. */
typedef struct BackupResult {
    uint32_t snapshotsRequested;      /**< the useSnapshots argument, copied */
    uint32_t snapshotsUsed;           /**< 1 when a snapshot set was taken, else 0 */
    uint32_t partitionsCopied;        /**< partitions whose data went into the image, whatever the source */
    uint32_t reserved12;              /**< 0 */
    uint64_t bytesCopied;             /**< bytes of partition data written into the image */
    uint32_t snapshotUsedBlockCopies; /**< partitions read from a snapshot, clusters in use only */
    uint32_t snapshotWholeCopies;     /**< partitions read from a snapshot, whole */
    uint32_t liveUsedBlockCopies;     /**< partitions read from the live volume, clusters in use only */
    uint32_t liveWholeCopies;         /**< partitions read from the live volume, whole */
    uint32_t rawDiskCopies;           /**< partitions read straight from the disk */
    uint32_t reserved44;              /**< 0 */
} BackupResult;

/** What an image holds. */
typedef struct ImageInfoRecord {
    uint64_t virtualSize;       /**< bytes of the disk that the image shows */
    uint32_t logicalSectorSize; /**< bytes in a logical sector of that disk */
    uint32_t blockSize;         /**< bytes in which the image file takes room for data */
    uint8_t diskGuid[16];       /**< of the GPT, in its on-disk byte order; zero on MBR disks */
    uint32_t partitionCount;    /**< as KkInspectImage counts */
    uint32_t partitionStyle;    /**< KK_PARTITION_STYLE_MBR or KK_PARTITION_STYLE_GPT */
} ImageInfoRecord;

/** One partition in an image. */
typedef struct ImagePartitionRecord {
    uint32_t number;      /**< slot in the image's table, from 1; not KkPartitionInfo::number */
    uint64_t offset;      /**< bytes from the start of the image's disk, as the table says, which may be nonsense */
    uint64_t length;      /**< bytes, likewise */
    uint8_t typeGuid[16]; /**< GPT partition type in its on-disk byte order; zero on MBR disks */
    KkWideChar name[36];  /**< GPT: name as the table holds it, not terminated when all 36 are used; MBR: a label */
} ImagePartitionRecord;

#pragma pack(pop)

KK_STATIC_ASSERT(sizeof(KkWideChar) == 2, "wide text is UTF-16");
KK_STATIC_ASSERT(sizeof(KkDiskInfo) == 32, "KkDiskInfo is part of the binary interface");
KK_STATIC_ASSERT(sizeof(KkPartitionInfo) == 373, "KkPartitionInfo is part of the binary interface");
KK_STATIC_ASSERT(sizeof(BackupResult) == 48, "BackupResult is part of the binary interface");
KK_STATIC_ASSERT(sizeof(ImageInfoRecord) == 40, "ImageInfoRecord is part of the binary interface");
KK_STATIC_ASSERT(sizeof(ImagePartitionRecord) == 108, "ImagePartitionRecord is part of the binary interface");

/**
 * Lists the physical disks with numbers 0 to 31 in rising order. Numbers need not be contiguous. A disk that cannot
 * be opened, whose layout cannot be read or whose size is unknown is left out; a process without the right to open
 * disks therefore finds none, and success.
 *
 * Call once with `records` null for the number of disks, then again with that many records.
 *
 * @param records   out, optional: receives at most `capacity` records
 * @param capacity  room in `records`, in records; 0 only counts
 * @param count     out, optional: the number of disks, also when it exceeds `capacity`
 * @return KK_STATUS_SUCCESS, always
 */
KK_API KK_STATUS KK_CALL KkListDisks(KkDiskInfo* records, uint32_t capacity, uint32_t* count);

/**
 * Lists one disk's partitions in table order, logical drives included, extended containers and unused entries left
 * out. What cannot be learnt of a partition's volume leaves the fields concerned empty.
 *
 * Call once with `records` null for the number of partitions, then again with that many records. The records MUST be
 * zero-filled by the caller: unwritten tails of text fields, and the end of `deviceName`, rely on it.
 *
 * Costly: for each partition up to 127 volumes are opened, and two mount-manager queries made; do not poll.
 *
 * @param diskNumber  N of \\.\PhysicalDriveN
 * @param records     out, optional: receives at most `capacity` records
 * @param capacity    room in `records`, in records; 0 only counts and looks at no volume
 * @param count       out, optional: the number of partitions, also when it exceeds `capacity`; 0 on failure
 * @return
 * - KK_STATUS_SUCCESS; a disk without a partition table has 0 partitions
 * - KK_STATUS_NO_MEMORY; no record is written, here and below
 * - the system's status when the disk does not open or does not tell its layout
 */
KK_API KK_STATUS KK_CALL KkListPartitions(uint32_t diskNumber, KkPartitionInfo* records, uint32_t capacity,
                                          uint32_t* count);

/**
 * Gives the volume of a partition a drive letter, in place of the one that it has.
 *
 * The old letter is taken away first, also when both are the same; whether the system took it away is not reported. A
 * volume keeps one letter at most, so the new one is refused while the old one is still there.
 *
 * @param diskNumber   N of \\.\PhysicalDriveN
 * @param startOffset  where the partition starts (KkPartitionInfo::startOffset)
 * @param letter       handed to the system as it stands; 0 only takes the old letter away
 * @return
 * - KK_STATUS_SUCCESS; with `letter` 0 also when there was none, or the system did not take it away
 * - KK_STATUS_NOT_FOUND: kernel32.dll, or one of its mount-point calls, is missing
 * - KK_STATUS_INVALID_PARAMETER: the partition has no volume
 * - KK_STATUS_NO_MEDIA_IN_DEVICE: the mount manager knows no path of the volume or cannot be asked; the old letter was
 *   taken away all the same
 * - KK_E_ACCESSDENIED: the system refused the letter; the old one was taken away all the same
 */
KK_API KK_STATUS KK_CALL KkSetDriveLetter(uint32_t diskNumber, uint64_t startOffset, KkWideChar letter);

/**
 * Mounts the volume of a partition on a folder too. The folder is not created: it must be there, empty, on an NTFS
 * volume.
 *
 * @param diskNumber   N of \\.\PhysicalDriveN
 * @param startOffset  where the partition starts
 * @param directory    the folder, an absolute Windows path and no native name, with or without a backslash at its end;
 *                     cut to 517 units
 * @return
 * - KK_STATUS_SUCCESS
 * - KK_STATUS_NOT_FOUND: kernel32.dll, or one of its mount-point calls, is missing
 * - KK_STATUS_INVALID_PARAMETER: `directory` is null or empty
 * - KK_STATUS_NO_MEDIA_IN_DEVICE: the partition has no volume (KkSetDriveLetter has another status for that), or the
 *   mount manager knows no path of it or cannot be asked
 * - KK_E_ACCESSDENIED: the system refused
 */
KK_API KK_STATUS KK_CALL KkAddMountPoint(uint32_t diskNumber, uint64_t startOffset, const KkWideChar* directory);

/**
 * Creates an unformatted partition for data in a free region of a disk. On a GPT disk it is of the type "basic data"
 * (EBD0A0A2-B9E5-4433-87C0-68B6B72699C7), with a fresh identifier, the name "Basic data partition" and no attributes;
 * on an MBR disk of type 0x07, always in one of the four primary entries.
 *
 * The partition starts on the first 1 MiB boundary of the region, never below 1 MiB. On a GPT disk the last 34 sectors
 * are not used; what the GPT itself calls usable is not looked at.
 *
 * Which regions are free is the caller's to find out: they lie between, before and behind the partitions that
 * KkListPartitions lists. Beware on MBR disks:
 * - Extended partitions are neither listed nor seen by this call. A gap between logical drives holds the links of their
 *   chain; a partition created there destroys them.
 * - An MBR holds 32-bit sector numbers. A start or a length of 2^32 sectors (2 TiB of 512-byte sectors) or more is cut
 *   without a failure, and the partition then lies elsewhere, possibly over others. Do not ask for one.
 *
 * A GPT is kept in two copies, and the first is changed first. Whatever fails at the second one, the first stays
 * changed. A failing write may leave the copy at hand with wrong checksums. After a failure the system is not told to
 * look at the table again: listings still show the old one, and a second attempt adds the partition once more.
 *
 * @param diskNumber    N of \\.\PhysicalDriveN
 * @param regionStart   where the free region starts
 * @param regionLength  its length; what reaches past the usable disk is cut off
 * @param size          wanted size, rounded up to whole sectors; 0 takes all the room, in whole MiB
 * @param startOffset   out, optional: where the partition starts; untouched on failure
 * @return
 * - KK_STATUS_SUCCESS; the volume may arrive a little later
 * - KK_STATUS_NOT_SUPPORTED: the disk has neither an MBR nor a GPT
 * - KK_STATUS_BUFFER_TOO_SMALL: the region has no room for the size, or less than 1 MiB when `size` is 0; also when the
 *   disk does not tell its size
 * - KK_STATUS_INVALID_PARAMETER: a partition lies in the way
 * - KK_STATUS_DISK_FULL: the table, or the second copy of a GPT, has no unused entry
 * - KK_STATUS_REGISTRY_CORRUPT: the table is damaged
 * - KK_STATUS_NO_MEMORY, also for a table that claims to be 4 GiB or larger
 * - KK_STATUS_END_OF_FILE, KK_STATUS_UNSUCCESSFUL: the disk ended inside the table
 * - the system's status from opening, reading or writing the disk
 */
KK_API KK_STATUS KK_CALL KkCreatePartition(uint32_t diskNumber, uint64_t regionStart, uint64_t regionLength,
                                           uint64_t size, uint64_t* startOffset);

/**
 * Deletes a partition from the table. Its data stays on the disk.
 *
 * Its volume is locked and dismounted first. If the system refuses, that does not save the partition; if anything fails
 * later, the volume was dismounted all the same. So it is with the logical drives of an MBR disk, which are listed but
 * cannot be deleted.
 *
 * What KkCreatePartition says of failures at a GPT's copies holds here too.
 *
 * @param diskNumber   N of \\.\PhysicalDriveN
 * @param startOffset  where the partition starts
 * @return
 * - KK_STATUS_SUCCESS
 * - KK_STATUS_NOT_SUPPORTED: the disk has neither an MBR nor a GPT
 * - KK_STATUS_INVALID_PARAMETER: no partition starts there, or it is a logical drive, or the second copy of a GPT does
 *   not list it
 * - KK_STATUS_REGISTRY_CORRUPT, KK_STATUS_NO_MEMORY, KK_STATUS_END_OF_FILE, KK_STATUS_UNSUCCESSFUL: as for
 *   KkCreatePartition
 * - the system's status from opening, reading or writing the disk
 */
KK_API KK_STATUS KK_CALL KkDeletePartition(uint32_t diskNumber, uint64_t startOffset);

/**
 * Makes a partition larger and then its file system if that can grow (NTFS, ReFS).
 *
 * Whether the file system grew does not change the result; for NTFS compare KkPartitionInfo::fileSystemSize, which
 * stays a little below the length. Making the call again does not help: the size is then no longer above the
 * partition's.
 *
 * There is room up to the next partition that KkListPartitions lists or the end of the disk, on a GPT disk without its
 * last 34 sectors. Extended partitions are not seen: beside or inside one, name a size.
 *
 * @param diskNumber   N of \\.\PhysicalDriveN
 * @param startOffset  where the partition starts, which does not change
 * @param newSize      the whole new size, rounded up to whole sectors; 0 takes all the room
 * @return
 * - KK_STATUS_SUCCESS
 * - KK_STATUS_NOT_SUPPORTED: the disk has neither an MBR nor a GPT
 * - KK_STATUS_INVALID_PARAMETER: no partition starts there, or the size is not above its present one, or for 0 there is
 *   nothing to add, also because the disk does not tell its size; also when the driver refuses
 * - KK_STATUS_BUFFER_TOO_SMALL: there is not that much room, or the disk does not tell its size
 * - KK_STATUS_NO_MEMORY, or the system's status from opening the disk or growing the partition
 */
KK_API KK_STATUS KK_CALL KkExtendPartition(uint32_t diskNumber, uint64_t startOffset, uint64_t newSize);

/**
 * Makes a partition's file system and then the partition smaller. The system can do that for NTFS, and it moves no
 * data: it refuses (0xC0000021) while anything lies in the part that is to go.
 *
 * A shrink by no more than 1 MiB changes the file system only. When the table cannot be edited the file system stays
 * shrunk: a partition larger than its file system does no harm, and the call can be made again. What KkCreatePartition
 * says of failures at a GPT's copies holds here too.
 *
 * If the volume comes back without its drive letter it is given the letter again; whether that worked does not change
 * the result.
 *
 * @param diskNumber   N of \\.\PhysicalDriveN
 * @param startOffset  where the partition starts, which does not change
 * @param newSize      the whole new size, rounded up to whole MiB; 0 means just that
 * @return
 * - KK_STATUS_SUCCESS
 * - KK_STATUS_NOT_SUPPORTED: the disk has neither an MBR nor a GPT
 * - KK_STATUS_INVALID_PARAMETER: no partition starts there, or the rounded size is not below its present one, or it has
 *   no volume; after the file system was shrunk, when it is a logical drive or the second copy of a GPT does not list
 *   it
 * - KK_STATUS_REGISTRY_CORRUPT, KK_STATUS_NO_MEMORY, KK_STATUS_END_OF_FILE, KK_STATUS_UNSUCCESSFUL: as for
 *   KkCreatePartition
 * - the system's status from opening or shrinking the volume, or opening, reading or writing the disk
 */
KK_API KK_STATUS KK_CALL KkShrinkPartition(uint32_t diskNumber, uint64_t startOffset, uint64_t newSize);

/**
 * Puts a file system on a partition with the system's own format command, which it waits for, at most two minutes. The
 * data on the partition is lost. A volume without a drive letter, or whose letter cannot be learnt, gets the first free
 * one from D on, and keeps it whatever happens later.
 *
 * The texts reach a command interpreter as they are, unquoted, and a line above 399 units is cut. A label with blanks
 * arrives as several arguments, and characters such as & and | start further commands with the caller's rights: check
 * texts that come from others. A question that the command asks is never answered; the call then fails after two
 * minutes, and the hidden process stays.
 *
 * @param diskNumber   N of \\.\PhysicalDriveN
 * @param startOffset  where the partition starts
 * @param fileSystem   name for the format command ("NTFS", "FAT32", "exFAT"...); null or empty means "NTFS"
 * @param label        volume label; null or empty means none
 * @param quick        non-zero: only the file system's own structures are written
 * @return
 * - KK_STATUS_SUCCESS
 * - KK_STATUS_NOT_FOUND: kernel32.dll, or one of its calls for mount points, starting processes or the system folder,
 *   is missing
 * - KK_STATUS_INVALID_PARAMETER: the partition has no volume
 * - KK_STATUS_NO_MEDIA_IN_DEVICE: the volume has no letter, and none was free or could be assigned
 * - KK_STATUS_UNSUCCESSFUL: the command could not be started or failed, or did not end in time and goes on in the
 *   background; also when the system folder or the command's exit code cannot be learnt
 */
KK_API KK_STATUS KK_CALL KkFormatPartition(int32_t diskNumber, uint64_t startOffset, const KkWideChar* fileSystem,
                                           const KkWideChar* label, int32_t quick);

/**
 * Restarts the machine at once: no question, no delay, and no more notice to programs than the system gives. Needs the
 * right to shut the system down, which the call enables for the process and leaves enabled.
 *
 * @return the system's status of the shutdown request; on success the call hardly ever returns
 */
KK_API KK_STATUS KK_CALL KkReboot(void);

/**
 * Backs one disk up into a new VHDX file and leaves a manifest beside it (`imagePath` with ".json" appended).
 *
 * Each chosen partition is read from its volume's snapshot if there is one, else from the live volume. If that does not
 * open, or does not tell its clusters in use, the partition is read from the raw disk, whole. Trouble with snapshots,
 * volumes and the list of clusters in use never fails a backup; a failing read or write does. Beware of copying a
 * mounted NTFS volume whole: the system may end it a sector before its partition, and the backup then ends with
 * KK_STATUS_END_OF_FILE. `usedBlocksOnly` avoids that. It has a weakness of its own: when memory runs out while
 * the clusters in use are being listed, some are left out of the image without a failure.
 *
 * The image gets a fresh partition table: no boot code, no MBR signature, no active partition, no GPT attributes; disk
 * and partition GUIDs, types and names are kept. On an MBR disk it lists the first four partitions, logical drives
 * included, and on a GPT disk the first 128; the data of further ones is in the image, but no entry points at it.
 *
 * A failed backup leaves a half-written image file behind for the caller to delete, and no manifest. Whether the
 * manifest could be written does not change the result. There is no progress report: watch the image file grow.
 *
 * When snapshots are asked for, the thread joins the multithreaded COM apartment for the time of the call, unless it
 * belongs to another one already.
 *
 * @param diskNumber        N of \\.\PhysicalDriveN
 * @param imagePath         the VHDX file to create; must not exist
 * @param partitionNumbers  numbers (KkPartitionInfo::number) of the partitions to back up; optional when
 *                          `partitionCount` is 0
 * @param partitionCount    how many; 0 means every partition
 * @param usedBlocksOnly    non-zero: copy only the clusters that NTFS has in use; free ones read as zeros
 * @param omitRemove        non-zero: partitions that were not chosen are left out of the image's table;
 *                          0: they stay in it as regions of zeros
 * @param useSnapshots      non-zero: read from volume snapshots where possible, for at most 16 volumes
 * @param backupSetId       optional, 8-bit text: identifies the disks backed up together, at most 63 bytes are kept;
 *                          one is made up when null or empty
 * @param setDiskIndex      this disk's index within the set, for the manifest
 * @param setDiskCount      number of disks in the set, for the manifest
 * @param compact           non-zero: pack the chosen partitions together on 1 MiB boundaries and make the virtual
 *                          disk just large enough; implies `omitRemove`
 * @param result            out, optional: statistics; written when all data was copied, else untouched
 * @return
 * - KK_STATUS_SUCCESS
 * - KK_STATUS_INVALID_PARAMETER: `imagePath` is null, or `partitionNumbers` is null with a count above 0; also when a
 *   partition lies where no disk can reach, or the virtual-disk service gave no handle
 * - KK_STATUS_NOT_SUPPORTED: the disk has neither an MBR nor a GPT
 * - KK_STATUS_NOT_FOUND: the system has no virtual-disk service, or one that lacks a call; with the latter a second
 *   backup of a process leaves an empty image behind
 * - KK_STATUS_NO_MEMORY
 * - KK_STATUS_UNSUCCESSFUL: the image could not be created (the file exists, its disk would be smaller than 3 MiB,
 *   ...), attached or detached, there was no memory for its partition table, or a write made no progress; when only
 *   detaching failed, the image is complete, and the manifest and `result` were written
 * - KK_STATUS_END_OF_FILE: a volume or the disk ended early
 * - any status of the system from opening or reading the disk or writing the image
 */
KK_API KK_STATUS KK_CALL KkBackup(uint32_t diskNumber, const KkWideChar* imagePath, const uint32_t* partitionNumbers,
                                  uint32_t partitionCount, uint32_t usedBlocksOnly, uint32_t omitRemove,
                                  uint32_t useSnapshots, const char* backupSetId, uint32_t setDiskIndex,
                                  uint32_t setDiskCount, uint32_t compact, BackupResult* result);

/**
 * Tells what an image holds, reading the VHDX file directly: the virtual-disk service is not asked, and no elevated
 * process is needed.
 *
 * Images are read as they lie in the file (here and in all calls that restore): checksums are not verified, a log is
 * not replayed, a differencing image is read without its parent, and blocks that are not wholly present read as zeros.
 * So do not use images that are attached for writing, which the system as a rule does not open, or that were not
 * detached in order.
 *
 * The partitions come from the image's GPT; if it has none that can be read, from its MBR, without the logical drives
 * of an extended partition, which is itself listed, and without entries that protect a GPT or have no sectors. MBR
 * partitions are labelled by their type: "NTFS / exFAT", "Type 0x05"... A GPT that says it has no entries, more than
 * 4096, or entries below 128 bytes is a GPT without partitions.
 *
 * Call once with `partitions` null for the number of partitions, then again with that many records.
 *
 * @param imagePath   a VHDX file, growing or fixed
 * @param info        out, optional; untouched on failure
 * @param partitions  out, optional: receives at most `capacity` records in table order; untouched on failure
 * @param capacity    room in `partitions`, in records; 0 only counts
 * @param count       out, optional: the number of partitions, also when it exceeds `capacity`; 0 on failure
 * @return
 * - KK_STATUS_SUCCESS
 * - KK_STATUS_INVALID_PARAMETER: `imagePath` is null
 * - KK_STATUS_REGISTRY_CORRUPT: the file is no VHDX, or a damaged one, or its disk has neither a GPT nor an MBR with a
 *   used entry
 * - KK_STATUS_UNSUCCESSFUL: memory ran out while reading the image, or its GPT claims to be 4 GiB or larger
 * - KK_STATUS_NO_MEMORY: memory ran out while opening the file
 * - KK_STATUS_END_OF_FILE: the file ends where data should be, or has fewer than 8 bytes
 * - the system's status from opening or reading the file
 */
KK_API KK_STATUS KK_CALL KkInspectImage(const KkWideChar* imagePath, ImageInfoRecord* info,
                                        ImagePartitionRecord* partitions, uint32_t capacity, uint32_t* count);

/**
 * Attaches an image as a disk, for reading and writing: what is written to the disk changes the image. The system may
 * give the disk's volumes drive letters; they may arrive a little later. The disk stays until KkUnmountImage or a
 * restart of the machine, also when this process ends.
 *
 * Attaching needs an elevated process. While another disk with the same GPT identifier is online, such as the one that
 * was backed up, the system may leave the new disk offline, without volumes.
 *
 * @param imagePath   any image that the service knows; an absolute Windows path and no native name
 * @param diskNumber  out, optional: N of \\.\PhysicalDriveN; untouched on failure, and when the system's name of the
 *                    disk does not end in a number
 * @return
 * - KK_STATUS_SUCCESS
 * - KK_STATUS_NOT_FOUND: the system has no virtual-disk service; tested before the arguments
 * - KK_STATUS_INVALID_PARAMETER: `imagePath` is null
 * - KK_E_FILE_NOT_FOUND: the service did not open the image, whatever the reason: it is missing, no image, in use,
 *   attached already...
 * - 0x8007xxxx with the low 16 bits of the service's error, which need not be a common Win32 error: the disk was not
 *   attached, or its name could not be learnt and it is attached all the same
 */
KK_API KK_STATUS KK_CALL KkMountImage(const KkWideChar* imagePath, uint32_t* diskNumber);

/**
 * Detaches the disk that shows an image, without asking whether its volumes are in use. An overlay's file stays.
 *
 * @param imagePath  the image, as when it was mounted
 * @return
 * - KK_STATUS_SUCCESS
 * - KK_STATUS_NOT_FOUND: the system has no virtual-disk service; tested before the arguments
 * - KK_STATUS_INVALID_PARAMETER: `imagePath` is null
 * - KK_E_FILE_NOT_FOUND: the service did not open the image, whatever the reason
 * - 0x8007xxxx with the low 16 bits of the service's error: the disk was not detached, for example because there is
 *   none
 */
KK_API KK_STATUS KK_CALL KkUnmountImage(const KkWideChar* imagePath);

/**
 * Asks whether a disk is an attached virtual disk of any kind, and which file is behind it; of an overlay and its
 * parents, the first that the service lists. Whatever cannot be learnt makes the disk none: there is no such disk, no
 * virtual-disk service, no memory...
 *
 * The path is the volume of the file and its path there, joined; one of the two when the service tells only one; with
 * neither, the service's name of the device, if any. Volumes are named as the service likes (often
 * "\\?\Volume{GUID}\"), so it need not be the path that the image was mounted by.
 *
 * @param diskNumber      N of \\.\PhysicalDriveN
 * @param isImage         out, optional: 1 for an attached image, else 0
 * @param imagePath       out, optional: the file, cut to `imagePathChars` - 1 units; empty when the disk is no image
 * @param imagePathChars  room in `imagePath`, in UTF-16 units; 0 writes nothing there
 * @return KK_STATUS_SUCCESS, always
 */
KK_API KK_STATUS KK_CALL KkQueryDiskImage(uint32_t diskNumber, uint32_t* isImage, KkWideChar* imagePath,
                                          uint32_t imagePathChars);

/**
 * Restores partitions of an image onto a disk, each at the offset that it has in the image, and before that, if wanted,
 * a new GPT with the chosen partitions. The image must have a GPT.
 *
 * Chunks of 8 MiB that hold only zeros are not written: on a disk that is not blank the old bytes stay there and show
 * up inside files. Use a blank disk, or clear it first.
 *
 * Nothing is locked or dismounted: use a disk without mounted volumes. The system is not told of a new table; it shows
 * it after it has read the disk again (taken offline and online, a rescan, a restart).
 *
 * The new table keeps disk and partition GUIDs, types and names, not the attributes, so that hidden partitions are
 * hidden no more. Of two disks with the same GUID in one machine the system takes one offline. Image and disk must
 * agree in their sector size, which is not checked: the image's is used for the table. Partitions beyond the 128th get
 * no entry, though their data is restored.
 *
 * Sizes are checked before anything is written; a failure after that leaves the disk partly written.
 *
 * @param imagePath            a VHDX file; see KkInspectImage
 * @param targetPath           the whole disk (\\.\PhysicalDriveN); a plain file that exists does too
 * @param partitionNumbers     numbers (ImagePartitionRecord::number) of the partitions to restore; others are ignored;
 *                             optional when `partitionCount` is 0
 * @param partitionCount       how many; 0 means every partition
 * @param writePartitionTable  non-zero: write a new GPT; 0: leave the disk's table as it is
 * @return
 * - KK_STATUS_SUCCESS
 * - KK_STATUS_INVALID_PARAMETER: a path is null, the image has no partitions, or none was chosen; also when a table was
 *   to be written, the disk does not tell its size and the image's disk has no room for a second table
 * - KK_STATUS_BUFFER_TOO_SMALL: a chosen partition reaches into the last 34 sectors of the disk, or beyond. When the
 *   disk does not tell its size this is not tested, and a new table is made for a disk of the image's size
 * - KK_STATUS_REGISTRY_CORRUPT: the image is damaged or has no GPT
 * - KK_STATUS_NO_MEMORY
 * - KK_STATUS_UNSUCCESSFUL: memory ran out while reading the image or for the new table, or the image's GPT claims to
 *   be 4 GiB or larger, or a write made no progress
 * - KK_STATUS_END_OF_FILE: the image ends where data should be
 * - the system's status from opening, reading or writing image or disk
 */
KK_API KK_STATUS KK_CALL KkRestorePartitions(const KkWideChar* imagePath, const KkWideChar* targetPath,
                                             const uint32_t* partitionNumbers, uint32_t partitionCount,
                                             int32_t writePartitionTable);

/**
 * Creates a partition in a free region of a disk, as KkCreatePartition does, and fills it with one partition of an
 * image. A file system that is smaller than its new partition is not extended. Whatever it was in the image, the new
 * partition is of the type "basic data" (MBR: 0x07) with a new identifier and the usual name.
 *
 * The partition starts on the first 1 MiB boundary of the region, never below 1 MiB, and on a GPT disk within what the
 * GPT calls usable. What KkCreatePartition says of MBR disks and of failures at a GPT's copies holds here too, and what
 * KkRestorePartitions says of zeros and sector sizes.
 *
 * When copying fails the new partition stays in the table and the system is not told: listings do not show it until the
 * system reads the table again, and a second attempt adds another one over it.
 *
 * @param imagePath         a VHDX file with a GPT or an MBR; see KkInspectImage
 * @param partitionNumber   ImagePartitionRecord::number
 * @param targetDiskNumber  N of \\.\PhysicalDriveN
 * @param regionStart       where the free region starts
 * @param regionLength      its length; what reaches past the disk is cut off
 * @param keepSourceSize    non-zero: the partition gets the length that it has in the image, in whole sectors; 0: it
 *                          fills the region, in whole sectors
 * @return
 * - KK_STATUS_SUCCESS; the volume may arrive a little later
 * - KK_STATUS_INVALID_PARAMETER: `imagePath` is null, the image has no such partition, or a partition of the disk lies
 *   in the way
 * - KK_STATUS_NOT_SUPPORTED: the disk has neither an MBR nor a GPT
 * - KK_STATUS_BUFFER_TOO_SMALL: the region has no room for the partition; also when the disk does not tell its size
 * - KK_STATUS_DISK_FULL: the disk's table, or the second copy of its GPT, has no unused entry
 * - KK_STATUS_REGISTRY_CORRUPT: the image or the disk's table is damaged
 * - KK_STATUS_NO_MEMORY
 * - KK_STATUS_UNSUCCESSFUL: memory ran out while reading the image, or its GPT claims to be 4 GiB or larger, or a write
 *   made no progress
 * - KK_STATUS_END_OF_FILE: the image ends where data should be, or the disk ends inside its partition table
 * - the system's status from opening, reading or writing image or disk
 */
KK_API KK_STATUS KK_CALL KkRestoreToFreeSpace(const KkWideChar* imagePath, uint32_t partitionNumber,
                                              uint32_t targetDiskNumber, uint64_t regionStart, uint64_t regionLength,
                                              int32_t keepSourceSize);

/**
 * Overwrites a volume with one partition of an image and then, if wanted, extends its NTFS file system to the volume's
 * size.
 *
 * The volume is locked and dismounted first. If the system refuses, the restore is tried all the same, and refused
 * writes show as its status. A failure while copying leaves the volume partly written. Whether the file system could be
 * extended does not change the result.
 *
 * Chunks of 8 MiB that hold only zeros are not written: what the volume held there stays and shows up inside files. Use
 * a blank volume, or clear it first. Image and volume must agree in their sector size, which is not checked.
 *
 * @param imagePath         a VHDX file with a GPT or an MBR; see KkInspectImage
 * @param partitionNumber   ImagePartitionRecord::number
 * @param volumePath        the volume's device (KkPartitionInfo::deviceName, \\.\X:), without a backslash at its end,
 *                          which KkPartitionInfo::volumePath has: with it the name is that of a folder
 * @param extendFileSystem  non-zero: extend the file system afterwards
 * @return
 * - KK_STATUS_SUCCESS
 * - KK_STATUS_INVALID_PARAMETER: a path is null, or the image has no such partition
 * - KK_STATUS_BUFFER_TOO_SMALL: the volume is smaller than the partition; it was dismounted, and nothing was written.
 *   Not tested when the volume does not tell its size
 * - KK_STATUS_REGISTRY_CORRUPT: the image is damaged
 * - KK_STATUS_NO_MEMORY
 * - KK_STATUS_UNSUCCESSFUL: memory ran out while reading the image, or its GPT claims to be 4 GiB or larger; or a write
 *   made no progress, for example past the end of a smaller file system that the volume holds: an unformatted volume
 *   avoids that
 * - KK_STATUS_END_OF_FILE: the image ends where data should be
 * - the system's status from opening, reading or writing image or volume
 */
KK_API KK_STATUS KK_CALL KkRestoreToVolume(const KkWideChar* imagePath, uint32_t partitionNumber,
                                           const KkWideChar* volumePath, uint32_t extendFileSystem);

/**
 * Copies a volume onto another one and then, if wanted, extends the copy's NTFS file system to the volume's size. NTFS
 * volumes are copied as far as their file system reaches, others whole.
 *
 * The target is locked and dismounted first, as by KkRestoreToVolume, and what that says of zeros and sector sizes
 * holds here too. The source is neither locked nor dismounted: copy volumes that nobody writes to, such as those of
 * snapshots or mounted images.
 *
 * An unreadable place in the source ends the copy there, and that is a success: compare the volumes when the source may
 * be damaged. On disks with sectors above 512 bytes up to 8 MiB before the place are left out too.
 *
 * @param sourcePath        the source volume's device, as for KkRestoreToVolume
 * @param targetPath        the target volume's device, likewise
 * @param extendFileSystem  non-zero: extend the file system afterwards; whether it could be does not change the result
 * @return
 * - KK_STATUS_SUCCESS
 * - KK_STATUS_INVALID_PARAMETER: a path is null
 * - KK_STATUS_UNSUCCESSFUL: the source does not tell its size, or a write made no progress, as for KkRestoreToVolume
 * - KK_STATUS_BUFFER_TOO_SMALL: the target is smaller than what is to be copied; nothing was done to it. Not tested
 *   when it does not tell its size
 * - KK_STATUS_NO_MEMORY
 * - the system's status from opening a volume, or from writing the target, which is then partly written
 */
KK_API KK_STATUS KK_CALL KkCloneVolume(const KkWideChar* sourcePath, const KkWideChar* targetPath,
                                       uint32_t extendFileSystem);

/**
 * Attaches an image as a disk without ever changing it: what is written to the disk goes into a new differencing file,
 * the overlay. Apart from that as KkMountImage; KkDiscardOverlay ends it.
 *
 * The image must neither change nor be attached for writing as long as the overlay exists.
 *
 * @param parentImagePath  the image, a VHDX file; an absolute Windows path and no native name
 * @param overlayPath      the overlay file to create; must not exist. An absolute Windows path (C:\...) without a
 *                         prefix, or KkDiscardOverlay does not find the file. Failures other than 0x80070050 may leave
 *                         it behind: KkDiscardOverlay deletes it
 * @param diskNumber       out, optional: as for KkMountImage
 * @return
 * - KK_STATUS_SUCCESS
 * - KK_STATUS_NOT_FOUND: the system has no virtual-disk service, or none that creates files; tested before the
 *   arguments
 * - KK_STATUS_INVALID_PARAMETER: a path is null
 * - 0x8007xxxx with the low 16 bits of the service's error: the overlay was not created (0x80070050: the file exists;
 *   0x80070002: the image does not), not attached, or the disk's name could not be learnt and it is attached all the
 *   same; 0x80070001 when the service gave no handle
 */
KK_API KK_STATUS KK_CALL KkMountImageOverlay(const KkWideChar* parentImagePath, const KkWideChar* overlayPath,
                                             uint32_t* diskNumber);

/**
 * Detaches the disk that shows an overlay and deletes the overlay's file, with all that was written to the disk. The
 * deletion is tried whatever becomes of the rest, so this also clears away a file that is not mounted; whether it
 * worked is not reported. Beware: whatever file the path names is deleted, an image too.
 *
 * @param overlayPath  the overlay's file, an absolute Windows path (C:\...) without a prefix: with one, the file is not
 *                     found and stays
 * @return what KkUnmountImage returns for the file, which says nothing about the deletion. With a null path none is
 *         tried; that is KK_STATUS_INVALID_PARAMETER, or KK_STATUS_NOT_FOUND without a virtual-disk service
 */
KK_API KK_STATUS KK_CALL KkDiscardOverlay(const KkWideChar* overlayPath);

/**
 * Restores one partition of an image into a partition of a disk that may be smaller. In an overlay of the image the
 * partition is shrunk until it fits (NTFS only), then its volume is cloned onto the target volume and the file system
 * extended to fill it. The image is not changed, but it must not be attached.
 *
 * The overlay is a file beside the image, `imagePath` with ".rec.avhdx" appended (`imagePath` is cut to 580 units). It
 * is detached and deleted at the end, after a failure too; whether that worked is not reported. One that an earlier run
 * left makes the call fail with 0x80070050, once image and target have been found, and is deleted by that. So two
 * recoveries from one image must not overlap: the second would detach the overlay of the first.
 *
 * A target up to 128 MiB is aimed at exactly, a larger one less 64 MiB. Sizes are rounded up to whole MiB on the way,
 * so a target up to 128 MiB should be a multiple of 1 MiB. Searched are the first 64 partitions of image and disk.
 *
 * What KkMountImage says of rights and of disks with the same identifier holds here too, and what KkCloneVolume says of
 * its target and of unreadable places.
 *
 * @param imagePath              a VHDX file, an absolute Windows path (C:\...) without a prefix
 * @param partitionNumber        ImagePartitionRecord::number
 * @param targetDiskNumber       N of \\.\PhysicalDriveN
 * @param targetPartitionOffset  where the target partition starts
 * @return
 * - KK_STATUS_SUCCESS
 * - KK_STATUS_NO_MEMORY
 * - KK_STATUS_NOT_FOUND: the system has no virtual-disk service, or none that creates files
 * - KK_STATUS_UNSUCCESSFUL: the image could not be inspected (also when `imagePath` is null) or the target disk could
 *   not be listed, for whatever reason; the source does not tell its size, or a write made no progress
 * - KK_STATUS_INVALID_PARAMETER: the image or the disk has no such partition; or, when it must be shrunk, the image's
 *   partition has no volume or that had not arrived yet (try again), or the size in whole MiB is not below its own
 * - KK_STATUS_NO_MEDIA_IN_DEVICE: the target has no volume, or the image's partition has none and need not be shrunk,
 *   or it had not arrived yet (try again)
 * - KK_STATUS_BUFFER_TOO_SMALL: what is to be copied is still larger than the target volume
 * - 0xC0000021: the file system has data where it is to be cut off, and cannot be shrunk that far
 * - what else KkMountImageOverlay, KkShrinkPartition and KkCloneVolume return; the target is untouched unless the last
 *   of these began to copy
 */
KK_API KK_STATUS KK_CALL KkRecoverShrinkToFit(const KkWideChar* imagePath, int32_t partitionNumber,
                                              uint32_t targetDiskNumber, uint64_t targetPartitionOffset);

#if defined(__cplusplus)
}
#endif

#endif
