#pragma once

#include <cstdint>
#include <memory>
#include <unordered_map>
#include <vector>

#include "machine/volume.h"

namespace machine {

/// A volume as it was when this object was made. Watches the volume's disks and keeps the old bytes of every block
/// that is about to be written; the rest is read from where the volume lay.
class SnapshotView final : public VolumeView {
public:
    explicit SnapshotView(std::shared_ptr<Volume> volume);
    SnapshotView(const SnapshotView&) = delete;
    SnapshotView& operator=(const SnapshotView&) = delete;
    ~SnapshotView() override { Discard(); }

    uint64_t Length() const override { return length_; }
    uint32_t SectorSize() const override { return volume_->SectorSize(); }
    bool Read(uint64_t offset, std::span<uint8_t> into) override;

    /// The snapshot was deleted: no more watching, and handles that are still open read nothing.
    void Discard();

    uint64_t KeptBytes() const;

private:
    struct Watch {
        std::shared_ptr<Disk> disk;
        uint64_t token;
    };
    void KeepBefore(uint64_t volumeOffset, uint64_t length);

    static constexpr uint64_t kBlockBytes = 64 * 1024;

    std::shared_ptr<Volume> volume_;
    std::vector<Extent> extents_;  // the volume itself may grow and shrink
    uint64_t length_;
    std::vector<Watch> watches_;
    std::unordered_map<uint64_t, std::vector<uint8_t>> kept_;  // by block number
    bool discarded_ = false;
};

}  // namespace machine
