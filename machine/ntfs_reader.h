#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "disk/volume_controls.h"
#include "machine/volume_view.h"

namespace machine {

/// What the boot sector of an NTFS volume says, checked.
struct NtfsGeometry {
    uint32_t bytesPerSector = 0;
    uint32_t bytesPerCluster = 0;
    uint64_t totalSectors = 0;
    uint64_t totalClusters = 0;
    uint64_t mftStartLcn = 0;
    uint64_t mft2StartLcn = 0;
    uint32_t bytesPerFileRecord = 0;
    uint64_t serialNumber = 0;
};

/// Reads the few structures of an NTFS volume that its volume data and its bitmap come from. Trusts nothing.
class NtfsReader {
public:
    explicit NtfsReader(VolumeView& view) : view_(view) {}

    /// Null when the boot sector is none of NTFS.
    static std::optional<NtfsGeometry> ReadGeometry(VolumeView& view);

    /// Finds the bitmap file. False when this is no NTFS volume or it is damaged beyond reading.
    bool Open();

    const NtfsGeometry& Geometry() const { return geometry_; }

    /// Bytes of the bitmap, one bit a cluster. False when they do not lie inside it or do not read.
    bool ReadBitmap(uint64_t offset, std::span<uint8_t> into);

    std::optional<uint64_t> CountFreeClusters();

    /// The number of the first cluster behind the last one in use.
    std::optional<uint64_t> FindUsedEnd();

    /// Everything that the volume data request tells.
    std::optional<kk::NtfsVolumeData> ReadVolumeData();

private:
    struct Run {
        uint64_t vcn;
        uint64_t lcn;
        uint64_t clusters;
        bool sparse;
    };
    /// The unnamed data of a file: resident bytes or runs.
    struct DataAttribute {
        std::vector<uint8_t> resident;
        std::vector<Run> runs;
        bool isResident = false;
        uint64_t dataBytes = 0;
        uint64_t validBytes = 0;
    };

    bool ReadFileRecord(uint64_t number, std::vector<uint8_t>& record);
    static bool ApplyFixups(std::vector<uint8_t>& record);
    bool FindData(const std::vector<uint8_t>& record, DataAttribute& data) const;
    bool ReadDataAttribute(std::span<const uint8_t> attribute, DataAttribute& data) const;
    bool DecodeRuns(std::span<const uint8_t> encoded, std::vector<Run>& runs) const;

    VolumeView& view_;
    NtfsGeometry geometry_;
    DataAttribute bitmap_;
};

}  // namespace machine
