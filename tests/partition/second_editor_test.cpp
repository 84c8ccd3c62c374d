// A second editor, in another language, makes the same of the same disks: random tables, honest and not.

#include <fstream>
#include <random>
#include <sstream>

#include "disk/disk_layout.h"
#include "partition/gpt_edit_fixture.h"
#include "partition/mbr_edit.h"
#include "support/shell.h"

namespace kk {
namespace {

/// Reads a case a line, edits the disk as it was and compares with the disk as it is, with status and number.
constexpr char kSecondEditor[] = R"(
import struct, sys, zlib
folder = sys.argv[1]
CORRUPT, FULL, INVALID, NO_MEMORY, NO_SECTOR = 0xC000014C, 0xC000007F, 0xC000000D, 0xC0000017, 0xC0000015
NOBODY = 0xABABABAB
HEAP = 2 << 30

class Failure(Exception):
    pass

class Disk:
    def __init__(self, data):
        self.data = bytearray(data)
    def check(self, at, count):
        if at + count > (1 << 63) - 1:
            raise Failure(INVALID)
        if at + count > len(self.data):
            raise Failure(NO_SECTOR)
    def read(self, at, count):
        self.check(at, count)
        return self.data[at:at + count]
    def write(self, at, data):
        self.check(at, len(data))
        self.data[at:at + len(data)] = data

def pick(used, starts, edit):
    for slot, (taken, start) in enumerate(zip(used, starts)):
        if not taken if edit['mode'] == 0 else taken and start == edit['match']:
            return slot
    raise Failure(FULL if edit['mode'] == 0 else INVALID)

def gpt_header(disk, edit, lba):
    sector = edit['sector']
    if sector < 92 or lba * sector >= 1 << 64:
        raise Failure(CORRUPT)
    data = disk.read(lba * sector, sector)
    if data[:8] != b'EFI PART':
        raise Failure(CORRUPT)
    return data

def gpt_copy(disk, edit, lba):
    sector = edit['sector']
    head = gpt_header(disk, edit, lba)
    size, = struct.unpack_from('<I', head, 12)
    array_lba, count, width = struct.unpack_from('<QII', head, 72)
    if not 1 <= count <= 4096 or width < 128:
        raise Failure(CORRUPT)
    if count * width > 0xFFFFFFFF:
        raise Failure(NO_MEMORY)
    if array_lba * sector >= 1 << 64:
        raise Failure(CORRUPT)
    if count * width > HEAP - 4096:
        raise Failure(NO_MEMORY)
    array = disk.read(array_lba * sector, count * width)
    entries = [array[i * width:(i + 1) * width] for i in range(count)]
    slot = pick([any(e[:16]) for e in entries], [struct.unpack_from('<Q', e, 32)[0] for e in entries], edit)
    entry = entries[slot]
    if edit['mode'] == 2:
        struct.pack_into('<Q', entry, 40, edit['last'])
    else:
        entry[:] = bytes(width)
    if edit['mode'] == 0:
        entry[:56] = edit['type'] + edit['id'] + struct.pack('<QQQ', edit['first'], edit['last'], 0)
        name = edit['name'][:70]
        entry[56:56 + len(name)] = name
    array = b''.join(entries)
    head = bytearray(head[:92])
    struct.pack_into('<I', head, 88, zlib.crc32(array))
    struct.pack_into('<I', head, 16, 0)
    struct.pack_into('<I', head, 16, zlib.crc32(head[:min(size, 92)]))
    def commit():
        disk.write(array_lba * sector, array)
        disk.write(lba * sector, head + bytes(sector - 92))
    return slot + 1, commit

def edit_gpt(disk, edit, report):
    other, = struct.unpack_from('<Q', gpt_header(disk, edit, 1), 32)
    number, commit = gpt_copy(disk, edit, 1)
    report(number)
    commit()
    gpt_copy(disk, edit, other)[1]()

def edit_mbr(disk, edit, report):
    data = disk.read(0, edit['sector'])
    if data[510:512] != b'\x55\xAA':
        raise Failure(CORRUPT)
    records = [data[446 + 16 * i:462 + 16 * i] for i in range(4)]
    slot = pick([r[4] for r in records], [struct.unpack_from('<I', r, 8)[0] for r in records], edit)
    record = records[slot]
    if edit['mode'] == 0:
        far = b'\xFE\xFF\xFF'
        record = (b'\0' + far + edit['type'][:1] + far
            + struct.pack('<II', edit['first'] & 0xFFFFFFFF, edit['last'] & 0xFFFFFFFF))
    elif edit['mode'] == 1:
        record = bytes(16)
    else:
        record = record[:12] + struct.pack('<I', edit['last'] & 0xFFFFFFFF)
    data[446 + 16 * slot:462 + 16 * slot] = record
    report(slot + 1)
    disk.write(0, data)

before = open(folder + '/before', 'rb')
after = open(folder + '/after', 'rb')
outcomes = {}
for line in open(folder + '/cases'):
    case, size, style, sector, mode, match, first, last, kind, identity, name, status, number = line.split()
    disk = Disk(before.read(int(size)))
    edit = dict(sector=int(sector) or 512, mode=int(mode), match=int(match), first=int(first), last=int(last),
        type=bytes.fromhex(kind), id=bytes.fromhex(identity), name=bytes.fromhex(name[1:]))
    told = [NOBODY]
    expected = 0
    try:
        (edit_gpt if style == '2' else edit_mbr)(disk, edit, told.append)
    except Failure as failure:
        expected = failure.args[0]
    outcomes[expected] = outcomes.get(expected, 0) + 1
    if expected != int(status) or told[-1] != int(number):
        sys.exit(f'case {case}: {int(status):#x} {number} instead of {expected:#x} {told[-1]}: {line}')
    found = after.read(int(size))
    if found != disk.data:
        at = next(i for i, (a, b) in enumerate(zip(disk.data, found)) if a != b)
        sys.exit(f'case {case}, byte {at}: {found[at]:#x} instead of {disk.data[at]:#x}: {line}')
for expected in sorted(outcomes):
    print(f'{expected:#x}', 'often' if outcomes[expected] >= 10 else outcomes[expected])
)";

std::string Hex(std::span<const uint8_t> bytes)
{
    std::ostringstream text;
    text << std::hex;
    for (const uint8_t byte : bytes) {
        text.width(2);
        text.fill('0');
        text << static_cast<unsigned>(byte);
    }
    return text.str();
}

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
              << ' ' << Hex(machine::BytesOf(edit.typeGuid)) << ' ' << Hex(machine::BytesOf(edit.uniqueGuid)) << " x"
              << Hex({reinterpret_cast<const uint8_t*>(name.data()), name.size() * 2}) << ' ' << status << ' ' << number
              << '\n';
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
