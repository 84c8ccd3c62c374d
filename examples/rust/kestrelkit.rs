//! KestrelkitCore.dll for Rust: its records and functions. For 64-bit Windows; kestrelkit.h says what the functions do.
//! Negative results are failures. Records for listings must be zero-filled: make them with `Default::default()`.
//!
//! Fields of packed records are copied, never borrowed: `{ record.length }`.
#![allow(non_snake_case, dead_code)]

use std::mem::size_of;

pub type KkStatus = i32;

/// One UTF-16 unit.
pub type KkWideChar = u16;

pub const KK_PARTITION_STYLE_RAW: u32 = 0;
pub const KK_PARTITION_STYLE_MBR: u32 = 1;
pub const KK_PARTITION_STYLE_GPT: u32 = 2;

/// A physical disk.
#[repr(C, packed)]
#[derive(Clone, Copy)]
pub struct KkDiskInfo {
    pub number: u32,
    pub notWritten4: u32,
    pub size: u64,
    pub sectorSize: u32,
    pub partitionStyle: u32,
    pub partitionCount: u32,
    pub notWritten28: u32,
}

/// A partition of a disk. Text need not have a terminator: read it with `text_of`.
#[repr(C, packed)]
#[derive(Clone, Copy)]
pub struct KkPartitionInfo {
    pub number: u32,
    pub startOffset: u64,
    pub length: u64,
    pub typeGuid: [u8; 16],
    pub mbrType: u8,
    pub name: [KkWideChar; 36],
    pub driveLetter: [KkWideChar; 4],
    pub fileSystemSize: u64,
    pub fileSystemName: [KkWideChar; 12],
    pub deviceName: [KkWideChar; 48],
    pub volumePath: [KkWideChar; 64],
}

/// What a backup did.
#[repr(C, packed)]
#[derive(Clone, Copy)]
pub struct BackupResult {
    pub snapshotsRequested: u32,
    pub snapshotsUsed: u32,
    pub partitionsCopied: u32,
    pub reserved12: u32,
    pub bytesCopied: u64,
    pub snapshotUsedBlockCopies: u32,
    pub snapshotWholeCopies: u32,
    pub liveUsedBlockCopies: u32,
    pub liveWholeCopies: u32,
    pub rawDiskCopies: u32,
    pub reserved44: u32,
}

/// What an image holds.
#[repr(C, packed)]
#[derive(Clone, Copy)]
pub struct ImageInfoRecord {
    pub virtualSize: u64,
    pub logicalSectorSize: u32,
    pub blockSize: u32,
    pub diskGuid: [u8; 16],
    pub partitionCount: u32,
    pub partitionStyle: u32,
}

/// A partition in an image.
#[repr(C, packed)]
#[derive(Clone, Copy)]
pub struct ImagePartitionRecord {
    pub number: u32,
    pub offset: u64,
    pub length: u64,
    pub typeGuid: [u8; 16],
    pub name: [KkWideChar; 36],
}

macro_rules! record {
    ($name:ident, $size:expr) => {
        const _: [(); $size] = [(); size_of::<$name>()];

        impl Default for $name {
            fn default() -> Self {
                // All fields are integers, for which zeros are a value.
                unsafe { std::mem::zeroed() }
            }
        }
    };
}

record!(KkDiskInfo, 32);
record!(KkPartitionInfo, 373);
record!(BackupResult, 48);
record!(ImageInfoRecord, 40);
record!(ImagePartitionRecord, 108);

