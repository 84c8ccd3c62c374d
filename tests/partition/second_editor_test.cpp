// A second editor, in another language, makes the same of the same disks: random tables, honest and not.

#include <fstream>
#include <random>

#include "disk/disk_layout.h"
#include "partition/gpt_edit_fixture.h"
#include "partition/mbr_edit.h"
#include "partition/second_editor.h"
#include "support/hex.h"
#include "support/shell.h"

namespace kk {
namespace {

class SecondEditorTest : public GptEditTest {
protected:
    uint64_t Random(uint64_t below) { return random() % below; }
    bool OneIn(uint64_t odds) { return Random(odds) == 0; }

    template <typename T>
    T OneOf(std::initializer_list<T> values)
    {
        return values.begin()[Random(values.size())];
    }

    /// A start that some entries have, or nearly.
    uint64_t RandomStart()
    {
        const uint64_t start = 100 + Random(12);
        return OneIn(10) ? start + (uint64_t{1} << OneOf({8, 32, 48, 63})) : start;
    }

    /// A small disk with two copies of a table that may be in any state.
    void UseRandomGpt()
    {
        sectorSize = OneOf({512u, 512u, 512u, 520u, 4096u, 1000u});
        const uint32_t entryBytes = OneOf({128u, 128u, 128u, 129u, 200u, 256u, 512u});
        const auto count = static_cast<uint32_t>(1 + Random(12));
        const uint64_t arraySectors = (uint64_t{count} * entryBytes + sectorSize - 1) / sectorSize;
        UseTable({.entryCount = count, .entryBytes = entryBytes}, sectorSize, (2 * arraySectors + 6) * sectorSize);
        const bool isCrowded = OneIn(4);
        for (const Copy copy : {kPrimary, kBackup}) {
            const uint64_t seed = OneIn(8) ? random() : lastSeed;
            std::mt19937_64 entries(seed);
            for (uint32_t slot = 0; slot < count; ++slot) {
                ChangeEntry(copy, slot, [&](machine::GptEntryRecord& entry) {
                    if (!isCrowded && entries() % 2 == 0) {
                        return;
                    }
                    for (uint8_t& byte : std::span(reinterpret_cast<uint8_t*>(&entry), sizeof(entry))) {
                        byte = static_cast<uint8_t>(entries());
                    }
                    entry.firstLba = 100 + entries() % 12;
                    if (entries() % 6 == 0) {
                        entry.type = {};
                    }
                });
            }
        }
        lastSeed = random();
        while (OneIn(3)) {
            ChangeHeader(OneOf({kPrimary, kBackup}), [this](auto& header) { Damage(header); });
        }
    }

    void Damage(machine::GptHeaderRecord& header)
    {
        switch (Random(9)) {
        case 0:
            header.signature[Random(8)] ^= 1;
            break;
        case 1:
            header.headerBytes = OneOf({0u, 16u, 18u, 91u, 93u, 512u, 0xFFFFFFFFu});
            break;
        case 2:
            header.otherLba = OneOf({uint64_t{0}, uint64_t{1}, uint64_t{2}, Random(64), uint64_t{1} << 55,
                                     (uint64_t{1} << 55) + 1, UINT64_MAX});
            break;
        case 3:
            header.entriesLba = OneOf({uint64_t{0}, uint64_t{1}, uint64_t{3}, Random(64), uint64_t{1} << 55,
                                       (uint64_t{1} << 55) + 2, (uint64_t{1} << 55) - 1, UINT64_MAX});
            break;
        case 4:
            header.entryCount = OneOf({0u, 1u, 2u, 4096u, 4097u, 0xFFFFFFFFu});
            break;
        case 5:
            header.entryBytes = OneOf({0u, 127u, 128u, 0x100001u, 0x55555556u, 0xFFFFFFFFu});
            break;
        default:
            // What edits do not look at.
            header.revision = static_cast<uint32_t>(random());
            header.reserved = static_cast<uint32_t>(random());
            header.ownLba = random();
            header.headerCrc32 = static_cast<uint32_t>(random());
            header.firstUsableLba = random();
            break;
        }
    }

