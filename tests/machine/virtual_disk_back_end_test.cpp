#include <gtest/gtest.h>

#include <fstream>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "machine/host_tools.h"
#include "machine/qemu_virtual_disks.h"
#include "machine/raw_virtual_disks.h"
#include "machine/virtual_disk_service.h"
#include "virtual_disk_fixture.h"

namespace machine {
namespace {

using test::kMiB;
using test::VirtualDiskTest;

/// A machine whose images are real VHDX files.
class QemuDiskTest : public VirtualDiskTest {
protected:
    std::string Tool(std::vector<std::string> arguments) const
    {
        arguments.push_back(ImageFile().string());
        return RunToolOrThrow(arguments);
    }

    VirtualDiskService& service_ = InstallVirtualDiskService(*machine_, std::make_shared<QemuVirtualDisks>());
};

TEST_F(QemuDiskTest, CreatesADynamicVhdxFile)
{
    ASSERT_EQ(Create(Parameters(64 * kMiB)), 0u);
    Close();

    const std::string info = Tool({"qemu-img", "info", "--output=json"});
    EXPECT_NE(info.find("\"virtual-size\": 67108864"), std::string::npos) << info;
    EXPECT_NE(info.find("\"format\": \"vhdx\""), std::string::npos) << info;
    EXPECT_NE(info.find("\"cluster-size\": 2097152"), std::string::npos) << info;
    EXPECT_LT(std::filesystem::file_size(ImageFile()), 16 * kMiB);
}

TEST_F(QemuDiskTest, TheFileIsCompleteOnceTheDiskIsDetached)
{
    ASSERT_EQ(Create(Parameters(64 * kMiB)), 0u);
    ASSERT_EQ(Attach(), 0u);
    Disk& disk = *machine_->FindDisk(1);
    std::vector<uint8_t> data(5 * kMiB);
    for (size_t index = 0; index < data.size(); ++index) {
        data[index] = static_cast<uint8_t>(index * 7 + index / 4096);
    }
    ASSERT_EQ(disk.Write(9 * kMiB + 512, data), 0);
    ASSERT_EQ(Detach(), 0u);

    const std::string check = Tool({"qemu-img", "check", "-f", "vhdx"});
    EXPECT_NE(check.find("No errors were found"), std::string::npos) << check;
    const TemporaryFile expected(64 * kMiB);
    FileStorage(expected.Path()).Write(9 * kMiB + 512, data);
    const std::string comparison = Tool({"qemu-img", "compare", "-f", "raw", "-F", "vhdx", expected.Path()});
    EXPECT_NE(comparison.find("Images are identical"), std::string::npos) << comparison;
    Close();
}

TEST_F(QemuDiskTest, TheFileIsLockedWhileItIsAttached)
{
    ASSERT_EQ(Create(Parameters(8 * kMiB)), 0u);
    ASSERT_EQ(Attach(), 0u);

    EXPECT_THROW(Tool({"qemu-img", "info"}), std::exception);

    Close();
    EXPECT_NO_THROW(Tool({"qemu-img", "info"}));
}

TEST_F(QemuDiskTest, WhatItCannotMakeIsNotSupported)
{
    auto oddBlocks = Parameters(8 * kMiB);
    oddBlocks.blockSizeInBytes = 3 << 20;

    EXPECT_EQ(Create(Parameters(8 * kMiB, 4096)), kErrorNotSupported);
    EXPECT_EQ(Create(oddBlocks), kErrorNotSupported);
    EXPECT_FALSE(std::filesystem::exists(ImageFile()));
}

TEST_F(QemuDiskTest, ADamagedFileDoesNotAttach)
{
    ASSERT_EQ(Create(Parameters(8 * kMiB)), 0u);
    std::ofstream(ImageFile(), std::ios::trunc) << "nothing";

    EXPECT_EQ(Attach(), kErrorFileCorrupt);
    std::filesystem::remove(ImageFile());
    EXPECT_EQ(Attach(), kErrorFileNotFound);
    Close();
}

TEST_F(QemuDiskTest, ReadsAndWritesInPiecesOfAnySize)
{
    ASSERT_EQ(Create(Parameters(32 * kMiB)), 0u);
    ASSERT_EQ(Attach(), 0u);
    Disk& disk = *machine_->FindDisk(1);
    const std::vector<uint8_t> data(8 * kMiB, 0xA7);

    ASSERT_EQ(disk.Write(3 * kMiB, data), 0);

    std::vector<uint8_t> read(8 * kMiB);
    ASSERT_EQ(disk.Read(3 * kMiB, read), 0);
    EXPECT_EQ(read, data);
    EXPECT_TRUE(disk.Flush());
    EXPECT_NE(disk.Read(32 * kMiB, std::span(read).first(512)), 0);
    Close();
}

TEST_F(VirtualDiskTest, ARawImageIsItsFile)
{
    InstallVirtualDiskService(*machine_, std::make_shared<RawVirtualDisks>());
    ASSERT_EQ(Create(Parameters(8 * kMiB, 4096)), 0u);
    ASSERT_EQ(Attach(), 0u);
    EXPECT_EQ(machine_->FindDisk(1)->SectorSize(), 4096u);
    ASSERT_EQ(machine_->FindDisk(1)->Write(4096, std::vector<uint8_t>(4096, 3)), 0);
    Close();

    EXPECT_EQ(std::filesystem::file_size(ImageFile()), 8 * kMiB);
    std::vector<uint8_t> read(1);
    EXPECT_TRUE(FileStorage(ImageFile().string()).Read(4097, read));
    EXPECT_EQ(read[0], 3);
}

TEST_F(VirtualDiskTest, ARawImageTakesOverAFileWhenItIsToldTo)
{
    std::ofstream(ImageFile()) << "old";
    InstallVirtualDiskService(*machine_, std::make_shared<RawVirtualDisks>());
    EXPECT_EQ(Create(Parameters(8 * kMiB)), kErrorFileExists);

    InstallVirtualDiskService(*machine_, std::make_shared<RawVirtualDisks>(true));

    EXPECT_EQ(Create(Parameters(8 * kMiB)), 0u);
    EXPECT_EQ(std::filesystem::file_size(ImageFile()), 8 * kMiB);
    Close();
}

}  // namespace
}  // namespace machine
