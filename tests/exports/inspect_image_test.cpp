#include <algorithm>
#include <cstring>

#include "exports/support/export_test.h"
#include "machine/table_builder.h"
#include "machine/table_format.h"
#include "support/pattern.h"
#include "support/sweep.h"
#include "support/vhdx_builder.h"

namespace {

using machine::CallKind;
using vhdx::LittleEndian;

constexpr int32_t kMalformed = Status(0xC000014C);
constexpr uint32_t kMbrStyle = 1;
constexpr uint32_t kGptStyle = 2;
constexpr uint8_t kDirt = 0xEE;

using Bytes = std::vector<uint8_t>;

Bytes operator+(Bytes left, const Bytes& right)
{
    left.insert(left.end(), right.begin(), right.end());
    return left;
}

Bytes BytesOf(const kk::Guid& guid)
{
    Bytes bytes(sizeof(guid));
    std::memcpy(bytes.data(), &guid, sizeof(guid));
    return bytes;
}

Bytes Slice(const Bytes& bytes, size_t offset, size_t length)
{
    const auto first = bytes.begin() + static_cast<ptrdiff_t>(offset);
    return {first, first + static_cast<ptrdiff_t>(length)};
}

/// A name field: the text and zeros.
Bytes NameBytes(const std::u16string& text)
{
    Bytes bytes;
    for (const char16_t unit : text) {
        bytes = bytes + LittleEndian(unit, 2);
    }
    bytes.resize(72);
    return bytes;
}

class InspectImageTest : public ExportTest {
protected:
    static constexpr uint64_t kDiskSize = 64 * kMiB;

    VhdxBuilder Image(uint32_t sectorSize = 512)
    {
        VhdxBuilder builder(disk.Size());
        return builder.SectorSize(sectorSize).Data(disk);
    }
    int32_t Inspect(const VhdxBuilder& image)
    {
        image.Save(file);
        return InspectFile();
    }
    /// All outputs hold dirt before, and records lie at odd addresses.
    int32_t InspectFile(uint32_t capacity = 8)
    {
        infoBytes.assign(1 + sizeof(ImageInfoRecord), kDirt);
        recordBytes.assign(1 + 8 * sizeof(ImagePartitionRecord), kDirt);
        count = 0xDDDDDDDD;
        return api.inspectImage(WindowsPath(file).c_str(), reinterpret_cast<ImageInfoRecord*>(infoBytes.data() + 1),
                                reinterpret_cast<ImagePartitionRecord*>(recordBytes.data() + 1), capacity, &count);
    }

    Bytes Info() const { return {infoBytes.begin() + 1, infoBytes.end()}; }
    Bytes Record(size_t index) const
    {
        const auto first = recordBytes.begin() + 1 + static_cast<ptrdiff_t>(index * sizeof(ImagePartitionRecord));
        return {first, first + sizeof(ImagePartitionRecord)};
    }
    uint32_t Style() const { return infoBytes[1 + 36]; }
    bool IsDirt(const Bytes& bytes) const
    {
        return std::ranges::all_of(bytes, [](uint8_t byte) { return byte == kDirt; });
    }
    void ExpectNothingButCountWritten() const
    {
        EXPECT_TRUE(IsDirt(infoBytes));
        EXPECT_TRUE(IsDirt(recordBytes));
        EXPECT_EQ(count, 0u);
    }