    void UseRandomMbr()
    {
        sectorSize = OneOf({512u, 512u, 512u, 0u, 520u, 4096u, 511u, 64u, 1u});
        UseMemory(8192);
        size = 8192;
        machine::MbrRecord mbr;
        std::memset(&mbr, 0xA5, sizeof(mbr));
        for (machine::MbrEntryRecord& entry : mbr.entries) {
            entry.type = OneOf({uint8_t{0}, uint8_t{0}, uint8_t{7}, uint8_t{5}, uint8_t{0xFF}});
            entry.firstSector = static_cast<uint32_t>(100 + Random(5));
        }
        mbr.mark = OneIn(10) ? static_cast<uint16_t>(random()) : machine::kBootMark;
        EXPECT_TRUE(storage->Write(0, machine::BytesOf(mbr)));
    }

    GptEdit RandomEdit()
    {
        GptEdit edit = {};
        edit.mode = OneOf({TableEditMode::Add, TableEditMode::Remove, TableEditMode::Resize});
        edit.matchLba = RandomStart();
        edit.firstLba = random() >> Random(64);
        edit.lastLba = random() >> Random(64);
        edit.typeGuid.data1 = static_cast<uint32_t>(random());
        edit.typeGuid.data4[7] = static_cast<uint8_t>(random());
        edit.uniqueGuid.data2 = static_cast<uint16_t>(random());
        edit.uniqueGuid.data4[0] = static_cast<uint8_t>(random());
        name.clear();
        for (uint64_t i = Random(40); i > 0; --i) {
            name += static_cast<char16_t>(1 + Random(0xFFFF));
        }
        edit.name = name.c_str();
        return edit;
    }

    KK_STATUS Apply(PartitionStyle style, const GptEdit& edit)
    {
        number = kUntouched;
        if (style == PartitionStyle::Gpt) {
            return EditGptPartition(*target, sectorSize, edit, &number);
        }
        const MbrEdit record = {.mode = edit.mode,
                                .matchLba = edit.matchLba,
                                .firstLba = edit.firstLba,
                                .sectorCount = edit.lastLba,
                                .type = static_cast<uint8_t>(edit.typeGuid.data1)};
        return EditMbrPartition(*target, sectorSize, record, &number);
    }

    void AddCase(int index, PartitionStyle style)
    {
        const GptEdit edit = RandomEdit();
        Append(before, WholeDisk());
        const auto status = static_cast<uint32_t>(Apply(style, edit));
        Append(after, WholeDisk());
        cases << index << ' ' << size << ' ' << static_cast<uint32_t>(style) << ' ' << sectorSize << ' '
              << static_cast<uint32_t>(edit.mode) << ' ' << edit.matchLba << ' ' << edit.firstLba << ' ' << edit.lastLba
              << ' ' << HexOf(machine::BytesOf(edit.typeGuid)) << ' ' << HexOf(machine::BytesOf(edit.uniqueGuid))
              << " x" << HexOf({reinterpret_cast<const uint8_t*>(name.data()), name.size() * 2}) << ' ' << status << ' '
              << number << '\n';
    }

    static void Append(std::ofstream& file, const std::vector<uint8_t>& bytes)
    {
        file.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
    }

    std::string Verdict()
    {
        before.close();
        after.close();
        cases.close();
        return Shell("python3 - '" + folder.Path().string() + "' <<'SCRIPT'" + kSecondEditor + "SCRIPT\ntrue");
    }

    TemporaryFolder folder;
    std::ofstream before{folder / "before", std::ios::binary};
    std::ofstream after{folder / "after", std::ios::binary};
    std::ofstream cases{folder / "cases"};
    std::mt19937_64 random{42};
    uint64_t lastSeed = 1;
    std::u16string name;
};

TEST_F(SecondEditorTest, MakesTheSameOfAGpt)
{
    for (int i = 0; i < 1500; ++i) {
        UseRandomGpt();
        AddCase(i, PartitionStyle::Gpt);
    }

    EXPECT_EQ(Verdict(), "0x0 often\n0xc000000d often\n0xc0000015 often\n0xc0000017 often\n0xc000007f often\n"
                         "0xc000014c often\n");
}

TEST_F(SecondEditorTest, MakesTheSameOfAnMbr)
{
    for (int i = 0; i < 600; ++i) {
        UseRandomMbr();
        AddCase(i, PartitionStyle::Mbr);
    }

    EXPECT_EQ(Verdict(), "0x0 often\n0xc000000d often\n0xc000007f often\n0xc000014c often\n");
}

}  // namespace
}  // namespace kk
