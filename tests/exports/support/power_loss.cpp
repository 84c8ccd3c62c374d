#include "exports/support/power_loss.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <cstring>
#include <sstream>

#include "exports/support/table_judges.h"
#include "support/shell.h"

namespace {

/// A GPT is edited in four writes: array and header of the first copy, then of the second. What the copies describe
/// before the first, and after each.
constexpr CopiesTell kAfterWrites[] = {{Tells::Old, Tells::Old},
                                       {Tells::Neither, Tells::Old},
                                       {Tells::New, Tells::Old},
                                       {Tells::New, Tells::Neither},
                                       {Tells::New, Tells::New}};
constexpr size_t kTableWrites = std::size(kAfterWrites) - 1;

const CopiesTell& ExpectedAfter(size_t writes)
{
    return kAfterWrites[std::min(writes, kTableWrites)];
}

bool IsSame(const GptOnDisk& one, const GptOnDisk& other)
{
    return std::memcmp(&one.header, &other.header, sizeof(one.header)) == 0 &&
           one.entries.size() == other.entries.size() &&
           std::memcmp(one.entries.data(), other.entries.data(),
                       one.entries.size() * sizeof(machine::GptEntryRecord)) == 0;
}

std::string PartitionLine(uint64_t slot, uint64_t first, uint64_t last)
{
    return std::to_string(slot) + " " + std::to_string(first) + " " + std::to_string(last) + "\n";
}

/// What sgdisk, which knows sectors of 512 bytes only, has to say of a disk, and its partitions: a line for each with
/// slot, first and last sector.
struct SgdiskReport {
    std::string text;
    std::string partitions;
};

SgdiskReport AskSgdisk(machine::Disk& disk)
{
    const machine::TemporaryFile file;
    disk.ExportFile(0, disk.Size(), file.Path());
    SgdiskReport report = {.text = Shell("sgdisk -v -p '" + file.Path() + "'"), .partitions = {}};
    std::istringstream list(report.text.substr(std::min(report.text.find("\nNumber "), report.text.size())));
    std::string line;
    while (std::getline(list, line)) {
        std::istringstream words(line);
        uint64_t slot = 0;
        uint64_t first = 0;
        uint64_t last = 0;
        if (words >> slot >> first >> last) {
            report.partitions += PartitionLine(slot, first, last);
        }
    }
    return report;
}

std::string AsSgdiskLists(const GptOnDisk& copy)
{
    std::string lines;
    for (size_t i = 0; i < copy.entries.size(); ++i) {
        const machine::GptEntryRecord& entry = copy.entries[i];
        if (entry.type != kk::Guid{}) {
            lines += PartitionLine(i + 1, entry.firstLba, entry.lastLba);
        }
    }
    return lines;
}

/// It may complain about one copy, and says which of them it goes by.
void ExpectSgdiskFinds(machine::Disk& disk, const GptOnDisk& table, const CopiesTell& copies)
{
    const SgdiskReport report = AskSgdisk(disk);
    EXPECT_EQ(report.partitions, AsSgdiskLists(table)) << report.text;
    if (copies.primary == copies.backup) {
        EXPECT_THAT(report.text, testing::HasSubstr("No problems found")) << copies;
        return;
    }
    const char* const intact = copies.primary != Tells::Neither ? "Main" : "Backup";
    EXPECT_THAT(report.text, testing::HasSubstr(intact + std::string(" header: OK"))) << copies;
    EXPECT_THAT(report.text, testing::HasSubstr(intact + std::string(" partition table: OK"))) << copies;
    EXPECT_THAT(report.text, testing::HasSubstr("Identified 1 problems")) << copies;
}

const char* Name(Tells tells)
{
    return tells == Tells::Old ? "the old table" : tells == Tells::New ? "the new table" : "nothing";
}

}  // namespace

std::ostream& operator<<(std::ostream& stream, const CopiesTell& copies)
{
    return stream << "the first copy tells " << Name(copies.primary) << ", the second " << Name(copies.backup);
}