    void PutGpt(const machine::GptTable& table, uint32_t sectorSize = 512)
    {
        machine::WriteGptTable(disk, sectorSize, table);
    }
    void PutTwoGptPartitions(uint32_t sectorSize = 512)
    {
        PutGpt(
            {.partitions = {{.start = kMiB, .length = 8 * kMiB, .name = u"First", .attributes = 0x8000'0000'0000'0001},
                            {.start = 16 * kMiB,
                             .length = kMiB,
                             .type = machine::kEfiSystemType,
                             .name = u"123456789012345678901234567890123456",
                             .slot = 6}}},
            sectorSize);
    }
    void Put(uint64_t offset, const Bytes& bytes) { ASSERT_TRUE(disk.Write(offset, bytes)); }
    void PutMbrSlot(uint64_t slot, uint8_t type, uint32_t firstSector, uint32_t sectorCount)
    {
        Put(446 + (slot - 1) * 16,
            Bytes{0, 0, 0, 0, type, 0, 0, 0} + LittleEndian(firstSector, 4) + LittleEndian(sectorCount, 4));
        Put(510, {0x55, 0xAA});
    }

    TemporaryFolder folder;
    std::filesystem::path file = folder / "image.vhdx";
    machine::MemoryStorage disk{kDiskSize};
    Bytes infoBytes;
    Bytes recordBytes;
    uint32_t count = 0;
};

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

TEST_F(InspectImageTest, WithoutAPathNothingIsDone)
{
    SHOWS(KkInspectImage, KK_STATUS_INVALID_PARAMETER, "the path is null; the count is 0, and no file is looked at");

    count = 5;

    EXPECT_EQ(api.inspectImage(nullptr, nullptr, nullptr, 0, &count), KK_STATUS_INVALID_PARAMETER);
    EXPECT_EQ(count, 0u);
    EXPECT_EQ(api.inspectImage(nullptr, nullptr, nullptr, 0, nullptr), KK_STATUS_INVALID_PARAMETER);
    EXPECT_TRUE(machine.journal.Records().empty());
}

TEST_F(InspectImageTest, AFileThatIsNotThereIsTheOpensFailure)
{
    SHOWS(KkInspectImage, 0xC0000034,
          "the status of a file that does not open is passed on; only the count is written");

    EXPECT_EQ(InspectFile(), Status(0xC0000034));
    ExpectNothingButCountWritten();
}

TEST_F(InspectImageTest, OtherFilesAreMalformed)
{
    SHOWS(KkInspectImage, KK_STATUS_REGISTRY_CORRUPT, "the file is no VHDX");

    for (const std::string format : {"vpc", "raw", "qcow2"}) {
        Shell("qemu-img create -q -f " + format + " " + file.string() + " 16M");

        EXPECT_EQ(InspectFile(), kMalformed) << format;
        ExpectNothingButCountWritten();
    }
}

TEST_F(InspectImageTest, MalformedImagesAreRefused)
{
    SHOWS(KkInspectImage, KK_STATUS_REGISTRY_CORRUPT,
          "the VHDX is damaged: its mark, its region tables, its metadata or the disk's size");

    PutTwoGptPartitions();

    EXPECT_EQ(Inspect(Image().FileBytes(3, {'X'})), kMalformed);
    ExpectNothingButCountWritten();
    EXPECT_EQ(Inspect(Image().Regions({})), kMalformed);
    EXPECT_EQ(Inspect(Image().FileBytes(vhdx::kMetadataOffset, {'X'})), kMalformed);
    EXPECT_EQ(Inspect(Image().WithoutItem(vhdx::kFileParameters)), kMalformed);
    EXPECT_EQ(Inspect(Image().Item({vhdx::kVirtualDiskSize, LittleEndian(0, 8)})), kMalformed);
    ExpectNothingButCountWritten();
}

TEST_F(InspectImageTest, OpensThroughTheSecondRegionTable)
{
    SHOWS(KkInspectImage, KK_STATUS_SUCCESS, "the second region table serves when the first one is damaged");

    PutTwoGptPartitions();

    EXPECT_EQ(Inspect(Image().FileBytes(vhdx::kRegionTableOffsets[0], Bytes(vhdx::kRegionTableBytes))), 0);
    EXPECT_EQ(count, 2u);
}

TEST_F(InspectImageTest, AnEmptyDiskIsMalformed)
{
    SHOWS(KkInspectImage, KK_STATUS_REGISTRY_CORRUPT, "the disk in the image has no table");

    EXPECT_EQ(Inspect(Image()), kMalformed);
    ExpectNothingButCountWritten();
}

TEST_F(InspectImageTest, AProtectiveMbrAloneIsMalformed)
{
    SHOWS(KkInspectImage, KK_STATUS_REGISTRY_CORRUPT, "the disk in the image has only an MBR that protects a GPT");

    PutMbrSlot(1, 0xEE, 1, 0xFFFFFFFF);

    EXPECT_EQ(Inspect(Image()), kMalformed);
    ExpectNothingButCountWritten();
}

TEST_F(InspectImageTest, AGptOfUnusualNumbersHasNoPartitionsAndNoMbrInItsPlace)
{
    SHOWS(KkInspectImage, KK_STATUS_SUCCESS,
          "a GPT with 0 or more than 4096 entries, or entries below 128 bytes, has no partitions");

    PutTwoGptPartitions();
    PutMbrSlot(2, 0x07, 2048, 2048);
    for (const auto& [offset, value] : {std::pair<uint64_t, uint64_t>{80, 0}, {80, 4097}, {84, 127}, {84, 0}}) {
        PutTwoGptPartitions();
        Put(512 + offset, LittleEndian(value, 4));

        ASSERT_EQ(Inspect(Image()), 0);
        EXPECT_EQ(count, 0u);
        EXPECT_EQ(Style(), kGptStyle);
        EXPECT_EQ(Slice(Info(), 16, 20), BytesOf(machine::kSampleDiskId) + LittleEndian(0, 4));
        EXPECT_TRUE(IsDirt(recordBytes));
    }
}

TEST_F(InspectImageTest, TheGptCountsWhenBothTablesHavePartitions)
{
    SHOWS(KkInspectImage, KK_STATUS_SUCCESS, "when GPT and MBR both have partitions the GPT counts");

    PutTwoGptPartitions();
    PutMbrSlot(2, 0x07, 2048, 2048);

    ASSERT_EQ(Inspect(Image()), 0);
    EXPECT_EQ(Style(), kGptStyle);
    EXPECT_EQ(count, 2u);
}

TEST_F(InspectImageTest, AnyFailureOfTheGptLeadsToTheMbr)
{
    SHOWS(KkInspectImage, KK_STATUS_SUCCESS, "when the GPT cannot be read the MBR's partitions are told");

    PutTwoGptPartitions();
    PutMbrSlot(2, 0x07, 2048, 2048);
    Image().Save(file);
    machine.journal.Clear();
    ASSERT_EQ(InspectFile(), 0);
    const uint64_t reads = machine.journal.Count({CallKind::ReadFile});
    const uint64_t allocations = machine.journal.Count({CallKind::Allocate});
    const auto expectMbr = [&] {
        EXPECT_EQ(InspectFile(), 0);
        EXPECT_EQ(Style(), kMbrStyle);
        EXPECT_EQ(count, 1u);
        EXPECT_EQ(Slice(Info(), 16, 16), Bytes(16)) << "the disk's GUID had been read";
        EXPECT_EQ(Slice(Record(0), 0, 4), LittleEndian(2, 4));
        EXPECT_TRUE(IsDirt(Record(1)));
    };

    // The header and the array, each behind its entry of the block table.
    for (uint64_t nth = reads - 3; nth <= reads; ++nth) {
        machine.faults.Clear();
        machine.faults.Fail({CallKind::ReadFile}, nth, 0xC000009C);
        expectMbr();
    }
    // Sector, array and list.
    for (uint64_t nth = allocations - 2; nth <= allocations; ++nth) {
        machine.faults.Clear();
        machine.faults.Fail({CallKind::Allocate}, nth, 0);
        expectMbr();
    }
}

TEST_F(InspectImageTest, PartitionsOfAGptThatFailsLaterAreForgotten)
{
    SHOWS(KkInspectImage, KK_STATUS_SUCCESS,
          "partitions of a GPT that fails later are forgotten when the MBR takes its place");

    machine::GptTable table;
    for (uint64_t i = 0; i < 9; ++i) {
        table.partitions.push_back({.start = (i + 1) * kMiB, .length = kMiB});
    }
    PutGpt(table);
    PutMbrSlot(3, 0x07, 2048, 2048);
    Image().Save(file);
    machine.journal.Clear();
    ASSERT_EQ(InspectFile(), 0);
    ASSERT_EQ(count, 9u);
    machine.faults.Fail({CallKind::Allocate}, machine.journal.Count({CallKind::Allocate}), 0);

    EXPECT_EQ(InspectFile(), 0);
    EXPECT_EQ(count, 1u);
    EXPECT_EQ(Slice(Record(0), 0, 4), LittleEndian(3, 4));
}

TEST_F(InspectImageTest, WhenBothTablesFailTheGptsFailureIsTold)
{
    SHOWS(KkInspectImage, 0xC000009C, "when both tables fail the failure of the GPT's array is told");
    SHOWS(KkInspectImage, 0xC000009D, "when both tables fail the failure of the GPT's header is told");

    PutTwoGptPartitions();
    Image().Save(file);
    machine.journal.Clear();
    ASSERT_EQ(InspectFile(), 0);
    const uint64_t reads = machine.journal.Count({CallKind::ReadFile});

    machine.faults.Fail({CallKind::ReadFile}, reads, 0xC000009C);
    EXPECT_EQ(InspectFile(), Status(0xC000009C)) << "the MBR is malformed: it is only a protective one";
    ExpectNothingButCountWritten();

    machine.faults.Clear();
    machine.faults.Fail({CallKind::ReadFile}, reads - 1, 0xC000009D);
    machine.faults.Fail({CallKind::ReadFile}, reads + 1, 0xC000009E);
    EXPECT_EQ(InspectFile(), Status(0xC000009D));
}

TEST_F(InspectImageTest, WithoutAGptAFailingMbrReadIsNotTold)
{
    SHOWS(KkInspectImage, KK_STATUS_REGISTRY_CORRUPT, "without a GPT the failing read of the MBR is not told");

    PutMbrSlot(1, 0x07, 2048, 2048);
    Image().Save(file);
    machine.journal.Clear();
    ASSERT_EQ(InspectFile(), 0);
    machine.faults.Fail({CallKind::ReadFile}, machine.journal.Count({CallKind::ReadFile}), 0xC000009C);

    EXPECT_EQ(InspectFile(), kMalformed);
    ExpectNothingButCountWritten();
}

TEST_F(InspectImageTest, AnArrayThatDoesNotFitIntoMemoryIsTold)
{
    SHOWS(KkInspectImage, KK_STATUS_UNSUCCESSFUL, "the GPT claims to be 4 GiB or larger");

    PutTwoGptPartitions();
    Put(512 + 80, LittleEndian(4096, 4));
    Put(512 + 84, LittleEndian(0x100000, 4));

    EXPECT_EQ(Inspect(Image()), KK_STATUS_UNSUCCESSFUL);
    ExpectNothingButCountWritten();
}

TEST_F(InspectImageTest, ATableInABlockBeyondTheFilesEndIsTold)
{
    SHOWS(KkInspectImage, KK_STATUS_END_OF_FILE, "the table lies beyond the file's end");

    PutTwoGptPartitions();

    EXPECT_EQ(Inspect(Image().Entry(0, uint64_t{1} << 45 | vhdx::kFullyPresent)), KK_STATUS_END_OF_FILE);
    ExpectNothingButCountWritten();
}

TEST_F(InspectImageTest, ATableInABlockThatIsNotFullyPresentIsNone)
{
    SHOWS(KkInspectImage, KK_STATUS_REGISTRY_CORRUPT,
          "the table lies in a block that is not wholly present, which reads as zeros");

    PutTwoGptPartitions();
    for (const uint64_t state : {0u, 1u, 2u, 3u, 4u, 5u, 7u}) {
        EXPECT_EQ(Inspect(Image().State(0, state)), kMalformed) << state;
    }
}

TEST_F(InspectImageTest, ASectorSizeThatHoldsNoTableIsMalformed)
{
    SHOWS(KkInspectImage, KK_STATUS_REGISTRY_CORRUPT, "the sector size is too small for a table");

    PutTwoGptPartitions();
    PutMbrSlot(2, 0x07, 2048, 2048);
    for (const uint32_t size : {0u, 1u, 91u, 511u}) {
        EXPECT_EQ(Inspect(Image().Item({vhdx::kLogicalSectorSize, LittleEndian(size, 4)})), kMalformed) << size;
        ExpectNothingButCountWritten();
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

/// What the first failing call means for the whole.
int32_t ExpectedStatus(const machine::Journal& journal, FaultMode mode)
{
    const std::vector<machine::CallRecord>& records = journal.Records();
    const auto failed = std::ranges::find_if(records, [](const machine::CallRecord& call) { return call.struck; });
    if (failed == records.end()) {
        return 0;
    }
    if (failed->kind == CallKind::Allocate) {
        const bool isFirst = CallsBefore(journal, *failed, {.kind = CallKind::Allocate}) == 0;
        return isFirst ? KK_STATUS_NO_MEMORY : KK_STATUS_UNSUCCESSFUL;
    }
    const bool isOfOneCall = mode == FaultMode::OneCall;
    if (failed->kind == CallKind::QueryInformation) {
        return isOfOneCall ? 0 : KK_STATUS_UNSUCCESSFUL;  // the file's size may stay unknown; memory comes next
    }
    if (failed->kind == CallKind::ReadFile && failed->offset == vhdx::kRegionTableOffsets[0]) {
        return isOfOneCall ? 0 : kMalformed;
    }
    return static_cast<int32_t>(failed->result);
}

TEST_F(InspectImageTest, EveryFailingCallIsToldAndNothingIsLeftOpen)
{
    SHOWS(KkInspectImage, KK_STATUS_SUCCESS, "a failing question for the file's size does not matter");
    SHOWS(KkInspectImage, KK_STATUS_NO_MEMORY, "no memory for the open file");
    SHOWS(KkInspectImage, KK_STATUS_UNSUCCESSFUL, "no memory for anything later");
    SHOWS(KkInspectImage, KK_STATUS_REGISTRY_CORRUPT, "neither of the two region tables can be read");

    PutTwoGptPartitions();
    Image().Save(file);
    for (const FaultMode mode : {FaultMode::OneCall, FaultMode::ThatCallAndAllLater}) {
        const uint64_t calls = SweepFailingCalls(
            machine, mode, [&] { return InspectFile(); },
            [&](const machine::CallRecord*, int32_t status) {
                EXPECT_EQ(status, ExpectedStatus(machine.journal, mode));
                if (status < 0) {
                    ExpectNothingButCountWritten();
                } else {
                    EXPECT_EQ(count, 2u);
                    EXPECT_EQ(Style(), kGptStyle);
                }
            });
        EXPECT_GE(calls, 12u);
    }
}

}  // namespace
