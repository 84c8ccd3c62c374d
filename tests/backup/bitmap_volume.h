#pragma once

#include <algorithm>
#include <cstring>
#include <functional>
#include <memory>
#include <optional>
#include <ostream>
#include <vector>

#include "backup/used_extents.h"
#include "backup/volume_bitmap.h"
#include "machine/device.h"
#include "support/machine_test.h"
#include "support/scripted_device.h"

namespace kk {

inline bool operator==(const VolumeExtent& a, const VolumeExtent& b)
{
    return a.offset == b.offset && a.length == b.length;
}

inline std::ostream& operator<<(std::ostream& stream, const VolumeExtent& extent)
{
    return stream << extent.offset << "+" << extent.length;
}

}  // namespace kk

using Extents = std::vector<kk::VolumeExtent>;
using Bits = std::vector<bool>;

/// The runs of set bits, found one bit at a time.
inline Extents NaiveExtents(const Bits& bits, uint64_t clusterSize)
{
    Extents extents;
    for (size_t i = 0; i < bits.size(); ++i) {
        if (!bits[i]) {
            continue;
        }
        if (i > 0 && bits[i - 1]) {
            extents.back().length += clusterSize;
        } else {
            extents.push_back({i * clusterSize, clusterSize});
        }
    }
    return extents;
}

/// How much of a bitmap one answer holds, and where it begins.
struct AnswerShape {
    uint64_t roundingUnit = 8;
    /// Bytes of bits, at most as many as there is room for.
    std::function<uint64_t()> bytes = [] { return UINT64_MAX; };
    /// Bits behind the volume's end are set, as real systems may leave them.
    bool dirtyEnd = true;
};

/// An answer to a bitmap request as a file system gives it: from the rounded start, with the bits counted to the end.
inline machine::ControlAnswer AnswerBitmap(const Bits& bits, const machine::ControlRequest& request,
                                           const AnswerShape& shape)
{
    kk::StartingLcnInput input = {};
    EXPECT_EQ(request.input.size(), sizeof(input));
    std::memcpy(&input, request.input.data(), sizeof(input));
    const auto asked = static_cast<uint64_t>(input.startingLcn);
    if (asked >= bits.size() && !bits.empty()) {
        return {machine::kInvalidParameter};
    }
    const uint64_t start = asked - asked % shape.roundingUnit;
    const uint64_t left = bits.size() - start;
    const uint64_t wanted = (left + 7) / 8;
    const uint64_t bytes = std::min({wanted, request.outputRoom - sizeof(kk::VolumeBitmapHeader), shape.bytes()});

    machine::ControlAnswer answer;
    answer.status = bytes < wanted ? machine::kBufferOverflow : machine::kSuccess;
    answer.output = machine::BytesOf(kk::VolumeBitmapHeader{static_cast<int64_t>(start), static_cast<int64_t>(left)});
    answer.output.resize(sizeof(kk::VolumeBitmapHeader) + bytes);
    for (uint64_t i = 0; i < bytes * 8; ++i) {
        if (i < left ? bits[start + i] : shape.dirtyEnd) {
            uint8_t& byte = answer.output[sizeof(kk::VolumeBitmapHeader) + i / 8];
            byte = static_cast<uint8_t>(byte | 1u << (i % 8));
        }
    }
    return answer;
}

/// A test of what is in use on a volume whose bitmap answers it scripts.
class UsedExtentsTest : public MachineTest {
protected:
    static constexpr uint32_t kAnswerBytes = 1048600;
    static constexpr uint64_t kAnswerBits = 8388672;

    /// The volume has these clusters.
    void UseBits(Bits bits, AnswerShape shape = {})
    {
        device->control = [bits = std::move(bits), shape = std::move(shape)](const machine::ControlRequest& request) {
            return AnswerBitmap(bits, request, shape);
        };
    }

    KK_STATUS Get(uint32_t clusterSize = 4096)
    {
        return kk::GetVolumeUsedExtents(ScriptedDevice::kName, clusterSize, list);
    }
    Extents Found() const { return {list.begin(), list.end()}; }

    /// The clusters from which bitmaps were asked for.
    std::vector<int64_t> Asked() const
    {
        std::vector<int64_t> clusters;
        for (const machine::CallRecord& record : machine.journal.FindAll({.code = kk::kFsctlGetVolumeBitmap})) {
            EXPECT_EQ(record.name, "NtFsControlFile");
            EXPECT_EQ(record.length, kAnswerBytes);
            EXPECT_EQ(record.input.size(), 8u);
            int64_t cluster = 0;
            std::memcpy(&cluster, record.input.data(), sizeof(cluster));
            clusters.push_back(cluster);
        }
        return clusters;
    }

    std::shared_ptr<ScriptedDevice> device = ScriptedDevice::AddTo(machine);
    kk::Array<kk::VolumeExtent> list;
};
