#include "exports/support/recover_test.h"

#include <cstring>

#include "disk/layout_answer.h"
#include "disk/volume_controls.h"
#include "support/pattern.h"
#include "support/vhdx_builder.h"

void RecoverTest::MakeImage(const std::vector<machine::GptPartition>& partitions, uint64_t size)
{
    machine::TrackedStorage& bytes = images->StandInFor(imagePath, size, 512);
    machine::WriteGptTable(bytes, 512, {.partitions = partitions});
    for (size_t i = 0; i < partitions.size(); ++i) {
        EXPECT_TRUE(bytes.Write(partitions[i].start, Mark(static_cast<uint8_t>(i + 1))));
    }
    VhdxBuilder(size).Data(bytes).Save(imagePath);
}

machine::Disk& RecoverTest::AddTarget(uint64_t length)
{
    return machine.AddDisk(length + 4 * kMiB).Gpt({.partitions = {{.start = kTargetStart, .length = length}}});
}

void RecoverTest::PretendTargetLengths(const std::vector<uint64_t>& lengths)
{
    LayoutAnswer layout(kk::WirePartitionStyle::Gpt);
    for (const uint64_t length : lengths) {
        layout.Add(1, kTargetStart, static_cast<int64_t>(length)).gpt.partitionType = machine::kBasicDataType;
    }
    machine.OnControl({.object = "PhysicalDrive0", .code = 0x70050},
                      [answer = layout.Bytes()](const machine::CallRecord&, const machine::ControlRequest&) {
                          return std::optional(machine::ControlAnswer{.output = answer});
                      });
}

int32_t RecoverTest::Recover(int32_t partition, uint64_t targetStart, uint32_t disk)
{
    const std::shared_ptr<machine::TrackedStorage> image = images->ImageBytes(imagePath);
    const size_t writes = image != nullptr ? image->WriteSizes().size() : 0;
    machine.journal.Clear();

    const int32_t status = api.recoverShrinkToFit(WindowsPath(imagePath).c_str(), partition, disk, targetStart);

    EXPECT_FALSE(std::filesystem::exists(OverlayPath()));
    EXPECT_THAT(virtualDisks.AttachedImages(), testing::IsEmpty());
    EXPECT_EQ(image != nullptr ? image->WriteSizes().size() : 0, writes) << "the image was written";
    EXPECT_EQ(machine.Imbalances(), std::vector<std::string>{});
    return status;
}

bool RecoverTest::TargetHolds(uint8_t source, uint64_t targetStart) const
{
    return machine.FindDisk(0)->ReadBytes(targetStart, kMarkBytes) == Mark(source);
}

bool RecoverTest::TargetIsBlank() const
{
    return machine.FindDisk(0)->ReadBytes(kTargetStart, kMarkBytes) == std::vector<uint8_t>(kMarkBytes);
}

std::vector<uint64_t> RecoverTest::ShrunkTo() const
{
    std::vector<uint64_t> lengths;
    for (const machine::CallRecord& call : machine.journal.FindAll({.code = kk::kFsctlShrinkVolume})) {
        kk::ShrinkVolumeInformation information = {};
        std::memcpy(&information, call.input.data(), sizeof(information));
        if (information.request == kk::ShrinkRequest::Prepare) {
            lengths.push_back(static_cast<uint64_t>(information.newNumberOfSectors) * 512);
        }
    }
    return lengths;
}

std::vector<uint8_t> RecoverTest::Mark(uint8_t source)
{
    return Pattern(kMarkBytes, source);
}
