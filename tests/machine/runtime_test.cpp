#include "machine/clock.h"
#include "machine/ntdll_exports.h"
#include "machine/random.h"
#include "machine/text.h"
#include "tests/machine/native_calls.h"

namespace machine {
namespace {

class RuntimeTest : public MachineTest {
protected:
    struct Utf8Outcome {
        Status status;
        std::string text;
    };
    static Utf8Outcome ToUtf8(const std::u16string& text, uint32_t room)
    {
        std::string output(room, '#');
        uint32_t written = 0;
        const Status status =
            RtlUnicodeToUTF8N(output.data(), room, &written, text.data(), static_cast<uint32_t>(text.size() * 2));
        output.resize(written);
        return {status, output};
    }
};

TEST_F(RuntimeTest, TheClockStandsStillUnlessItTicks)
{
    machine.clock.SetTime(1000);
    int64_t time = 0;
    NtQuerySystemTime(&time);
    EXPECT_EQ(time, 1000);
    machine.clock.SetTick(7);
    NtQuerySystemTime(&time);
    EXPECT_EQ(time, 1000);
    NtQuerySystemTime(&time);
    EXPECT_EQ(time, 1007);
}

TEST_F(RuntimeTest, TimesFallApartIntoFields)
{
    kk::TimeFields fields = {};
    const int64_t zero = 0;
    RtlTimeToTimeFields(&zero, &fields);
    EXPECT_EQ(fields.year, 1601);
    EXPECT_EQ(fields.month, 1);
    EXPECT_EQ(fields.day, 1);
    EXPECT_EQ(fields.weekday, 1);

    const int64_t leapDay = 133'536'455'991'230'000;  // 2024-02-29 01:59:59.123
    RtlTimeToTimeFields(&leapDay, &fields);
    EXPECT_EQ(fields.year, 2024);
    EXPECT_EQ(fields.month, 2);
    EXPECT_EQ(fields.day, 29);
    EXPECT_EQ(fields.hour, 1);
    EXPECT_EQ(fields.minute, 59);
    EXPECT_EQ(fields.second, 59);
    EXPECT_EQ(fields.milliseconds, 123);
    EXPECT_EQ(fields.weekday, 4);
}

TEST_F(RuntimeTest, OneSeedGivesOneNumberUnlessTheProcessSharesATable)
{
    const auto draw = [](uint32_t seed) { return std::pair(RtlRandomEx(&seed), seed); };

    EXPECT_EQ(draw(42), draw(42));
    EXPECT_NE(draw(42).second, 42u);
    for (uint32_t seed : {0u, 1u, 0x7FFFFFFFu, 0xFFFFFFFFu}) {
        EXPECT_LE(draw(seed).first, 0x7FFFFFFEu);
    }
    machine.random.Script({5, 6});
    EXPECT_EQ(draw(42).first, 5u);
    EXPECT_EQ(draw(42).first, 6u);
    machine.random.SetProcessWideTable(true);
    EXPECT_NE(draw(42).first, draw(42).first);
    EXPECT_EQ(draw(42).second, draw(42).second);
}

TEST_F(RuntimeTest, TextIsConvertedInWholeCharacters)
{
    EXPECT_EQ(ToUtf8(u"a\u00E9\u20AC\U0001F600", 16).text, "a\u00E9\u20AC\U0001F600");
    EXPECT_EQ(ToUtf8(u"a\u20AC", 3).status, kBufferTooSmall);
    EXPECT_EQ(ToUtf8(u"a\u20AC", 3).text, "a");
    const Utf8Outcome lone = ToUtf8(std::u16string(1, char16_t(0xD800)) + u"x", 16);
    EXPECT_EQ(lone.status, kSomeNotMapped);
    EXPECT_EQ(lone.text, "\uFFFDx");
    EXPECT_EQ(ToUtf8(u"", 0).status, kSuccess);
}

TEST_F(RuntimeTest, LibrariesAreFoundInAnyCaseAndCanGoMissing)
{
    const auto load = [](const std::u16string& name) {
        const auto bytes = static_cast<uint16_t>(name.size() * 2);
        const kk::UnicodeString text = {bytes, bytes, name.c_str()};
        void* module = nullptr;
        return std::pair(LdrLoadDll(nullptr, nullptr, &text, &module), module);
    };
    machine.modules.Add(u"thing.dll", {{"Do", &machine}});

    EXPECT_EQ(load(u"THING").first, kSuccess);
    EXPECT_EQ(load(u"Thing.DLL").second, load(u"thing").second);
    EXPECT_EQ(machine.modules.FindEntry(load(u"thing").second, "Do"), &machine);
    machine.modules.RemoveEntry(u"thing.dll", "Do");
    EXPECT_EQ(machine.modules.FindEntry(load(u"thing").second, "Do"), nullptr);
    machine.modules.Remove(u"Thing");
    EXPECT_EQ(load(u"thing").first, kDllNotFound);
}

TEST_F(RuntimeTest, ExportsAreFoundByName)
{
    EXPECT_EQ(FindNtdllExport("NtClose"), reinterpret_cast<void*>(&NtClose));
    EXPECT_EQ(FindNtdllExport("NtNothing"), nullptr);
}

TEST_F(RuntimeTest, GuidsAndTextGoBothWays)
{
    EXPECT_EQ(BracedGuid(ParseGuid("{AABBCCDD-0102-0304-0506-0708090A0B0C}")),
              u"{aabbccdd-0102-0304-0506-0708090a0b0c}");
    EXPECT_THROW((void)ParseGuid("AABBCCDD"), std::invalid_argument);
    EXPECT_EQ(Utf16(Utf8(u"\u20AC\U0001F600")), u"\u20AC\U0001F600");
}

}  // namespace
}  // namespace machine
