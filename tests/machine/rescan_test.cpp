#include "disk/disk_controls.h"
#include "tests/machine/native_calls.h"

namespace machine {
namespace {

using Numbers = std::vector<uint32_t>;

class RescanTest : public MachineTest {
protected:
    RescanTest() { machine.AddDisk(64 * kMiB).Gpt({.partitions = {{kMiB, kMiB}, {4 * kMiB, kMiB}, {8 * kMiB, kMiB}}}); }

    Disk& TheDisk() { return *machine.FindDisk(0); }
    static Status Update()
    {
        return Handle(u"\\??\\PhysicalDrive0", kForWriting).Control(kk::kIoctlDiskUpdateProperties, 0).status;
    }
    /// Puts a table on the disk behind the driver's back.
    void Write(const std::vector<GptPartition>& partitions)
    {
        MemoryStorage other(64 * kMiB);
        WriteGptTable(other, 512, {.partitions = partitions});
        std::vector<uint8_t> table(34 * 512);
        other.Read(0, table);
        TheDisk().WriteBytes(0, table);
    }
    /// In table order.
    Numbers PartitionNumbers()
    {
        Numbers numbers;
        for (const kk::PartitionInformationEx& partition : TheDisk().CachedLayout().partitions) {
            numbers.push_back(partition.partitionNumber);
        }
        return numbers;
    }
};

TEST_F(RescanTest, APartitionKeepsItsNumberWhenAnotherGoes)
{
    ASSERT_EQ(PartitionNumbers(), (Numbers{1, 2, 3}));

    Write({{kMiB, kMiB}, {8 * kMiB, kMiB}});
    ASSERT_EQ(Update(), kSuccess);

    EXPECT_EQ(PartitionNumbers(), (Numbers{1, 3}));
}

TEST_F(RescanTest, ANewPartitionGetsTheLowestNumberThatIsFree)
{
    Write({{kMiB, kMiB}, {8 * kMiB, kMiB}});
    ASSERT_EQ(Update(), kSuccess);
    Write({{2 * kMiB, kMiB}, {kMiB, kMiB}, {16 * kMiB, kMiB}, {8 * kMiB, kMiB}});
    ASSERT_EQ(Update(), kSuccess);

    EXPECT_EQ(PartitionNumbers(), (Numbers{2, 1, 4, 3}));
}

TEST_F(RescanTest, ADiskThatArrivesIsNumberedInTableOrder)
{
    Write({{kMiB, kMiB}, {8 * kMiB, kMiB}});
    ASSERT_EQ(Update(), kSuccess);
    auto copy = std::make_unique<MemoryStorage>(64 * kMiB);
    copy->Write(0, TheDisk().ReadBytes(0, kMiB));
    machine.RemoveDisk(0);

    machine.AddDisk(std::move(copy));

    EXPECT_EQ(PartitionNumbers(), (Numbers{1, 2}));
}

TEST_F(RescanTest, AnOrderedNumberStaysAndIsNotGivenAgain)
{
    TheDisk().SetPartitionNumber(kMiB, 4);
    Write({{kMiB, kMiB}, {4 * kMiB, kMiB}, {8 * kMiB, kMiB}, {12 * kMiB, kMiB}, {16 * kMiB, kMiB}});
    ASSERT_EQ(Update(), kSuccess);

    EXPECT_EQ(PartitionNumbers(), (Numbers{4, 2, 3, 1, 5}));
}

TEST_F(RescanTest, VolumesComeGoAndChangeTheirLengthInPlace)
{
    const std::shared_ptr<Volume> stays = machine.volumes.Find(0, kMiB);
    const std::shared_ptr<Volume> goes = machine.volumes.Find(0, 4 * kMiB);
    machine.AssignLetter(*stays, u'S');
    const Handle handle(stays->DeviceName());

    Write({{.start = kMiB, .length = 2 * kMiB, .slot = 0}, {.start = 20 * kMiB, .length = kMiB, .slot = 7}});
    EXPECT_EQ(stays->Length(), kMiB) << "the driver has not looked yet";
    ASSERT_EQ(Update(), kSuccess);

    EXPECT_EQ(machine.volumes.Find(0, kMiB), stays);
    EXPECT_EQ(stays->Letter(), u'S');
    EXPECT_EQ(handle.Control(kk::kIoctlDiskGetLengthInfo, 8).As<uint64_t>(), 2 * kMiB);
    EXPECT_FALSE(goes->IsPresent());
    EXPECT_EQ(Handle(goes->DeviceName()).created.status, kObjectNameNotFound);
    ASSERT_NE(machine.FindVolume(0, 20 * kMiB), nullptr);
    EXPECT_EQ(machine.FindVolume(0, 20 * kMiB)->Number(), 4u);
}

TEST_F(RescanTest, AVolumeLosesItsLetterOnceOnDemand)
{
    Volume& volume = *machine.FindVolume(0, kMiB);
    Volume& other = *machine.FindVolume(0, 4 * kMiB);
    machine.AssignLetter(volume, u'F').AssignLetter(other, u'G');

    Volumes::LoseLetterOnRescan(volume);
    EXPECT_EQ(volume.Letter(), u'F');
    ASSERT_EQ(Update(), kSuccess);

    EXPECT_EQ(volume.Letter(), std::nullopt);
    EXPECT_EQ(other.Letter(), u'G');
    EXPECT_EQ(Handle(u"\\??\\F:").created.status, kObjectNameNotFound);
    machine.AssignLetter(volume, u'F');
    ASSERT_EQ(Update(), kSuccess);
    EXPECT_EQ(volume.Letter(), u'F');
}

TEST_F(RescanTest, ArrivingVolumesHaveNoLetterUnlessTheSystemGivesThem)
{
    EXPECT_EQ(machine.FindVolume(0, kMiB)->Letter(), std::nullopt);
    machine.AssignLetter(*machine.FindVolume(0, kMiB), u'C');
    machine.MapDrive(u'D', "/");

    machine.volumes.SetAutomaticLetters(true);
    Write({{kMiB, kMiB},
           {.start = 20 * kMiB, .length = kMiB, .slot = 10},
           {.start = 24 * kMiB, .length = kMiB, .type = kEfiSystemType, .slot = 11},
           {.start = 28 * kMiB, .length = kMiB, .attributes = 1ull << 63, .slot = 12},
           {.start = 32 * kMiB, .length = kMiB, .slot = 13}});
    ASSERT_EQ(Update(), kSuccess);

    EXPECT_EQ(machine.FindVolume(0, kMiB)->Letter(), u'C');
    EXPECT_EQ(machine.FindVolume(0, 20 * kMiB)->Letter(), u'E');
    EXPECT_EQ(machine.FindVolume(0, 24 * kMiB)->Letter(), std::nullopt);
    EXPECT_EQ(machine.FindVolume(0, 28 * kMiB)->Letter(), std::nullopt);
    EXPECT_EQ(machine.FindVolume(0, 32 * kMiB)->Letter(), u'F');
}

}  // namespace
}  // namespace machine
