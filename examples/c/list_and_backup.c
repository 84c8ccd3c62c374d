/*
 * Lists all disks and partitions, or backs a disk up and shows how far it is. For an elevated prompt on Windows:
 *
 *     list_and_backup
 *     list_and_backup DISK IMAGE
 *
 * x86_64-w64-mingw32-gcc -municode -Iinclude examples/c/list_and_backup.c -Lbuild/dll -lKestrelkitCore
 */
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <wchar.h>

#include <windows.h>

#include "kestrelkit/kestrelkit.h"

enum { REFRESH_MILLISECONDS = 500 };

/* The library writes 0 into reserved12 once all data is in the image. */
static const uint32_t UNTOUCHED = 0xFFFFFFFF;

static int Fail(const wchar_t* what, KK_STATUS status)
{
    fwprintf(stderr, L"%ls: 0x%08X\n", what, (unsigned)status);
    return 1;
}

/* Counts and fetches a disk's partitions. The caller frees *records. */
static KK_STATUS FetchPartitions(uint32_t disk, KkPartitionInfo** records, uint32_t* fetched)
{
    *records = NULL;
    *fetched = 0;
    uint32_t count = 0;
    KK_STATUS status = KkListPartitions(disk, NULL, 0, &count);
    if (status < 0) {
        return status;
    }
    const uint32_t capacity = count;
    /* Zeroed, as the library wants it; one more, because a request for nothing may answer null. */
    *records = calloc((size_t)capacity + 1, sizeof **records);
    if (*records == NULL) {
        return KK_STATUS_NO_MEMORY;
    }
    status = KkListPartitions(disk, *records, capacity, &count);
    if (status >= 0) {
        /* There may be more of them by now, or fewer. */
        *fetched = count < capacity ? count : capacity;
    }
    return status;
}

static void PrintPartition(const KkPartitionInfo* record)
{
    /* Text may fill its field and lies at an odd address: copies, with room for a terminator. */
    wchar_t name[37] = {0};
    wchar_t fileSystem[13] = {0};
    wchar_t letter[5] = {0};
    memcpy(name, record->name, sizeof record->name);
    memcpy(fileSystem, record->fileSystemName, sizeof record->fileSystemName);
    memcpy(letter, record->driveLetter, sizeof record->driveLetter);
    wprintf(L"  %2lu  at %12llu  %8llu MiB  %-3ls %-6ls %ls\n", (unsigned long)record->number,
            (unsigned long long)record->startOffset, (unsigned long long)(record->length >> 20), letter, fileSystem,
            name);
}

static int ListPartitions(uint32_t disk)
{
    KkPartitionInfo* records = NULL;
    uint32_t count = 0;
    const KK_STATUS status = FetchPartitions(disk, &records, &count);
    for (uint32_t i = 0; i < count; ++i) {
        PrintPartition(&records[i]);
    }
    free(records);
    return status < 0 ? Fail(L"KkListPartitions", status) : 0;
}

static int ListAll(void)
{
    KkDiskInfo disks[32] = {{0}}; /* more there cannot be */
    uint32_t count = 0;
    const KK_STATUS status = KkListDisks(disks, 32, &count);
    if (status < 0) {
        return Fail(L"KkListDisks", status);
    }
    if (count == 0) {
        wprintf(L"No disk can be read. Is this process elevated?\n");
    }
    int result = 0;
    for (uint32_t i = 0; i < count; ++i) {
        static const wchar_t* const styles[] = {L"no table", L"MBR", L"GPT"};
        wprintf(L"Disk %lu: %llu MiB, %ls\n", (unsigned long)disks[i].number, (unsigned long long)(disks[i].size >> 20),
                disks[i].partitionStyle < 3 ? styles[disks[i].partitionStyle] : L"?");
        result |= ListPartitions(disks[i].number);
    }
    return result;
}

/* What the backup's thread gets and leaves. */
struct Backup {
    uint32_t disk;
    const wchar_t* image;
    BackupResult result;
    KK_STATUS status;
};

static DWORD WINAPI RunBackup(void* argument)
{
    struct Backup* backup = argument;
    backup->status = KkBackup(backup->disk, backup->image, NULL, 0, 1, 0, 1, NULL, 0, 1, 0, &backup->result);
    return 0;
}

/* By path: a listing of the folder lags behind while the file is open. */
static uint64_t SizeOf(const wchar_t* path)
{
    WIN32_FILE_ATTRIBUTE_DATA data;
    if (!GetFileAttributesExW(path, GetFileExInfoStandard, &data)) {
        return 0;
    }
    return ((uint64_t)data.nFileSizeHigh << 32) | data.nFileSizeLow;
}

static uint64_t BytesToCopy(uint32_t disk)
{
    KkPartitionInfo* records = NULL;
    uint32_t count = 0;
    uint64_t sum = 0;
    if (FetchPartitions(disk, &records, &count) >= 0) {
        for (uint32_t i = 0; i < count; ++i) {
            sum += records[i].length;
        }
    }
    free(records);
    return sum;
}

static int BackUp(uint32_t disk, const wchar_t* image)
{
    if (GetFileAttributesW(image) != INVALID_FILE_ATTRIBUTES) {
        fwprintf(stderr, L"%ls exists already\n", image);
        return 1;
    }
    const uint64_t total = BytesToCopy(disk);
    struct Backup backup = {.disk = disk, .image = image, .result = {.reserved12 = UNTOUCHED}};
    const HANDLE thread = CreateThread(NULL, 0, RunBackup, &backup, 0, NULL);
    if (thread == NULL) {
        fwprintf(stderr, L"no thread: error %lu\n", GetLastError());
        return 1;
    }
    while (WaitForSingleObject(thread, REFRESH_MILLISECONDS) == WAIT_TIMEOUT) {
        wprintf(L"\r%llu MiB of at most %llu MiB", (unsigned long long)(SizeOf(image) >> 20),
                (unsigned long long)(total >> 20));
        fflush(stdout);
    }
    CloseHandle(thread);
    wprintf(L"\n");

    if (backup.result.reserved12 != UNTOUCHED) {
        wprintf(L"%lu partitions, %llu bytes, snapshots: %ls\n", (unsigned long)backup.result.partitionsCopied,
                (unsigned long long)backup.result.bytesCopied, backup.result.snapshotsUsed ? L"yes" : L"no");
    } else {
        /* Half an image, or none. It was not there before, so it is ours. */
        DeleteFileW(image);
    }
    return backup.status < 0 ? Fail(L"KkBackup", backup.status) : 0;
}

int wmain(int count, wchar_t** arguments)
{
    if (count == 1) {
        return ListAll();
    }
    wchar_t* end = NULL;
    const unsigned long disk = wcstoul(arguments[1], &end, 10);
    wchar_t image[32768];
    if (count != 3 || end == arguments[1] || *end != L'\0' ||
        GetFullPathNameW(arguments[2], sizeof image / sizeof *image, image, NULL) == 0) {
        fwprintf(stderr, L"usage: list_and_backup [DISK IMAGE]\n");
        return 2;
    }
    return BackUp(disk, image);
}
