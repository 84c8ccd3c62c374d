#pragma once

#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <vector>

#include "exports/support/export_test.h"
#include "machine/layout_parser.h"

/// The arguments of a backup but for the disk and the image; those that a test does not care for have plain values.
struct BackupOptions {
    std::vector<uint32_t> partitions = {};
    uint32_t usedBlocksOnly = 0;
    uint32_t omitRemove = 0;
    uint32_t useSnapshots = 0;
    const char* setId = "a set";
    uint32_t setDiskIndex = 0;
    uint32_t setDiskCount = 1;
    uint32_t compact = 0;
};

/// Backs disk 0 up into an image in memory and looks at what came of it.
class BackupTest : public ExportTest {
protected:
    static constexpr uint64_t kTransfer = 8 * kMiB;

    /// `result` begins as a pattern, so that it shows whether it was written.
    int32_t Backup(const BackupOptions& options = {});

    /// A disk with an EFI partition, a reserved one and an NTFS volume that holds a file; volumes 1 and 2. Not very
    /// large, so that tests are fast.
    machine::Disk& AddUsualDisk();
    /// What AddUsualDisk puts where.
    static constexpr uint64_t kEfiStart = kMiB;
    static constexpr uint64_t kEfiLength = 34 * kMiB;
    static constexpr uint64_t kReservedStart = 36 * kMiB;
    static constexpr uint64_t kReservedLength = 2 * kMiB;
    static constexpr uint64_t kNtfsStart = 40 * kMiB;
    static constexpr uint64_t kNtfsLength = 20 * kMiB;
    static constexpr uint64_t kUsualDiskSize = 64 * kMiB;

    /// Fills a stretch of a disk with bytes that are nowhere zero and depend on `seed` and the place.
    static void FillPattern(machine::Disk& disk, uint64_t start, uint64_t length, uint8_t seed);

    /// The image's bytes; fails the test when there is no image.
    std::shared_ptr<machine::TrackedStorage> Image() const;
    std::vector<uint8_t> ImageBytes(uint64_t offset, uint64_t length) const;
    machine::Layout ImageLayout(uint32_t sectorSize = 512) const;
    /// Starts of the partitions in the image's table, unused entries left out.
    std::vector<uint64_t> ImagePartitionStarts(uint32_t sectorSize = 512) const;
    void ExpectSameBytes(machine::Disk& disk, uint64_t diskOffset, uint64_t imageOffset, uint64_t length) const;

    std::filesystem::path ImagePath() const { return folder / "image.vhdx"; }
    std::filesystem::path ManifestPath() const { return folder / "image.vhdx.json"; }
    bool HasManifest() const { return std::filesystem::exists(ManifestPath()); }
    nlohmann::ordered_json Manifest() const { return nlohmann::ordered_json::parse(ReadFile(ManifestPath())); }
    bool ResultIsUntouched() const;

    TemporaryFolder folder;
    BackupResult result = {};
};
