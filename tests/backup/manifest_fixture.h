#pragma once

#include <algorithm>
#include <filesystem>
#include <string>
#include <string_view>

#include "backup/backup_manifest.h"
#include "support/machine_test.h"
#include "support/shell.h"

/// A test of the manifest of a backup whose image is `disk.vhdx` in a folder of its own.
class ManifestTest : public MachineTest {
protected:
    ManifestTest()
    {
        request.imagePath = imagePath.c_str();
        request.backupSetId = "set-of-mine";
        layout.style = kk::PartitionStyle::Gpt;
    }

    kk::PartitionEntry& AddPartition(uint32_t number, uint64_t start, uint64_t length, std::u16string_view name = {})
    {
        kk::PartitionEntry partition = {};
        partition.number = number;
        partition.start = start;
        partition.length = length;
        name.copy(partition.name, std::size(partition.name));
        EXPECT_TRUE(layout.partitions.Append(partition));
        return layout.partitions[layout.partitions.Count() - 1];
    }

    /// Only once all partitions were added: the list moves when it grows.
    void Plan(size_t index, uint64_t imageOffset)
    {
        kk::BackupPlanEntry entry = {};
        entry.partition = &layout.partitions[index];
        entry.imageOffset = imageOffset;
        EXPECT_TRUE(plan.Append(entry));
    }

    void Write() { kk::WriteBackupManifest(request, layout, snapshotsUsed, virtualSize, plan); }

    std::string Manifest()
    {
        Write();
        return ReadFile(ManifestFile());
    }

    std::filesystem::path ManifestFile() const { return folder / "disk.vhdx.json"; }

    /// The value of a member as it stands in the text, the first one of that name.
    static std::string Member(const std::string& text, const std::string& name)
    {
        const std::string key = '"' + name + "\":";
        const size_t start = text.find(key);
        if (start == std::string::npos) {
            return "(none)";
        }
        const size_t value = start + key.size();
        return text.substr(value, text.find_first_of(",}]", value) - value);
    }

    /// The text of the array of partitions, brackets included.
    static std::string Partitions(const std::string& text)
    {
        const std::string key = "\"partitions\":";
        const size_t start = text.find(key);
        return start == std::string::npos || !text.ends_with("}")
                   ? "(none)"
                   : text.substr(start + key.size(), text.size() - start - key.size() - 1);
    }

    /// The element of a partition without type, name and letter.
    static std::string Element(uint32_t number, uint64_t offset, uint64_t start, uint64_t length, bool present)
    {
        return "{\"index\":" + std::to_string(number) + ",\"offset\":" + std::to_string(offset) +
               ",\"originalOffset\":" + std::to_string(start) + ",\"length\":" + std::to_string(length) +
               ",\"typeGuid\":\"00000000-0000-0000-0000-000000000000\",\"name\":\"\",\"driveLetter\":\"\","
               "\"present\":" +
               (present ? "true}" : "false}");
    }

    TemporaryFolder folder;
    std::u16string imagePath = WindowsPath(folder / "disk.vhdx");
    kk::BackupRequest request = {};
    kk::DiskLayout layout;
    kk::BackupPlan plan;
    bool snapshotsUsed = false;
    uint64_t virtualSize = 0;
};
