#include "backup/json_writer.h"

#include <array>
#include <cstdio>
#include <string>

#include "support/machine_test.h"

namespace {

class JsonWriterTest : public MachineTest {
protected:
    /// The document so far.
    std::string Text()
    {
        json.Finish();
        return {reinterpret_cast<const char*>(json.Text()), json.TextLength()};
    }

    kk::JsonWriter json;
};

TEST_F(JsonWriterTest, AKeyAtTheOutermostLevelFollowsAComma)
{
    json.Key("a");
    json.UIntValue(1);
    json.Key("b");

    EXPECT_EQ(Text(), R"(,"a":1,"b":)");
}

TEST_F(JsonWriterTest, OnlyTheFirstKeyOfAnObjectHasNoComma)
{
    json.BeginObject();
    json.Key("a");
    json.UIntValue(1);
    json.Key("b");
    json.UIntValue(2);
    json.Key("c");
    json.UIntValue(3);
    json.EndObject();

    EXPECT_EQ(Text(), R"({"a":1,"b":2,"c":3})");
}

TEST_F(JsonWriterTest, TwoKeysInARowAreSeparatedAlthoughAValueIsDue)
{
    json.BeginObject();
    json.Key("a");
    json.Key("b");
    json.BoolValue(true);

    EXPECT_EQ(Text(), R"({"a":,"b":true)");
}

TEST_F(JsonWriterTest, ElementsOfAnArrayAreSeparatedWhateverTheyAre)
{
    json.BeginArray();
    json.BeginObject();
    json.EndObject();
    json.BeginObject();
    json.EndObject();
    json.BeginArray();
    json.EndArray();
    json.StringValue("x");
    json.UIntValue(7);
    json.BoolValue(false);
    json.EndArray();

    EXPECT_EQ(Text(), R"([{},{},[],"x",7,false])");
}

TEST_F(JsonWriterTest, AValueOfAnyKindFollowsItsKeyAtOnce)
{
    json.BeginObject();
    json.Key("first");
    json.UIntValue(1);
    json.Key("string");
    json.StringValue("s");
    json.Key("number");
    json.UIntValue(2);
    json.Key("truth");
    json.BoolValue(true);
    json.Key("object");
    json.BeginObject();
    json.EndObject();
    json.Key("array");
    json.BeginArray();
    json.EndArray();
    json.EndObject();

    EXPECT_EQ(Text(), R"({"first":1,"string":"s","number":2,"truth":true,"object":{},"array":[]})");
}

TEST_F(JsonWriterTest, ContainersMayBeEmpty)
{
    json.BeginObject();
    json.EndObject();
    json.BeginArray();
    json.EndArray();

    EXPECT_EQ(Text(), "{}[]");
}

TEST_F(JsonWriterTest, AContainerThatWasClosedLeavesTheOuterOneWithMembers)
{
    json.BeginArray();
    json.BeginArray();
    json.UIntValue(1);
    json.EndArray();
    json.UIntValue(2);
    json.BeginObject();
    json.Key("k");
    json.BeginArray();
    json.UIntValue(3);
    json.EndArray();
    json.Key("l");
    json.UIntValue(4);
    json.EndObject();
    json.EndArray();

    EXPECT_EQ(Text(), R"([[1],2,{"k":[3],"l":4}])");
}

TEST_F(JsonWriterTest, ValuesAtTheOutermostLevelAreNotSeparated)
{
    json.UIntValue(1);
    json.BoolValue(true);
    json.StringValue("");
    json.BeginArray();

    EXPECT_EQ(Text(), R"(1true""[)");
}

TEST_F(JsonWriterTest, ValuesWithoutKeysInAnObjectAreSeparatedAsInAnArray)
{
    json.BeginObject();
    json.UIntValue(1);
    json.UIntValue(2);
    json.Key("a");

    EXPECT_EQ(Text(), R"({1,2,"a":)");
}

TEST_F(JsonWriterTest, ClosingAContainerSettlesNoKey)
{
    json.BeginArray();
    json.BeginObject();
    json.Key("a");
    json.EndObject();
    json.UIntValue(1);
    json.UIntValue(2);

    EXPECT_EQ(Text(), R"([{"a":}1,2)");
}

TEST_F(JsonWriterTest, BracketsAreWrittenWithoutAnOpenContainer)
{
    json.EndObject();
    json.EndArray();
    json.BeginArray();
    json.UIntValue(1);
    json.EndArray();

    EXPECT_EQ(Text(), "}][1]");
}

TEST_F(JsonWriterTest, FieldsAreAKeyAndAValue)
{
    json.BeginObject();
    json.StringField("s", "text");
    json.UIntField("n", 5);
    json.BoolField("t", true);
    json.BoolField("f", false);
    json.EndObject();

    EXPECT_EQ(Text(), R"({"s":"text","n":5,"t":true,"f":false})");
}

/// What the format says of one byte of a string.
std::string Escaped(int byte)
{
    switch (byte) {
    case 0x22:
        return "\\\"";
    case 0x5C:
        return "\\\\";
    case 0x0A:
        return "\\n";
    case 0x0D:
        return "\\r";
    case 0x09:
        return "\\t";
    default:
        break;
    }
    if (byte >= 0x20) {
        return {static_cast<char>(byte)};
    }
    std::array<char, 8> text = {};
    std::snprintf(text.data(), text.size(), "\\u%04x", static_cast<unsigned>(byte));
    return text.data();
}

TEST_F(JsonWriterTest, EveryByteHasItsOneForm)
{
    std::string expected;
    for (int byte = 1; byte < 256; ++byte) {
        const std::string text(1, static_cast<char>(byte));
        json.StringValue(text.c_str());
        expected += '"' + Escaped(byte) + '"';
    }

    EXPECT_EQ(Text(), expected);
}

TEST_F(JsonWriterTest, ATextEndsAtItsTerminator)
{
    json.StringValue("ab\0cd");

    EXPECT_EQ(Text(), R"("ab")");
}

TEST_F(JsonWriterTest, EscapesStandWithinTheirText)
{
    json.StringValue("\x41\x22\x5C\x0A\x01\xC3\xA9");

    EXPECT_EQ(Text(), "\"A\\\"\\\\\\n\\u0001\xC3\xA9\"");
}

TEST_F(JsonWriterTest, KeysAreEscapedLikeTexts)
{
    json.BeginObject();
    json.Key("a\"\\\n\x1F/\x7F");

    EXPECT_EQ(Text(), "{\"a\\\"\\\\\\n\\u001f/\x7F\":");
}

TEST_F(JsonWriterTest, AnEmptyTextIsTwoQuotationMarks)
{
    json.StringValue("");

    EXPECT_EQ(Text(), "\"\"");
}

TEST_F(JsonWriterTest, NumbersAreDecimalWithoutLeadingZeros)
{
    std::string expected = "[0";
    json.BeginArray();
    json.UIntValue(0);
    for (uint64_t power = 1;; power *= 10) {
        json.UIntValue(power - 1);
        json.UIntValue(power);
        json.UIntValue(power + 1);
        expected += "," + std::to_string(power - 1) + "," + std::to_string(power) + "," + std::to_string(power + 1);
        if (power > UINT64_MAX / 10) {
            break;
        }
    }
    json.UIntValue(0x80000000);
    json.UIntValue(0x8000000000000000);
    json.UIntValue(UINT64_MAX);
    expected += ",2147483648,9223372036854775808,18446744073709551615";

    EXPECT_EQ(Text(), expected);
}

TEST_F(JsonWriterTest, FinishingAnEmptyTextLeavesTheTerminatorAlone)
{
    json.Finish();

    EXPECT_EQ(json.TextLength(), 0u);
    ASSERT_NE(json.Text(), nullptr);
    EXPECT_EQ(json.Text()[0], 0);
    EXPECT_EQ(machine.heap.Sizes(), std::vector<uint64_t>{8});
}

TEST_F(JsonWriterTest, FinishingAppendsOneTerminatorOnly)
{
    json.UIntValue(12345678);
    json.Finish();
    json.Finish();

    EXPECT_EQ(json.TextLength(), 8u);
    EXPECT_EQ(json.Text()[8], 0);
    EXPECT_EQ(machine.heap.Sizes(), (std::vector<uint64_t>{8, 16}));
}

TEST_F(JsonWriterTest, NothingIsAllocatedBeforeTheFirstByte)
{
    EXPECT_EQ(json.Text(), nullptr);
    EXPECT_EQ(json.TextLength(), 0u);
    EXPECT_EQ(machine.heap.TotalAllocations(), 0u);
}

}  // namespace
