#include "partition/identifiers.h"

#include <array>
#include <cstring>

#include "core/nt.h"
#include "machine/table_builder.h"
#include "support/hook.h"
#include "support/machine_test.h"

namespace kk {
namespace {

using GuidBytes = std::array<uint8_t, 16>;

GuidBytes BytesOf(const Guid& guid)
{
    GuidBytes bytes;
    std::memcpy(bytes.data(), &guid, sizeof(guid));
    return bytes;
}

class RandomGuidTest : public MachineTest {
protected:
    static GuidBytes Generate()
    {
        Guid guid;
        GenerateRandomGuid(guid);
        return BytesOf(guid);
    }
};

TEST_F(RandomGuidTest, ItsBytesAreBits16To23OfSixteenRandomNumbers)
{
    machine.random.Script({0x7F01FFFF, 0x0002FFFF, 0x7F030000, 0x00040000, 0x7F05FFFF, 0x0006FFFF, 0x7F07FFFF,
                           0x0018FFFF, 0x7F59FFFF, 0x000AFFFF, 0x7F0BFFFF, 0x000CFFFF, 0x7F0DFFFF, 0x000EFFFF,
                           0x7F0FFFFF, 0x00F0FFFF, 0x00AAFFFF});

    EXPECT_EQ(Generate(), (GuidBytes{0x01, 0x02, 0x03, 0x04, 0x05, 0x06, 0x07, 0x48, 0x99, 0x0A, 0x0B, 0x0C, 0x0D, 0x0E,
                                     0x0F, 0xF0}));
    EXPECT_EQ(machine.journal.Count({.kind = machine::CallKind::Random}), 16u);
}

TEST_F(RandomGuidTest, MarksVersionAndVariantInSetBits)
{
    const Hook<&RtlRandomEx> hook([](uint32_t*) { return 0x00FF0000u; });
    const GuidBytes bytes = Generate();

    EXPECT_EQ(bytes[7], 0x4F);
    EXPECT_EQ(bytes[8], 0xBF);
    EXPECT_EQ(bytes[6], 0xFF);
    EXPECT_EQ(bytes[9], 0xFF);
}

TEST_F(RandomGuidTest, MarksVersionAndVariantInClearBits)
{
    const Hook<&RtlRandomEx> hook([](uint32_t*) { return 0xFF00FFFFu; });
    const GuidBytes bytes = Generate();

    EXPECT_EQ(bytes[7], 0x40);
    EXPECT_EQ(bytes[8], 0x80);
    EXPECT_EQ(bytes[0], 0x00);
    EXPECT_EQ(bytes[15], 0x00);
}

TEST_F(RandomGuidTest, TheVersionIsInTheThirdFieldAndTheVariantInTheFourth)
{
    Guid guid;
    GenerateRandomGuid(guid);

    EXPECT_EQ(guid.data3 >> 12, 4);
    EXPECT_EQ(guid.data4[0] >> 6, 2);
}

TEST_F(RandomGuidTest, TheSeedIsTheTimeFoldedWithAConstant)
{
    const std::pair<int64_t, uint32_t> seeds[] = {
        {0, 0x9E3779B9},
        {0x01DA4F9B12345678, 0x01DA4F9B ^ 0x12345678 ^ 0x9E3779B9},
        {0x7FFFFFFF00000000, 0x7FFFFFFF ^ 0x9E3779B9},
        {0x00000000FFFFFFFF, 0xFFFFFFFF ^ 0x9E3779B9},
    };
    for (const auto& [time, expected] : seeds) {
        machine.clock.SetTime(time);
        std::vector<uint32_t> seen;
        const Hook<&RtlRandomEx> hook([&](uint32_t* seed) {
            seen.push_back(*seed);
            return ++*seed;
        });
        (void)Generate();

        ASSERT_EQ(seen.size(), 16u);
        for (uint32_t i = 0; i < 16; ++i) {
            EXPECT_EQ(seen[i], expected + i) << time;
        }
    }
}

TEST_F(RandomGuidTest, AsksForTheTimeOnce)
{
    (void)Generate();

    EXPECT_EQ(machine.journal.Count({.name = "NtQuerySystemTime"}), 1u);
    EXPECT_EQ(machine.journal.Records().front().name, "NtQuerySystemTime");
    EXPECT_EQ(machine.journal.Records().size(), 17u);
}

TEST_F(RandomGuidTest, TheSameTimeGivesTheSameIdentifier)
{
    EXPECT_EQ(Generate(), Generate());
}

TEST_F(RandomGuidTest, AnotherTimeGivesAnotherIdentifier)
{
    machine.clock.SetTick(1);

    EXPECT_NE(Generate(), Generate());
}

TEST(BasicDataTypeGuidTest, IsTheStandardValue)
{
    Guid guid;
    GetBasicDataTypeGuid(guid);

    EXPECT_EQ(guid, machine::kBasicDataType);
    EXPECT_EQ(BytesOf(guid), (GuidBytes{0xA2, 0xA0, 0xD0, 0xEB, 0xE5, 0xB9, 0x33, 0x44, 0x87, 0xC0, 0x68, 0xB6, 0xB7,
                                        0x26, 0x99, 0xC7}));
}

}  // namespace
}  // namespace kk
