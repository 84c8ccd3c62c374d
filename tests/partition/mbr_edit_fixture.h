#pragma once

#include <string>
#include <vector>

#include "machine/table_format.h"
#include "partition/mbr_edit.h"
#include "partition/transfer_steps.h"
#include "support/byte_device.h"

/// A test of edits of an MBR. What the sector holds besides the table is 0xEE.
class MbrEditTest : public ByteDeviceTest {
protected:
    static constexpr uint32_t kUntouched = 0xABABABAB;
    static constexpr uint64_t kRecordsOffset = offsetof(machine::MbrRecord, entries);
    static constexpr uint64_t kRecordBytes = sizeof(machine::MbrEntryRecord);
    static constexpr uint64_t kSize = 64 * kKiB;

    /// A boot record with these types in its slots, each from LBA 100 x slot for 10 x slot sectors, counted from 1.
    void UseMbr(const std::vector<uint8_t>& types, uint32_t bytesInSector = 512)
    {
        UseMemory(kSize);
        sectorSize = bytesInSector;
        EXPECT_TRUE(storage->Write(kRecordsOffset, std::vector<uint8_t>(4 * kRecordBytes)));
        EXPECT_TRUE(storage->Write(510, std::vector<uint8_t>{0x55, 0xAA}));
        for (uint32_t i = 0; i < types.size(); ++i) {
            SetRecord(i, {0x80, {1, 2, 3}, types[i], {4, 5, 6}, 100 * (i + 1), 10 * (i + 1)});
        }
    }

    /// Slots are counted from 0.
    void SetRecord(uint64_t slot, const machine::MbrEntryRecord& record)
    {
        EXPECT_TRUE(storage->Write(kRecordsOffset + slot * kRecordBytes, machine::BytesOf(record)));
    }

    std::vector<uint8_t> Record(uint64_t slot) { return Bytes(kRecordsOffset + slot * kRecordBytes, kRecordBytes); }

    /// The disk with the bytes of one record replaced.
    std::vector<uint8_t> DiskWith(uint64_t slot, const std::vector<uint8_t>& record)
    {
        std::vector<uint8_t> disk = WholeDisk();
        std::copy(record.begin(), record.end(),
                  disk.begin() + static_cast<ptrdiff_t>(kRecordsOffset + slot * kRecordBytes));
        return disk;
    }

    static kk::MbrEdit Adding(uint64_t firstLba, uint64_t sectorCount, uint8_t type = 0x07)
    {
        return {.mode = kk::TableEditMode::Add, .firstLba = firstLba, .sectorCount = sectorCount, .type = type};
    }

    static kk::MbrEdit Removing(uint64_t matchLba) { return {.mode = kk::TableEditMode::Remove, .matchLba = matchLba}; }

    static kk::MbrEdit Resizing(uint64_t matchLba, uint64_t sectorCount)
    {
        return {.mode = kk::TableEditMode::Resize, .matchLba = matchLba, .sectorCount = sectorCount};
    }

    KK_STATUS Edit(const kk::MbrEdit& edit)
    {
        number = kUntouched;
        machine.journal.Clear();
        machine.heap.ResetCounters();
        return kk::EditMbrPartition(*target, sectorSize, edit, &number);
    }

    std::vector<std::string> Steps() const { return TransferSteps(machine.journal); }
    std::vector<uint8_t> WholeDisk() { return Bytes(0, kSize); }

    uint32_t sectorSize = 512;
    uint32_t number = kUntouched;
};
