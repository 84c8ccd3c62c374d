#include "core/nt.h"
#include "machine/gate.h"
#include "machine/machine.h"
#include "machine/native_text.h"

using namespace machine;

namespace machine {

namespace {

constexpr uint32_t kHeapZeroMemory = 8;

/// Never writes a part of a character. Without an output it only counts.
Status ConvertToUtf8(std::u16string_view input, char* output, uint32_t limit, uint32_t& written)
{
    Status status = kSuccess;
    for (size_t at = 0; at < input.size();) {
        const std::optional<char32_t> character = NextCharacter(input, at);
        std::string bytes;
        AppendUtf8(bytes, character.value_or(kReplacementCharacter));
        if (output != nullptr) {
            if (bytes.size() > limit - written) {
                return kBufferTooSmall;
            }
            bytes.copy(output + written, bytes.size());
        }
        written += static_cast<uint32_t>(bytes.size());
        status = character ? status : kSomeNotMapped;
    }
    return status;
}

}  // namespace

}  // namespace machine

KK_STATUS KK_CALL NtQuerySystemTime(int64_t* time)
{
    Machine& machine = Machine::Current();
    return PassGate(machine, {.kind = CallKind::Time, .name = "NtQuerySystemTime", .object = {}}, [&](CallRecord&) {
        *time = machine.clock.Query();
        return kSuccess;
    });
}

void KK_CALL RtlTimeToTimeFields(const int64_t* time, kk::TimeFields* fields)
{
    PassGate(Machine::Current(), {.kind = CallKind::Time, .name = "RtlTimeToTimeFields", .object = {}},
             [&](CallRecord&) { *fields = FieldsOfTime(*time); });
}

uint32_t KK_CALL RtlRandomEx(uint32_t* seed)
{
    Machine& machine = Machine::Current();
    return PassGate(machine, {.kind = CallKind::Random, .name = "RtlRandomEx", .object = {}},
                    [&](CallRecord&) { return machine.random.Next(*seed); });
}

KK_STATUS KK_CALL RtlUnicodeToUTF8N(char* output, uint32_t outputLimit, uint32_t* outputLength, const char16_t* input,
                                    uint32_t inputBytes)
{
    CallRecord call = {
        .kind = CallKind::UnicodeToUtf8, .name = "RtlUnicodeToUTF8N", .object = {}, .length = outputLimit};
    return PassGate(Machine::Current(), std::move(call), [&](CallRecord& record) {
        if (input == nullptr || (output == nullptr && outputLength == nullptr)) {
            return kInvalidParameter;
        }
        uint32_t written = 0;
        const Status status = ConvertToUtf8({input, inputBytes / sizeof(char16_t)}, output, outputLimit, written);
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
    CallRecord call = {.kind = CallKind::Allocate, .name = "RtlAllocateHeap", .object = {}, .length = size};
    return PassGate(machine, std::move(call), [&](CallRecord& record) -> void* {
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
    return PassGate(machine, {.kind = CallKind::Free, .name = "RtlFreeHeap", .object = {}},
                    [&](CallRecord& record) -> uint8_t {
                        if (heap != &machine.heap) {
                            machine.Report(record.name + ": not the process heap");
                            return 0;
                        }
                        record.length = machine.heap.SizeOf(block);
                        return block == nullptr || machine.heap.Free(block) ? 1 : 0;
                    });
}
