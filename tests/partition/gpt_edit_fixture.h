#pragma once

#include <functional>
#include <string>
#include <vector>

#include "machine/crc32.h"
#include "machine/table_builder.h"
#include "machine/table_format.h"
#include "partition/gpt_edit.h"
#include "partition/transfer_steps.h"
#include "support/byte_device.h"

/// A test of edits of a GPT. What lies behind the tables' own bytes is 0xEE.
class GptEditTest : public ByteDeviceTest {
protected:
    enum Copy { kPrimary, kBackup };

    static constexpr kk::Guid kType = {0x01020304, 0x0506, 0x0708, {9, 10, 11, 12, 13, 14, 15, 16}};
    static constexpr kk::Guid kId = {0x21222324, 0x2526, 0x2728, {41, 42, 43, 44, 45, 46, 47, 48}};
    static constexpr uint32_t kUntouched = 0xABABABAB;

    /// A disk of 1 MiB with partitions of a sector each that begin at these LBAs, in slots that follow each other.
    void UseGpt(const std::vector<uint64_t>& starts, uint32_t bytesInSector = 512)
    {
        machine::GptTable table;
        for (const uint64_t start : starts) {
            table.partitions.push_back({.start = start * bytesInSector, .length = bytesInSector});
        }
        UseTable(table, bytesInSector);
    }

    void UseTable(const machine::GptTable& table, uint32_t bytesInSector = 512, uint64_t bytesOnDisk = 1 * kMiB)
    {
        UseMemory(bytesOnDisk);
        size = bytesOnDisk;
        sectorSize = bytesInSector;
        machine::WriteGptTable(*storage, sectorSize, table);
    }

    /// Both copies of a table of four entries, of which the first is a partition at `start`, with sectors that are too
    /// small for a boot record.
    void UseSmallSectors(uint32_t bytesInSector, uint64_t start)
    {
        UseMemory(1 * kMiB);
        size = 1 * kMiB;
        sectorSize = bytesInSector;
        for (const Copy copy : {kPrimary, kBackup}) {
            machine::GptHeaderRecord header = {};
            std::copy(std::begin(machine::kGptSignature), std::end(machine::kGptSignature), header.signature);
            header.headerBytes = sizeof(header);
            header.otherLba = copy == kPrimary ? LastLba() : 1;
            header.entriesLba = copy == kPrimary ? 10 : LastLba() - 100;
            header.entryCount = 4;
            header.entryBytes = sizeof(machine::GptEntryRecord);
            EXPECT_TRUE(storage->Write(HeaderOffset(copy), machine::BytesOf(header)));
            EXPECT_TRUE(storage->Write(ArrayOffset(copy), std::vector<uint8_t>(ArrayBytes(copy))));
        }
        ChangeBothEntries(0, [start](auto& entry) {
            entry.type = kType;
            entry.firstLba = start;
        });
    }

    uint64_t LastLba() const { return size / sectorSize - 1; }
    uint64_t HeaderOffset(Copy copy) const { return (copy == kPrimary ? 1 : LastLba()) * sectorSize; }
    uint64_t ArrayOffset(Copy copy) { return Header(copy).entriesLba * sectorSize; }
    uint64_t ArrayBytes(Copy copy) { return uint64_t{Header(copy).entryCount} * Header(copy).entryBytes; }
    uint64_t EntryOffset(Copy copy, uint64_t slot) { return ArrayOffset(copy) + slot * Header(copy).entryBytes; }

    template <typename Record>
    Record RecordAt(uint64_t offset)
    {
        return machine::TakeRecord<Record>(Bytes(offset, sizeof(Record)));
    }

    machine::GptHeaderRecord Header(Copy copy) { return RecordAt<machine::GptHeaderRecord>(HeaderOffset(copy)); }

    /// Changes a header without renewing its checksum, which edits do not look at.
    void ChangeHeader(Copy copy, const std::function<void(machine::GptHeaderRecord&)>& change)
    {
        machine::GptHeaderRecord header = Header(copy);
        change(header);
        EXPECT_TRUE(storage->Write(HeaderOffset(copy), machine::BytesOf(header)));
    }

    /// The entry in a slot, counted from 0.
    machine::GptEntryRecord Entry(Copy copy, uint64_t slot)
    {
        return RecordAt<machine::GptEntryRecord>(EntryOffset(copy, slot));
    }

    void ChangeEntry(Copy copy, uint64_t slot, const std::function<void(machine::GptEntryRecord&)>& change)
    {
        machine::GptEntryRecord entry = Entry(copy, slot);
        change(entry);
        EXPECT_TRUE(storage->Write(EntryOffset(copy, slot), machine::BytesOf(entry)));
    }

    void ChangeBothEntries(uint64_t slot, const std::function<void(machine::GptEntryRecord&)>& change)
    {
        ChangeEntry(kPrimary, slot, change);
        ChangeEntry(kBackup, slot, change);
    }

    static kk::GptEdit Adding(uint64_t firstLba, uint64_t lastLba, const char16_t* name = u"Name")
    {
        return {.mode = kk::TableEditMode::Add,
                .firstLba = firstLba,
                .lastLba = lastLba,
                .typeGuid = kType,
                .uniqueGuid = kId,
                .name = name};
    }

    static kk::GptEdit Removing(uint64_t matchLba) { return {.mode = kk::TableEditMode::Remove, .matchLba = matchLba}; }

    static kk::GptEdit Resizing(uint64_t matchLba, uint64_t lastLba)
    {
        return {.mode = kk::TableEditMode::Resize, .matchLba = matchLba, .lastLba = lastLba};
    }

    KK_STATUS Edit(const kk::GptEdit& edit)
    {
        number = kUntouched;
        machine.journal.Clear();
        machine.heap.ResetCounters();
        return kk::EditGptPartition(*target, sectorSize, edit, &number);
    }

    std::vector<std::string> Steps() const { return TransferSteps(machine.journal); }
    std::vector<uint8_t> WholeDisk() { return Bytes(0, size); }

    /// Both checksums of a copy, computed from what lies on the disk.
    void ExpectValidChecksums(Copy copy)
    {
        machine::GptHeaderRecord header = Header(copy);
        EXPECT_EQ(header.entriesCrc32, machine::Crc32(Bytes(ArrayOffset(copy), ArrayBytes(copy)))) << copy;
        const uint32_t stored = header.headerCrc32;
        header.headerCrc32 = 0;
        EXPECT_EQ(stored, machine::Crc32(machine::BytesOf(header))) << copy;
    }

    uint64_t size = 0;
    uint32_t sectorSize = 512;
    uint32_t number = kUntouched;
};
