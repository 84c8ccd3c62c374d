#include "backup/text_formats.h"

#include <cstring>
#include <fstream>
#include <random>
#include <string>

#include "core/nt.h"
#include "machine/text.h"
#include "support/hook.h"
#include "support/machine_test.h"
#include "support/shell.h"

namespace {

class TextFormatsTest : public MachineTest {
protected:
    std::string SetId()
    {
        char text[kk::kBackupSetIdBytes];
        std::memset(text, 'x', sizeof(text));
        kk::FormatBackupSetId(text);
        EXPECT_EQ(std::strlen(text), kk::kBackupSetIdBytes - 1);
        return text;
    }

    static std::string GuidText(const kk::Guid& guid)
    {
        char text[kk::kGuidTextBytes];
        std::memset(text, 'x', sizeof(text));
        kk::FormatGuidText(guid, text);
        return text;
    }

    static std::string Timestamp()
    {
        char text[kk::kTimestampBytes];
        std::memset(text, 'x', sizeof(text));
        kk::FormatUtcTimestamp(text);
        return text;
    }
};

TEST_F(TextFormatsTest, ABackupSetIdMixesTimeRandomNumberAndAdvancedSeed)
{
    machine.clock.SetTime(0x01DA'0123'89AB'CDEF);
    uint32_t seedGiven = 0;
    const Hook<&RtlRandomEx> hook([&](uint32_t* seed) {
        seedGiven = *seed;
        *seed = 0xFEDCBA98;
        return 0x7654'3210u;
    });

    // ((0x89ABCDEF << 24 ^ 0x76543210) << 8) ^ 0xFEDCBA98
    EXPECT_EQ(SetId(), "set-89abcd99aaeeaa98");
    EXPECT_EQ(seedGiven, 0x01DA0123u ^ 0x89ABCDEFu);
}

TEST_F(TextFormatsTest, ABackupSetIdKeepsLeadingZeros)
{
    machine.clock.SetTime(0x0000'0001'0000'0000);
    const Hook<&RtlRandomEx> hook([](uint32_t* seed) {
        *seed = 0xA;
        return 0u;
    });

    EXPECT_EQ(SetId(), "set-000000000000000a");
}

TEST_F(TextFormatsTest, ATimeBelowZeroMakesASeedAllTheSame)
{
    machine.clock.SetTime(static_cast<int64_t>(0xFFFF'FFFE'1234'5678));
    uint32_t seedGiven = 0;
    const Hook<&RtlRandomEx> hook([&](uint32_t* seed) {
        seedGiven = *seed;
        *seed = 0;
        return 0u;
    });

    EXPECT_EQ(SetId(), "set-1234567800000000");
    EXPECT_EQ(seedGiven, 0xFFFFFFFEu ^ 0x12345678u);
}

TEST_F(TextFormatsTest, ABackupSetIdTakesOneTimeAndOneRandomNumber)
{
    SetId();

    EXPECT_EQ(machine.journal.Count({.name = "NtQuerySystemTime"}), 1u);
    EXPECT_EQ(machine.journal.Count({.name = "RtlRandomEx"}), 1u);
    EXPECT_EQ(machine.journal.Records().size(), 2u);
}

TEST_F(TextFormatsTest, AGuidHasItsRegistryFormInLowerCase)
{
    EXPECT_EQ(GuidText({0x00112233, 0x4455, 0x6677, {0x88, 0x99, 0xAA, 0xBB, 0xCC, 0xDD, 0xEE, 0xFF}}),
              "00112233-4455-6677-8899-aabbccddeeff");
    EXPECT_EQ(GuidText({}), "00000000-0000-0000-0000-000000000000");
    EXPECT_EQ(GuidText({0xFFFFFFFF, 0xFFFF, 0xFFFF, {255, 255, 255, 255, 255, 255, 255, 255}}),
              "ffffffff-ffff-ffff-ffff-ffffffffffff");
    EXPECT_EQ(GuidText({0x0A, 0x0B, 0x0C, {0, 1, 0, 2, 0, 3, 0, 4}}), "0000000a-000b-000c-0001-000200030004");
}

TEST_F(TextFormatsTest, RandomGuidsReadBackAsTheyWere)
{
    std::mt19937 random(7);
    for (int i = 0; i < 500; ++i) {
        kk::Guid guid;
        auto* const bytes = reinterpret_cast<uint8_t*>(&guid);
        for (size_t k = 0; k < sizeof(guid); ++k) {
            bytes[k] = static_cast<uint8_t>(random());
        }
        EXPECT_EQ(machine::ParseGuid(GuidText(guid)), guid);
    }
}

TEST_F(TextFormatsTest, ATimestampIsUtcInWholeSeconds)
{
    machine.clock.SetTime(133'500'000'000'000'000);
    EXPECT_EQ(Timestamp(), "2024-01-17T21:20:00Z");

    machine.clock.SetTime(133'500'000'009'999'999);
    EXPECT_EQ(Timestamp(), "2024-01-17T21:20:00Z");

    machine.clock.SetTime(0);
    EXPECT_EQ(Timestamp(), "1601-01-01T00:00:00Z");
}

TEST_F(TextFormatsTest, ATimestampTakesOneTimeAndNothingLocal)
{
    Timestamp();

    ASSERT_EQ(machine.journal.Records().size(), 2u);
    EXPECT_EQ(machine.journal.Records()[0].name, "NtQuerySystemTime");
    EXPECT_EQ(machine.journal.Records()[1].name, "RtlTimeToTimeFields");
}

TEST_F(TextFormatsTest, RandomTimestampsAgreeWithAnotherCalendar)
{
    const TemporaryFolder folder;
    constexpr int64_t kEndOfYear9999 = 2'650'467'744'000'000'000;
    std::mt19937_64 random(11);
    {
        std::ofstream lines(folder / "times");
        for (int i = 0; i < 1000; ++i) {
            const auto time = static_cast<int64_t>(random() % static_cast<uint64_t>(kEndOfYear9999));
            machine.clock.SetTime(time);
            lines << time << ' ' << Timestamp() << '\n';
        }
    }

    const std::string script = R"(
import datetime, sys
for line in open(sys.argv[1]):
    ticks, text = line.split()
    moment = datetime.datetime(1601, 1, 1) + datetime.timedelta(microseconds=int(ticks) // 10)
    assert text == moment.replace(microsecond=0).isoformat() + 'Z', line
)";
    EXPECT_EQ(Shell("python3 - '" + (folder / "times").string() + "' <<'SCRIPT'" + script + "SCRIPT\ntrue"), "");
}

TEST_F(TextFormatsTest, EveryFieldKeepsItsWidthWhateverItHolds)
{
    kk::TimeFields fields = {};
    const Hook<&RtlTimeToTimeFields> hook([&](const int64_t*, kk::TimeFields* output) { *output = fields; });

    EXPECT_EQ(Timestamp(), "0000-00-00T00:00:00Z");

    fields = {30828, 9, 114, 2, 1000, 599, 0, 0};
    EXPECT_EQ(Timestamp(), "0828-09-14T02:00:99Z");

    fields = {7, 12, 31, 23, 59, 58, 999, 6};
    EXPECT_EQ(Timestamp(), "0007-12-31T23:59:58Z");
}

TEST_F(TextFormatsTest, FieldsBelowZeroCountAsTheUnsignedNumbersOfTheirBits)
{
    const Hook<&RtlTimeToTimeFields> hook(
        [](const int64_t*, kk::TimeFields* output) { *output = {-1, -2, -32768, -1, -10, -36, 0, 0}; });

    // 65535, 65534, 32768, 65535, 65526 and 65500.
    EXPECT_EQ(Timestamp(), "5535-34-68T35:26:00Z");
}

TEST_F(TextFormatsTest, FieldsThatAreNotFilledInReadAsZero)
{
    const Hook<&RtlTimeToTimeFields> hook([](const int64_t*, kk::TimeFields*) {});

    EXPECT_EQ(Timestamp(), "0000-00-00T00:00:00Z");
}

}  // namespace
