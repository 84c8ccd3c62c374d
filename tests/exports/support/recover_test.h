#pragma once

#include <gmock/gmock.h>

#include <filesystem>
#include <string>
#include <vector>

#include "exports/support/export_test.h"

/// Recovers a partition of an image into a partition of disk 0. The image lives in memory, with a real file in front of
/// it for those who read that; volumes have no file system, so that shrinking is quick.
class RecoverTest : public ExportTest {
protected:
    static constexpr uint64_t kSourceStart = kMiB;
    static constexpr uint64_t kTargetStart = 2 * kMiB;
    static constexpr uint64_t kMarkBytes = 4096;

    /// Makes the image, in place of the one before. The beginning of each partition is marked with its place in the
    /// list.
    void MakeImage(const std::vector<machine::GptPartition>& partitions, uint64_t size);
    void MakeImage(uint64_t length) { MakeImage({{.start = kSourceStart, .length = length}}, length + 2 * kMiB); }
    void MakeImageAt(const std::filesystem::path& path) { imagePath = path; }
    /// Disk 0 with one partition.
    machine::Disk& AddTarget(uint64_t length);
    /// Disk 0 tells of a partition of each of these lengths, all in one place.
    void PretendTargetLengths(const std::vector<uint64_t>& lengths);

    /// Whatever comes of it, neither disk nor file is left of the overlay, and the image is as it was.
    int32_t Recover(int32_t partition = 1, uint64_t targetStart = kTargetStart, uint32_t disk = 0);
    /// The target begins with the mark of a source.
    bool TargetHolds(uint8_t source, uint64_t targetStart = kTargetStart) const;
    bool TargetIsBlank() const;
    /// The lengths in bytes that the file system was asked to shrink to.
    std::vector<uint64_t> ShrunkTo() const;
    bool HasMadeAnOverlay() const { return machine.journal.Count({.name = "CreateVirtualDisk"}) != 0; }

    std::filesystem::path OverlayPath() const { return imagePath.string() + ".rec.avhdx"; }

    TemporaryFolder folder;
    std::filesystem::path imagePath = folder / "image.vhdx";

private:
    static std::vector<uint8_t> Mark(uint8_t source);
};
