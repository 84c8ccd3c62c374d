#include "exports/support/inspect_image_test.h"

namespace {

using machine::CallKind;
using vhdx::LittleEndian;

TEST_F(InspectImageTest, TellsEveryByteOfAGptDisk)
{
    SHOWS(KkInspectImage, KK_STATUS_SUCCESS,
          "every field of a GPT image and its partitions, into records at odd addresses");

    PutTwoGptPartitions();

    ASSERT_EQ(Inspect(Image()), 0);
    EXPECT_EQ(Info(), LittleEndian(kDiskSize, 8) + LittleEndian(512, 4) + LittleEndian(0x200000, 4) +
                          BytesOf(machine::kSampleDiskId) + LittleEndian(2, 4) + LittleEndian(kGptStyle, 4));
    EXPECT_EQ(count, 2u);
    EXPECT_EQ(Record(0), LittleEndian(1, 4) + LittleEndian(kMiB, 8) + LittleEndian(8 * kMiB, 8) +
                             BytesOf(machine::kBasicDataType) + NameBytes(u"First"));
    EXPECT_EQ(Record(1), LittleEndian(7, 4) + LittleEndian(16 * kMiB, 8) + LittleEndian(kMiB, 8) +
                             BytesOf(machine::kEfiSystemType) + NameBytes(u"123456789012345678901234567890123456"));
    EXPECT_TRUE(IsDirt(Record(2)));
}

TEST_F(InspectImageTest, TellsEveryByteOfAnMbrDisk)
{
    SHOWS(KkInspectImage, KK_STATUS_SUCCESS, "every field of an MBR image and its partitions, extended ones included");

    PutMbrSlot(2, 0x07, 2048, 16384);
    PutMbrSlot(4, 0x05, 0xF0000000, 0xFFFFFFFF);

    ASSERT_EQ(Inspect(Image()), 0);
    EXPECT_EQ(Info(), LittleEndian(kDiskSize, 8) + LittleEndian(512, 4) + LittleEndian(0x200000, 4) + Bytes(16) +
                          LittleEndian(2, 4) + LittleEndian(kMbrStyle, 4));
    EXPECT_EQ(count, 2u);
    EXPECT_EQ(Record(0), LittleEndian(2, 4) + LittleEndian(kMiB, 8) + LittleEndian(8 * kMiB, 8) + Bytes(16) +
                             NameBytes(u"NTFS / exFAT"));
    EXPECT_EQ(Record(1), LittleEndian(4, 4) + LittleEndian(uint64_t{0xF0000000} * 512, 8) +
                             LittleEndian(uint64_t{0xFFFFFFFF} * 512, 8) + Bytes(16) + NameBytes(u"Type 0x05"));
    EXPECT_TRUE(IsDirt(Record(2)));
}

TEST_F(InspectImageTest, TellsADiskOfLargeSectorsAndBlocks)
{
    SHOWS(KkInspectImage, KK_STATUS_SUCCESS, "sectors of 4096 bytes and blocks of 32 MiB are told");

    PutTwoGptPartitions(4096);
    VhdxBuilder image(disk.Size());
    image.SectorSize(4096).BlockSize(32 << 20).Data(disk);

    ASSERT_EQ(Inspect(image), 0);
    EXPECT_EQ(Info(), LittleEndian(kDiskSize, 8) + LittleEndian(4096, 4) + LittleEndian(32 << 20, 4) +
                          BytesOf(machine::kSampleDiskId) + LittleEndian(2, 4) + LittleEndian(kGptStyle, 4));
    EXPECT_EQ(Slice(Record(1), 4, 16), LittleEndian(16 * kMiB, 8) + LittleEndian(kMiB, 8));
}

TEST_F(InspectImageTest, LabelsMbrPartitionsByTheirType)
{
    SHOWS(KkInspectImage, KK_STATUS_SUCCESS, "MBR partitions are labelled by their type");

    const std::pair<uint8_t, std::u16string> labels[] = {
        {0x06, u"FAT16"},      {0x0E, u"FAT16"},     {0x07, u"NTFS / exFAT"},
        {0x0B, u"FAT32"},      {0x0C, u"FAT32"},     {0x27, u"Windows recovery"},
        {0x82, u"Linux swap"}, {0x83, u"Linux"},     {0xAF, u"HFS+"},
        {0x42, u"Type 0x42"},  {0x05, u"Type 0x05"}, {0xBE, u"Type 0xBE"}};
    for (const auto& [type, label] : labels) {
        PutMbrSlot(1, type, 2048, 2048);

        ASSERT_EQ(Inspect(Image()), 0);
        EXPECT_EQ(Slice(Record(0), 36, 72), NameBytes(label)) << int{type};
    }
}

TEST_F(InspectImageTest, CountsAllPartitionsWhateverFits)
{
    SHOWS(KkInspectImage, KK_STATUS_SUCCESS, "the count is that of all partitions, whatever fits into the records");

    PutTwoGptPartitions();
    Image().Save(file);

    EXPECT_EQ(InspectFile(1), 0);
    EXPECT_EQ(count, 2u);
    EXPECT_FALSE(IsDirt(Record(0)));
    EXPECT_TRUE(IsDirt(Record(1)));
    EXPECT_EQ(Slice(Info(), 32, 4), LittleEndian(2, 4));

    EXPECT_EQ(InspectFile(0), 0);
    EXPECT_EQ(count, 2u);
    EXPECT_TRUE(IsDirt(recordBytes));

    EXPECT_EQ(InspectFile(2), 0);
    EXPECT_FALSE(IsDirt(Record(1)));
}

TEST_F(InspectImageTest, ListsMorePartitionsThanAListBeginsWith)
{
    SHOWS(KkInspectImage, KK_STATUS_SUCCESS, "forty partitions are listed");

    machine::GptTable table;
    for (uint64_t i = 0; i < 40; ++i) {
        table.partitions.push_back({.start = (i + 1) * kMiB, .length = kMiB});
    }
    PutGpt(table);
    Image().Save(file);
    std::vector<ImagePartitionRecord> records(40);

    EXPECT_EQ(api.inspectImage(WindowsPath(file).c_str(), nullptr, records.data(), 40, &count), 0);
    EXPECT_EQ(count, 40u);
    for (uint32_t i = 0; i < 40; ++i) {
        EXPECT_EQ(uint32_t{records[i].number}, i + 1);
        EXPECT_EQ(uint64_t{records[i].offset}, (i + 1) * kMiB);
    }
}

TEST_F(InspectImageTest, EveryOutputMayBeLeftOut)
{
    SHOWS(KkInspectImage, KK_STATUS_SUCCESS, "each output may be left out");

    PutTwoGptPartitions();
    Image().Save(file);
    const std::u16string path = WindowsPath(file);
    ImageInfoRecord info = {};
    ImagePartitionRecord record = {};

    EXPECT_EQ(api.inspectImage(path.c_str(), nullptr, nullptr, 0, nullptr), 0);
    EXPECT_EQ(api.inspectImage(path.c_str(), nullptr, nullptr, 7, &count), 0);
    EXPECT_EQ(count, 2u);
    EXPECT_EQ(api.inspectImage(path.c_str(), &info, nullptr, 7, nullptr), 0);
    EXPECT_EQ(uint32_t{info.partitionCount}, 2u);
    EXPECT_EQ(api.inspectImage(path.c_str(), nullptr, &record, 1, nullptr), 0);
    EXPECT_EQ(uint64_t{record.length}, 8 * kMiB);
}

TEST_F(InspectImageTest, TheImageMayBeNamedInEveryWayAFileIs)
{
    SHOWS(KkInspectImage, KK_STATUS_SUCCESS, "the file may be named with each of the prefixes of Windows");

    PutTwoGptPartitions();
    Image().Save(file);
    for (const std::u16string prefix : {u"", u"\\\\?\\", u"\\\\.\\", u"\\??\\"}) {
        EXPECT_EQ(api.inspectImage((prefix + WindowsPath(file)).c_str(), nullptr, nullptr, 0, &count), 0);
        EXPECT_EQ(count, 2u);
    }
}

TEST_F(InspectImageTest, OnlyReadsTheFileWhichOthersMayReadMeanwhile)
{
    SHOWS(KkInspectImage, KK_STATUS_SUCCESS, "the file is only read, and others may read it meanwhile");

    PutTwoGptPartitions();
    Image().Save(file);
    const std::string before = ReadFile(file);

    EXPECT_EQ(InspectFile(), 0);

    EXPECT_TRUE(ReadFile(file) == before);
    const auto opens = machine.journal.FindAll({CallKind::CreateFile});
    ASSERT_EQ(opens.size(), 1u);
    EXPECT_EQ(opens[0].access & 0x0001'0116, 0u) << "no access to write, append, set attributes or delete";
    EXPECT_EQ(opens[0].share & 1, 1u);
    EXPECT_EQ(machine.handles.OpenCount(), 0u);
}

TEST_F(InspectImageTest, ReadsWhatQemuWrites)
{
    SHOWS(KkInspectImage, KK_STATUS_SUCCESS, "growing and fixed images made by QEMU are read");

    const std::string raw = (folder / "disk.raw").string();
    Shell("truncate -s 80M " + raw + " && sgdisk -n 1:2048:+16M -c 1:Data -n 3:0:+1M -t 3:ef00 " + raw);
    for (const std::string options : {"subformat=dynamic", "subformat=fixed,block_size=1M", "block_size=256M"}) {
        Shell("qemu-img convert -f raw -O vhdx -o " + options + " " + raw + " " + file.string());

        ASSERT_EQ(InspectFile(), 0) << options;
        EXPECT_EQ(count, 2u);
        EXPECT_EQ(Record(0),
                  LittleEndian(1, 4) + LittleEndian(kMiB, 8) + LittleEndian(16 * kMiB, 8) +
                      BytesOf({0x0FC63DAF, 0x8483, 0x4772, {0x8E, 0x79, 0x3D, 0x69, 0xD8, 0x47, 0x7D, 0xE4}}) +
                      NameBytes(u"Data"));
        EXPECT_EQ(Slice(Record(1), 20, 16), BytesOf(machine::kEfiSystemType));
    }
}

}  // namespace
