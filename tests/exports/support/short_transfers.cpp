#include "exports/support/short_transfers.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <set>

#include "core/status.h"

namespace {

using machine::CallKind;
using machine::CallRecord;

/// So many transfers of a kind are cut short, from all parts of an operation that has more.
constexpr size_t kTransfers = 12;

struct Outcome {
    int32_t status;
    std::vector<uint8_t> result;
};

/// Lengths of each class that are less than `length`.
std::set<uint64_t> ShorterLengths(uint64_t length, uint64_t sector)
{
    std::set<uint64_t> lengths;
    for (const uint64_t bytes : {uint64_t{0}, uint64_t{1}, sector / 2, sector, length - sector, length - 1}) {
        if (bytes < length) {
            lengths.insert(bytes);
        }
    }
    return lengths;
}

bool IsOfADevice(const CallRecord& transfer)
{
    return transfer.object.find("PhysicalDrive") != std::string::npos ||
           transfer.object.find("HarddiskVolume") != std::string::npos;
}

bool GoesOn(const CallRecord& transfer, uint64_t bytes, uint32_t sectorSize)
{
    return bytes != 0 && (!IsOfADevice(transfer) || bytes % sectorSize == 0);
}

/// How the transfer fails, cut short to that.
uint32_t FailureOf(const CallRecord& transfer, uint64_t bytes)
{
    if (bytes != 0) {
        return static_cast<uint32_t>(KK_STATUS_INVALID_PARAMETER);
    }
    return static_cast<uint32_t>(transfer.kind == CallKind::ReadFile ? KK_STATUS_END_OF_FILE : KK_STATUS_UNSUCCESSFUL);
}

Outcome Run(machine::Machine& machine, const Repeatable& operation, const std::function<void()>& orderFault = {})
{
    operation.prepare();
    machine.journal.Clear();
    machine.faults.Clear();
    if (orderFault) {
        orderFault();
    }
    const int32_t status = operation.run();
    EXPECT_EQ(machine.faults.Struck() != nullptr, static_cast<bool>(orderFault));
    machine.faults.Clear();
    EXPECT_EQ(machine.Imbalances(), std::vector<std::string>{});
    return {status, operation.result()};
}

}  // namespace

uint64_t SweepShortTransfers(machine::Machine& machine, const Repeatable& operation)
{
    const Outcome whole = Run(machine, operation);
    EXPECT_EQ(whole.status, 0);
    const std::vector<CallRecord> all[2] = {machine.journal.FindAll({.kind = CallKind::ReadFile}),
                                            machine.journal.FindAll({.kind = CallKind::WriteFile})};
    uint64_t cut = 0;
    for (const std::vector<CallRecord>& transfers : all) {
        const size_t step = std::max<size_t>(transfers.size() / kTransfers, 1);
        for (size_t i = 0; i < transfers.size(); i += step) {
            const CallRecord& transfer = transfers[i];
            for (const uint64_t bytes : ShorterLengths(transfer.length, operation.sectorSize)) {
                SCOPED_TRACE(testing::Message() << transfer << " cut short to " << bytes);
                const machine::CallPattern kind = {.kind = transfer.kind};
                const Outcome shortened = Run(machine, operation, [&] { machine.faults.Shorten(kind, i + 1, bytes); });
                const Outcome expected =
                    GoesOn(transfer, bytes, operation.sectorSize) ? whole : Run(machine, operation, [&] {
                        machine.faults.Fail(kind, i + 1, FailureOf(transfer, bytes));
                    });
                EXPECT_EQ(shortened.status, expected.status);
                EXPECT_TRUE(shortened.result == expected.result) << "and something else was left";
                ++cut;
            }
        }
    }
    return cut;
}
