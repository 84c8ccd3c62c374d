#include <utility>

#include "machine/gpt_copy.h"
#include "machine/table_editor.h"

namespace machine {

namespace {

bool SetLength(GptCopy& copy, uint64_t start, uint64_t length)
{
    for (uint64_t at = 0; at < copy.entries.size(); at += copy.header.entryBytes) {
        auto entry = TakeRecord<GptEntryRecord>(copy.entries, at);
        if (entry.type != kk::Guid{} && entry.firstLba == start) {
            entry.lastLba = start + length - 1;
            PutRecord(copy.entries, at, entry);
            return true;
        }
    }
    return false;
}

/// The same table as it lies at the other end of the disk.
GptCopy OtherCopyOf(const GptCopy& copy, uint32_t sectorSize)
{
    GptCopy other = copy;
    std::swap(other.header.ownLba, other.header.otherLba);
    const uint64_t entrySectors = (copy.entries.size() + sectorSize - 1) / sectorSize;
    other.header.entriesLba = other.header.ownLba == 1 ? 2 : other.header.ownLba - entrySectors;
    return other;
}

}  // namespace

/// The driver writes both copies from what it knows, so a damaged one is whole again afterwards.
Status ResizeGptEntry(Storage& storage, uint32_t sectorSize, uint64_t start, uint64_t length)
{
    GptCopy known;
    if (!ReadGptCopy(storage, sectorSize, 1, known) &&
        !ReadGptCopy(storage, sectorSize, storage.Size() / sectorSize - 1, known)) {
        return kDiskCorruptError;
    }
    if (!SetLength(known, start, length)) {
        return kInvalidParameter;
    }
    GptCopy second = OtherCopyOf(known, sectorSize);
    if (GptCopy present; ReadGptCopy(storage, sectorSize, second.header.ownLba, present)) {
        second.header.entriesLba = present.header.entriesLba;
    }
    const bool written = WriteGptCopy(storage, sectorSize, known) && WriteGptCopy(storage, sectorSize, second);
    return written ? kSuccess : kIoDeviceError;
}

}  // namespace machine
