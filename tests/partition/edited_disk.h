#pragma once

#include <filesystem>
#include <fstream>
#include <random>
#include <string>
#include <vector>

#include "core/file_opener.h"
#include "disk/disk_layout.h"
#include "machine/host_tools.h"
#include "machine/table_format.h"
#include "partition/disk_refresh.h"
#include "partition/identifiers.h"
#include "partition/table_edit.h"
#include "support/machine_test.h"
#include "support/shell.h"
#include "support/table_judges.h"

/// A test of edits on a disk of 16 MiB with a real table, which others' programs judge. What no table takes is noise.
class EditedDiskTest : public MachineTest {
protected:
    static constexpr uint64_t kSize = 16 * kMiB;

    /// Begins with a file without a table; the disk before is gone.
    void NewFile()
    {
        drive.Reset();
        machine.RemoveDisk(0);
        std::filesystem::remove(file);
        std::ofstream(file).close();
        std::filesystem::resize_file(file, kSize);
        FillWithNoise(1 * kMiB, kSize - 1 * kMiB);
    }

    /// The disk that a program of the host partitions; `FILE` in the command is the disk.
    void UseDiskBy(const std::string& command, uint32_t bytesInSector = 512)
    {
        NewFile();
        std::string line = command;
        line.replace(line.find("FILE"), 4, file);
        (void)machine::RunToolOrThrow({"sh", "-c", line});
        UseFile(bytesInSector);
    }

    void UseGpt(const machine::GptTable& table, uint32_t bytesInSector = 512)
    {
        NewFile();
        machine::FileStorage storage(file);
        machine::WriteGptTable(storage, bytesInSector, table);
        UseFile(bytesInSector);
    }

    void UseMbr(const machine::MbrTable& table, uint32_t bytesInSector = 512)
    {
        NewFile();
        machine::FileStorage storage(file);
        machine::WriteMbrTable(storage, bytesInSector, table);
        UseFile(bytesInSector);
    }

    KK_STATUS Add(uint64_t offset, uint64_t length)
    {
        kk::Guid type;
        kk::GetBasicDataTypeGuid(type);
        return Finish(kk::AddPartitionEntry(*drive, sectorSize, style, offset, length, type, 0x07, &number));
    }

    KK_STATUS Remove(uint64_t offset) { return Finish(kk::RemovePartitionEntry(*drive, sectorSize, style, offset)); }

    KK_STATUS Resize(uint64_t offset, uint64_t newLength)
    {
        return Finish(kk::ResizePartitionEntry(*drive, sectorSize, style, offset, newLength));
    }

    /// Where the partitions of the layout start and how long they are, in table order, as the library reads them.
    std::vector<std::pair<uint64_t, uint64_t>> Layout()
    {
        kk::DiskLayout layout;
        EXPECT_EQ(kk::ReadDiskLayout(0, layout), KK_STATUS_SUCCESS);
        EXPECT_EQ(layout.style, style);
        std::vector<std::pair<uint64_t, uint64_t>> ranges;
        for (const kk::PartitionEntry& partition : layout.partitions) {
            ranges.emplace_back(partition.start, partition.length);
        }
        return ranges;
    }

    std::string Complaint() const
    {
        return style == kk::PartitionStyle::Gpt ? ComplaintAboutGpt(file, sectorSize)
                                                : ComplaintAboutMbr(file, sectorSize);
    }

    /// Nobody complains about the table, and outside it the disk is as it was in the beginning.
    void ExpectSound()
    {
        EXPECT_EQ(Complaint(), "");
        ExpectNothingElseChanged();
    }

    TemporaryFolder folder;
    std::string file = (folder / "disk").string();
    kk::DevicePtr drive;
    kk::PartitionStyle style = kk::PartitionStyle::Raw;
    uint32_t sectorSize = 0;
    uint32_t number = 0;

private:
    /// Bytes of the disk.
    struct Range {
        uint64_t start;
        uint64_t end;
    };

    void UseFile(uint32_t bytesInSector)
    {
        sectorSize = bytesInSector;
        machine.AddDiskFile(file, {.sectorSize = sectorSize}).Rescan();
        kk::DiskLayout layout;
        EXPECT_EQ(kk::ReadDiskLayout(0, layout), KK_STATUS_SUCCESS);
        style = layout.style;
        EXPECT_EQ(kk::OpenPhysicalDrive(0, true, drive), KK_STATUS_SUCCESS);
        EXPECT_EQ(Complaint(), "");
        content_ = ReadFile(file);
    }

    void FillWithNoise(uint64_t start, uint64_t end)
    {
        std::mt19937_64 random(42);
        std::vector<uint64_t> noise((end - start) / sizeof(uint64_t));
        std::generate(noise.begin(), noise.end(), random);
        std::fstream stream(file, std::ios::in | std::ios::out | std::ios::binary);
        stream.seekp(static_cast<std::streamoff>(start));
        stream.write(reinterpret_cast<const char*>(noise.data()), static_cast<std::streamsize>(end - start));
    }

    /// Has the driver look at the table.
    KK_STATUS Finish(KK_STATUS status)
    {
        kk::RefreshDiskProperties(*drive);
        return status;
    }

    void ExpectNothingElseChanged()
    {
        std::string now = ReadFile(file);
        for (const Range& range : TableRanges(now)) {
            now.replace(range.start, range.end - range.start, content_, range.start, range.end - range.start);
        }
        EXPECT_TRUE(now == content_) << "bytes outside the table changed";
    }

    std::vector<Range> TableRanges(const std::string& disk) const
    {
        if (style != kk::PartitionStyle::Gpt) {
            return {{446, 510}};
        }
        std::vector<Range> ranges;
        for (const uint64_t header : {uint64_t{sectorSize}, kSize - sectorSize}) {
            const auto* const bytes = reinterpret_cast<const uint8_t*>(disk.data());
            const auto record = machine::TakeRecord<machine::GptHeaderRecord>({bytes, disk.size()}, header);
            const uint64_t array = record.entriesLba * sectorSize;
            ranges.push_back({header, header + sizeof(record)});
            ranges.push_back({array, array + uint64_t{record.entryCount} * record.entryBytes});
        }
        return ranges;
    }

    std::string content_;
};
