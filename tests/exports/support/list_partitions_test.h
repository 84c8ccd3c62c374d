#pragma once

#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

#include "disk/volume_controls.h"
#include "exports/support/export_test.h"

/// A text field of a record, up to its terminator or its end; its address may be odd.
inline std::u16string TextAt(const KkPartitionInfo& record, size_t offset, size_t bytes)
{
    std::u16string text(bytes / sizeof(char16_t), u'\0');
    std::memcpy(text.data(), reinterpret_cast<const uint8_t*>(&record) + offset, bytes);
    return text.substr(0, text.find(u'\0'));
}

#define TEXT_OF(record, field) TextAt((record), offsetof(KkPartitionInfo, field), sizeof((record).field))

class ListPartitionsTest : public ExportTest {
protected:
    /// The partitions of a disk, in records that held nothing but `fill` before.
    std::vector<KkPartitionInfo> List(uint32_t disk, uint32_t capacity = 16, uint8_t fill = 0)
    {
        std::vector<KkPartitionInfo> records(capacity);
        std::memset(static_cast<void*>(records.data()), fill, records.size() * sizeof(KkPartitionInfo));
        status = api.listPartitions(disk, records.data(), capacity, &count);
        records.resize(std::min(count, capacity));
        return records;
    }

    machine::Disk& AddGptDisk()
    {
        return machine.AddDisk(64 * kMiB).Gpt(
            {.partitions = {
                 {.start = kMiB, .length = 16 * kMiB, .name = u"First"},
                 {.start = 20 * kMiB, .length = 40 * kMiB, .type = machine::kEfiSystemType, .name = u"Second"}}});
    }

    /// What describes the partition itself is right; each text and the size of its volume is right or missing.
    static void ExpectTruthOrNothing(const KkPartitionInfo& record, const KkPartitionInfo& truth)
    {
        EXPECT_EQ(std::memcmp(&record, &truth, offsetof(KkPartitionInfo, driveLetter)), 0);
        EXPECT_TRUE(record.fileSystemSize == 0 || record.fileSystemSize == truth.fileSystemSize);
        const auto rightOrMissing = [](const std::u16string& text, const std::u16string& right) {
            EXPECT_TRUE(text.empty() || text == right);
        };
        rightOrMissing(TEXT_OF(record, driveLetter), TEXT_OF(truth, driveLetter));
        rightOrMissing(TEXT_OF(record, fileSystemName), TEXT_OF(truth, fileSystemName));
        rightOrMissing(TEXT_OF(record, deviceName), TEXT_OF(truth, deviceName));
        rightOrMissing(TEXT_OF(record, volumePath), TEXT_OF(truth, volumePath));
    }

    /// What records are filled with to see which bytes are written.
    static constexpr uint8_t kPattern = 0xEE;

    uint32_t count = 0xFFFF;
    int32_t status = -1;
};
