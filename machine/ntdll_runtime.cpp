#include <array>

#include "core/nt.h"
#include "machine/gate.h"
#include "machine/machine.h"

using namespace machine;

namespace machine {

namespace {

constexpr uint32_t kHeapZeroMemory = 8;

CallRecord RuntimeRecord(CallKind kind, const char* name, uint64_t length = 0)
{
    CallRecord record;
    record.kind = kind;
    record.name = name;
    record.length = length;
    return record;
}

/// The UTF-8 form of one character.
struct EncodedCharacter {
    std::array<char, 4> bytes = {};
    uint32_t count = 0;
};

EncodedCharacter Encode(char32_t point)
{
    const auto tail = [&](unsigned shift) { return static_cast<char>(0x80 | ((point >> shift) & 0x3F)); };
    if (point < 0x80) {
        return {{static_cast<char>(point)}, 1};
    }
    if (point < 0x800) {
        return {{static_cast<char>(0xC0 | (point >> 6)), tail(0)}, 2};
    }
    if (point < 0x10000) {
        return {{static_cast<char>(0xE0 | (point >> 12)), tail(6), tail(0)}, 3};
    }
    return {{static_cast<char>(0xF0 | (point >> 18)), tail(12), tail(6), tail(0)}, 4};
}

/// The character at `at`, which moves past it; U+FFFD and `mapped` cleared for half a pair.
char32_t NextCharacter(const char16_t* text, uint32_t units, uint32_t& at, bool& mapped)
{
    const char32_t unit = text[at++];
    const bool isHigh = unit >= 0xD800 && unit < 0xDC00;
    if (isHigh && at < units && text[at] >= 0xDC00 && text[at] < 0xE000) {
        return 0x10000 + ((unit - 0xD800) << 10) + (text[at++] - 0xDC00u);
    }
    if (isHigh || (unit >= 0xDC00 && unit < 0xE000)) {
        mapped = false;
        return 0xFFFD;
    }
    return unit;
}

/// Never writes a part of a character. Without an output it only counts.
Status ConvertToUtf8(char* output, uint32_t limit, uint32_t& written, const char16_t* input, uint32_t units)
{
    bool mapped = true;
    for (uint32_t at = 0; at < units;) {
        const EncodedCharacter character = Encode(NextCharacter(input, units, at, mapped));
        if (output != nullptr) {
            if (character.count > limit - written) {
                return kBufferTooSmall;
            }
            std::copy_n(character.bytes.begin(), character.count, output + written);
        }
        written += character.count;
    }
    return mapped ? kSuccess : kSomeNotMapped;
}

}  // namespace

}  // namespace machine

KK_STATUS KK_CALL NtQuerySystemTime(int64_t* time)
{
    Machine& machine = Machine::Current();
    return PassGate(machine, RuntimeRecord(CallKind::Time, "NtQuerySystemTime"), [&](CallRecord&) {
        *time = machine.clock.Query();
        return kSuccess;
    });
}

void KK_CALL RtlTimeToTimeFields(const int64_t* time, kk::TimeFields* fields)
{
    PassGate(Machine::Current(), RuntimeRecord(CallKind::Time, "RtlTimeToTimeFields"),
             [&](CallRecord&) { *fields = FieldsOfTime(*time); });
}

uint32_t KK_CALL RtlRandomEx(uint32_t* seed)
{
    Machine& machine = Machine::Current();
    return PassGate(machine, RuntimeRecord(CallKind::Random, "RtlRandomEx"),
                    [&](CallRecord&) { return machine.random.Next(*seed); });
}

KK_STATUS KK_CALL RtlUnicodeToUTF8N(char* output, uint32_t outputLimit, uint32_t* outputLength, const char16_t* input,
                                    uint32_t inputBytes)
{
    CallRecord call = RuntimeRecord(CallKind::UnicodeToUtf8, "RtlUnicodeToUTF8N", outputLimit);
    return PassGate(Machine::Current(), std::move(call), [&](CallRecord& record) {
        if (input == nullptr || (output == nullptr && outputLength == nullptr)) {
            return kInvalidParameter;
        }
        uint32_t written = 0;
        const Status status = ConvertToUtf8(output, outputLimit, written, input, inputBytes / 2);
        if (outputLength != nullptr) {
            *outputLength = written;
        }
        record.information = written;
        return status;
    });
}

void* KK_CALL RtlAllocateHeap(void* heap, uint32_t flags, uint64_t size)
{
    Machine& machine = Machine::Current();
    return PassGate(machine, RuntimeRecord(CallKind::Allocate, "RtlAllocateHeap", size),
                    [&](CallRecord& record) -> void* {
                        if (heap != &machine.heap) {
                            machine.Report(record.name + ": not the process heap");
                            return nullptr;
                        }
                        return machine.heap.Allocate(size, (flags & kHeapZeroMemory) != 0);
                    });
}

uint8_t KK_CALL RtlFreeHeap(void* heap, uint32_t /*flags*/, void* block)
{
    Machine& machine = Machine::Current();
    const uint64_t size = machine.heap.SizeOf(block);
    return PassGate(machine, RuntimeRecord(CallKind::Free, "RtlFreeHeap", size), [&](CallRecord& record) -> uint8_t {
        if (heap != &machine.heap) {
            machine.Report(record.name + ": not the process heap");
            return 0;
        }
        return block == nullptr || machine.heap.Free(block) ? 1 : 0;
    });
}
