#include "backup/text_formats.h"

#include "core/nt.h"
#include "core/system_time.h"

namespace kk {

namespace {

/// Writes the lowest `digits` hexadecimal digits of `value` and moves `output` behind them.
void PutHex(char*& output, uint64_t value, int digits)
{
    for (int shift = 4 * (digits - 1); shift >= 0; shift -= 4) {
        *output++ = HexDigit(value >> shift);
    }
}

/// Writes the lowest `digits` decimal digits of a time field and the character that follows it.
void PutField(char*& output, int16_t field, int digits, char next)
{
    auto value = static_cast<uint16_t>(field);
    for (int i = digits - 1; i >= 0; --i) {
        output[i] = static_cast<char>('0' + value % 10);
        value = static_cast<uint16_t>(value / 10);
    }
    output += digits;
    *output++ = next;
}

}  // namespace

void FormatBackupSetId(char (&output)[kBackupSetIdBytes])
{
    const int64_t time = QuerySystemTime();
    uint32_t seed = FoldTime(time);
    const uint64_t random = RtlRandomEx(&seed);
    // Time and random bits overlap on purpose, so that both have a part in most of the digits.
    const uint64_t lowTime = static_cast<uint32_t>(static_cast<uint64_t>(time));
    const uint64_t value = (((lowTime << 24) ^ random) << 8) ^ seed;

    constexpr char prefix[] = {'s', 'e', 't', '-'};
    char* next = output;
    for (const char character : prefix) {
        *next++ = character;
    }
    PutHex(next, value, 16);
    *next = 0;
}

void FormatGuidText(const Guid& guid, char (&output)[kGuidTextBytes])
{
    char* next = output;
    PutHex(next, guid.data1, 8);
    *next++ = '-';
    PutHex(next, guid.data2, 4);
    *next++ = '-';
    PutHex(next, guid.data3, 4);
    *next++ = '-';
    for (size_t i = 0; i < sizeof(guid.data4); ++i) {
        if (i == 2) {
            *next++ = '-';
        }
        PutHex(next, guid.data4[i], 2);
    }
    *next = 0;
}

void FormatUtcTimestamp(char (&output)[kTimestampBytes])
{
    const int64_t time = QuerySystemTime();
    TimeFields fields = {};
    RtlTimeToTimeFields(&time, &fields);

    char* next = output;
    PutField(next, fields.year, 4, '-');
    PutField(next, fields.month, 2, '-');
    PutField(next, fields.day, 2, 'T');
    PutField(next, fields.hour, 2, ':');
    PutField(next, fields.minute, 2, ':');
    PutField(next, fields.second, 2, 'Z');
    *next = 0;
}

}  // namespace kk
