#include <fstream>

#include "machine/text.h"
#include "manifest_fixture.h"

namespace {

constexpr machine::CallPattern Allocations()
{
    return {.kind = machine::CallKind::Allocate};
}

TEST_F(ManifestTest, TheFileIsCreatedOrReplacedInOneCall)
{
    AddPartition(1, kMiB, kMiB, u"data");
    Write();

    const auto opens = machine.journal.FindAll({.kind = machine::CallKind::CreateFile, .object = "disk.vhdx"});
    ASSERT_EQ(opens.size(), 1u);
    EXPECT_EQ(opens[0].object, machine::Utf8(u"\\??\\" + imagePath + u".json"));
    EXPECT_EQ(opens[0].access, 0x120116u);
    EXPECT_EQ(opens[0].share, 1u);
    EXPECT_EQ(opens[0].disposition, 5u);
    EXPECT_EQ(opens[0].options, 0x60u);
    EXPECT_EQ(opens[0].fileAttributes, 0x80u);
    EXPECT_EQ(opens[0].objectAttributes, 0x40u);
    const auto writes = machine.journal.FindAll({.kind = machine::CallKind::WriteFile});
    ASSERT_EQ(writes.size(), 1u);
    EXPECT_EQ(writes[0].offset, 0u);
    EXPECT_EQ(writes[0].length, ReadFile(ManifestFile()).size());
    EXPECT_EQ(machine.handles.OpenCount(), 0u);
}

TEST_F(ManifestTest, TheTextEndsWithItsBracket)
{
    const std::string text = Manifest();

    EXPECT_TRUE(text.starts_with("{\"tool\""));
    EXPECT_TRUE(text.ends_with("\"partitions\":[]}"));
}

TEST_F(ManifestTest, ALongerManifestIsReplaced)
{
    std::ofstream(ManifestFile()) << std::string(5000, '#');

    const std::string text = Manifest();

    EXPECT_LT(text.size(), 5000u);
    EXPECT_TRUE(text.ends_with("\"partitions\":[]}"));
}

TEST_F(ManifestTest, TheImageItselfIsNotTouched)
{
    std::ofstream(folder / "disk.vhdx") << "image";
    Write();

    EXPECT_EQ(ReadFile(folder / "disk.vhdx"), "image");
}

TEST_F(ManifestTest, DevicePathsLeadToTheSamePlace)
{
    imagePath = u"\\\\?\\" + imagePath;
    request.imagePath = imagePath.c_str();

    EXPECT_TRUE(Manifest().ends_with("}"));
}

/// A folder deep enough for paths of 600 units, and the path of a file in it of `units` units in all.
std::u16string LongPath(const TemporaryFolder& folder, size_t units)
{
    std::filesystem::path deep = folder.Path();
    while (WindowsPath(deep).size() < 500) {
        deep /= std::string(100, 'd');
    }
    std::filesystem::create_directories(deep);
    std::u16string path = WindowsPath(deep) + u"\\";
    path.append(units - path.size(), u'f');
    return path;
}

TEST_F(ManifestTest, APathOf590UnitsIsKeptWhole)
{
    imagePath = LongPath(folder, 590);
    request.imagePath = imagePath.c_str();
    Write();

    const machine::CallRecord* const open = machine.journal.First({.kind = machine::CallKind::CreateFile});
    ASSERT_NE(open, nullptr);
    EXPECT_EQ(open->object, machine::Utf8(u"\\??\\" + imagePath + u".json"));
    EXPECT_EQ(open->result, 0u);
}

TEST_F(ManifestTest, ALongerPathIsCutBeforeTheEnding)
{
    imagePath = LongPath(folder, 590) + u"g.vhdx";
    request.imagePath = imagePath.c_str();
    Write();

    const machine::CallRecord* const open = machine.journal.First({.kind = machine::CallKind::CreateFile});
    ASSERT_NE(open, nullptr);
    EXPECT_EQ(open->object, machine::Utf8(u"\\??\\" + imagePath.substr(0, 590) + u".json"));
    const std::string hostPath = machine.drives.HostPath(imagePath.substr(0, 590) + u".json").value_or("");
    EXPECT_TRUE(ReadFile(hostPath).ends_with("}"));
}

TEST_F(ManifestTest, AFileThatCannotBeCreatedIsLeftOut)
{
    imagePath = WindowsPath(folder / "missing" / "disk.vhdx");
    request.imagePath = imagePath.c_str();

    Write();

    EXPECT_EQ(machine.journal.Count({.kind = machine::CallKind::WriteFile}), 0u);
    EXPECT_TRUE(std::filesystem::is_empty(folder.Path()));
    EXPECT_EQ(machine.heap.LiveBlocks(), 0u);
}

TEST_F(ManifestTest, AFailingWriteLeavesAnEmptyFile)
{
    std::ofstream(ManifestFile()) << "old";
    machine.faults.Fail({.kind = machine::CallKind::WriteFile}, 1, 0xC000007F);

    EXPECT_EQ(Manifest(), "");
    EXPECT_TRUE(std::filesystem::exists(ManifestFile()));
    EXPECT_EQ(machine.journal.Count({.kind = machine::CallKind::WriteFile}), 1u);
    EXPECT_EQ(machine.handles.OpenCount(), 0u);
}

TEST_F(ManifestTest, AShortWriteIsNotContinued)
{
    machine.faults.Shorten({.kind = machine::CallKind::WriteFile}, 1, 20);

    EXPECT_EQ(Manifest(), "{\"tool\":\"Kestrelkit\"");
    EXPECT_EQ(machine.journal.Count({.kind = machine::CallKind::WriteFile}), 1u);
}

TEST_F(ManifestTest, WithoutMemoryTheManifestIsEmpty)
{
    machine.faults.FailFrom(Allocations(), 1, 0);

    EXPECT_EQ(Manifest(), "");
    EXPECT_TRUE(std::filesystem::exists(ManifestFile()));
}

TEST_F(ManifestTest, EveryFailingGrowthCostsOneByte)
{
    layout.style = kk::PartitionStyle::Mbr;
    const std::string whole = Manifest();
    // The first block is the text's, the second the stack's.
    for (uint64_t nth = 3; (8u << (nth - 2)) < whole.size(); ++nth) {
        std::string expected = whole;
        expected.erase(8u << (nth - 3), 1);
        machine.faults.Clear();
        machine.faults.Fail(Allocations(), nth, 0);

        EXPECT_EQ(Manifest(), expected) << nth;
        EXPECT_EQ(machine.heap.LiveBlocks(), 0u);
    }
}

TEST_F(ManifestTest, BothBuffersAreFreed)
{
    Write();

    EXPECT_EQ(machine.heap.LiveBlocks(), 0u);
}

TEST_F(ManifestTest, NoFailingCallDoesHarm)
{
    machine.AddDisk(16 * kMiB).Mbr({.partitions = {{.start = kMiB, .length = kMiB}}});
    machine.AssignLetter(*machine.FindVolume(0, kMiB), u'D');
    AddPartition(1, kMiB, kMiB, u"name");
    uint64_t n = 1;
    for (;; ++n) {
        ASSERT_LT(n, 400u);
        machine.faults.FailCall(n);
        Write();
        EXPECT_EQ(machine.handles.OpenCount(), 0u) << n;
        if (machine.faults.Struck() == nullptr) {
            break;
        }
    }

    EXPECT_GT(n, 10u);
    EXPECT_TRUE(ReadFile(ManifestFile()).ends_with("}"));
}

}  // namespace