#[link(name = "KestrelkitCore")]
extern "system" {
    pub fn KkListDisks(records: *mut KkDiskInfo, capacity: u32, count: *mut u32) -> KkStatus;
    pub fn KkListPartitions(
        diskNumber: u32,
        records: *mut KkPartitionInfo,
        capacity: u32,
        count: *mut u32,
    ) -> KkStatus;
    pub fn KkSetDriveLetter(diskNumber: u32, startOffset: u64, letter: KkWideChar) -> KkStatus;
    pub fn KkAddMountPoint(diskNumber: u32, startOffset: u64, directory: *const KkWideChar) -> KkStatus;
    pub fn KkCreatePartition(
        diskNumber: u32,
        regionStart: u64,
        regionLength: u64,
        size: u64,
        startOffset: *mut u64,
    ) -> KkStatus;
    pub fn KkDeletePartition(diskNumber: u32, startOffset: u64) -> KkStatus;
    pub fn KkExtendPartition(diskNumber: u32, startOffset: u64, newSize: u64) -> KkStatus;
    pub fn KkShrinkPartition(diskNumber: u32, startOffset: u64, newSize: u64) -> KkStatus;
    pub fn KkFormatPartition(
        diskNumber: i32,
        startOffset: u64,
        fileSystem: *const KkWideChar,
        label: *const KkWideChar,
        quick: i32,
    ) -> KkStatus;
    pub fn KkReboot() -> KkStatus;
    pub fn KkBackup(
        diskNumber: u32,
        imagePath: *const KkWideChar,
        partitionNumbers: *const u32,
        partitionCount: u32,
        usedBlocksOnly: u32,
        omitRemove: u32,
        useSnapshots: u32,
        backupSetId: *const u8,
        setDiskIndex: u32,
        setDiskCount: u32,
        compact: u32,
        result: *mut BackupResult,
    ) -> KkStatus;
    pub fn KkInspectImage(
        imagePath: *const KkWideChar,
        info: *mut ImageInfoRecord,
        partitions: *mut ImagePartitionRecord,
        capacity: u32,
        count: *mut u32,
    ) -> KkStatus;
    pub fn KkMountImage(imagePath: *const KkWideChar, diskNumber: *mut u32) -> KkStatus;
    pub fn KkUnmountImage(imagePath: *const KkWideChar) -> KkStatus;
    pub fn KkQueryDiskImage(
        diskNumber: u32,
        isImage: *mut u32,
        imagePath: *mut KkWideChar,
        imagePathChars: u32,
    ) -> KkStatus;
    pub fn KkRestorePartitions(
        imagePath: *const KkWideChar,
        targetPath: *const KkWideChar,
        partitionNumbers: *const u32,
        partitionCount: u32,
        writePartitionTable: i32,
    ) -> KkStatus;
    pub fn KkRestoreToFreeSpace(
        imagePath: *const KkWideChar,
        partitionNumber: u32,
        targetDiskNumber: u32,
        regionStart: u64,
        regionLength: u64,
        keepSourceSize: i32,
    ) -> KkStatus;
    pub fn KkRestoreToVolume(
        imagePath: *const KkWideChar,
        partitionNumber: u32,
        volumePath: *const KkWideChar,
        extendFileSystem: u32,
    ) -> KkStatus;
    pub fn KkCloneVolume(
        sourcePath: *const KkWideChar,
        targetPath: *const KkWideChar,
        extendFileSystem: u32,
    ) -> KkStatus;
    pub fn KkMountImageOverlay(
        parentImagePath: *const KkWideChar,
        overlayPath: *const KkWideChar,
        diskNumber: *mut u32,
    ) -> KkStatus;
    pub fn KkDiscardOverlay(overlayPath: *const KkWideChar) -> KkStatus;
    pub fn KkRecoverShrinkToFit(
        imagePath: *const KkWideChar,
        partitionNumber: i32,
        targetDiskNumber: u32,
        targetPartitionOffset: u64,
    ) -> KkStatus;
}

/// The text in a record's field, up to its terminator or its end.
pub fn text_of(field: &[KkWideChar]) -> String {
    let end = field.iter().position(|&unit| unit == 0).unwrap_or(field.len());
    String::from_utf16_lossy(&field[..end])
}

/// Text as the library takes it.
pub fn wide(text: &str) -> Vec<KkWideChar> {
    text.encode_utf16().chain(std::iter::once(0)).collect()
}

fn fetch<R: Clone + Default>(
    call: impl Fn(*mut R, u32, *mut u32) -> KkStatus,
) -> Result<Vec<R>, KkStatus> {
    let mut count = 0;
    let status = call(std::ptr::null_mut(), 0, &mut count);
    if status < 0 {
        return Err(status);
    }
    let mut records = vec![R::default(); count as usize];
    let status = call(records.as_mut_ptr(), count, &mut count);
    if status < 0 {
        return Err(status);
    }
    // There may be more of them by now, or fewer.
    records.truncate(count as usize);
    Ok(records)
}

pub fn list_disks() -> Result<Vec<KkDiskInfo>, KkStatus> {
    fetch(|records, capacity, count| unsafe { KkListDisks(records, capacity, count) })
}

pub fn list_partitions(disk: u32) -> Result<Vec<KkPartitionInfo>, KkStatus> {
    fetch(|records, capacity, count| unsafe { KkListPartitions(disk, records, capacity, count) })
}