CutOffEdit::CutOffEdit(machine::Disk& disk, const DiskKind& kind, const std::function<int32_t()>& edit,
                       const std::vector<Place>& data)
    : disk_(disk), kind_(kind), before_(disk), old_(Read()), writes_(disk), mayChange_(data)
{
    EXPECT_EQ(edit(), 0);
    new_ = Read();
    writes_.TakeBack();
    before_.ExpectUnchanged();
    const TableSectors table(kind, disk.Size());
    mayChange_.insert(mayChange_.end(),
                      {table.primaryArray, table.primaryHeader, table.backupArray, table.backupHeader});
}

void CutOffEdit::ExpectAGptInEveryState()
{
    ASSERT_GE(writes_.Count(), kTableWrites);
    ASSERT_NE(old_.forOthers, new_.forOthers);
    for (size_t done = 0;; ++done) {
        SCOPED_TRACE(testing::Message() << "stopped after " << done << " writes");
        const CopiesTell& expected = ExpectedAfter(done);
        const Table& found = expected.primary == Tells::New ? new_ : old_;
        EXPECT_EQ(Copies(), expected);
        ExpectFound(found);
        if (kind_.sectorSize == 512) {
            ExpectSgdiskFinds(disk_, found.primary, expected);
        }
        if (done == writes_.Count()) {
            return;
        }
        ExpectTornWrites(done);
        writes_.Redo(done);
    }
}

/// Of a write of several sectors some may have come to the disk. No copy is then anything but what it was before the
/// write, or is not intact, and the other one is as it was.
void CutOffEdit::ExpectTornWrites(size_t next)
{
    const CopiesTell& before = ExpectedAfter(next);
    const CopiesTell& after = ExpectedAfter(next + 1);
    const uint64_t length = writes_.Length(next);
    const uint64_t step = std::max<uint64_t>(kind_.sectorSize, length / 32);
    for (uint64_t bytes = step; bytes < length; bytes += step) {
        writes_.Redo(next, bytes);
        EXPECT_THAT(Copies(), testing::AnyOf(before, after)) << bytes << " bytes of write " << next + 1;
    }
}

void CutOffEdit::ExpectAnMbrInEveryState()
{
    ASSERT_GE(writes_.Count(), 1u);
    ASSERT_EQ(writes_.Length(0), kind_.sectorSize) << "no table but a sector";
    ASSERT_NE(old_.forOthers, new_.forOthers);
    ExpectFound(old_);
    for (size_t done = 0; done < writes_.Count(); ++done) {
        writes_.Redo(done);
        ExpectFound(new_);
    }
}

CopiesTell CutOffEdit::AfterOnly(uint32_t writes)
{
    writes_.TakeBack();
    for (size_t i = 0; i < writes_.Count(); ++i) {
        if ((writes >> i & 1) != 0) {
            writes_.Redo(i);
        }
    }
    return Copies();
}

CutOffEdit::Table CutOffEdit::Read() const
{
    Table table;
    if (kind_.table == TableKind::Gpt) {
        table.primary = ReadGpt(disk_, 1);
        table.backup = ReadGpt(disk_, disk_.Size() / disk_.SectorSize() - 1);
    }
    table.forOthers = PartitionsForOthers(disk_, kind_);
    for (const kk::PartitionInformationEx& entry : disk_.Rescan().CachedLayout().partitions) {
        if (entry.partitionNumber != 0) {
            table.forTheDriver.push_back(
                {static_cast<uint64_t>(entry.startingOffset), static_cast<uint64_t>(entry.partitionLength)});
        }
    }
    return table;
}

Tells CutOffEdit::TellsOf(const GptOnDisk& copy, const GptOnDisk& old, const GptOnDisk& edited) const
{
    if (!copy.sound) {
        return Tells::Neither;
    }
    return IsSame(copy, old) ? Tells::Old : IsSame(copy, edited) ? Tells::New : Tells::Neither;
}

CopiesTell CutOffEdit::Copies() const
{
    const uint64_t lastLba = disk_.Size() / disk_.SectorSize() - 1;
    return {.primary = TellsOf(ReadGpt(disk_, 1), old_.primary, new_.primary),
            .backup = TellsOf(ReadGpt(disk_, lastLba), old_.backup, new_.backup)};
}

void CutOffEdit::ExpectFound(const Table& table)
{
    const Table found = Read();
    EXPECT_EQ(found.forOthers, table.forOthers);
    EXPECT_EQ(found.forTheDriver, table.forTheDriver);
    before_.ExpectUnchangedBut(mayChange_);
}
