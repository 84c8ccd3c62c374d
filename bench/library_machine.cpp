#include "library_machine.h"

#include <algorithm>
#include <string_view>

#include "machine/text.h"
#include "machine/virtual_disk_service.h"

namespace bench {

using machine::CallKind;
using machine::CallRecord;

namespace {

/// The volume or disk that transfers come from is opened for reading alone, so a write to a disk is one to the image.
bool IsImageWrite(const CallRecord& call)
{
    return call.kind == CallKind::WriteFile && call.object.find("PhysicalDrive") != std::string::npos;
}

}  // namespace

LibraryMachine::LibraryMachine(const std::filesystem::path& dll, std::shared_ptr<machine::VirtualDiskBackEnd> images,
                               machine::ImportResolver resolver)
    : dll_(dll, {.resolver = std::move(resolver)}), api_(machine::ApiFromDll(dll_))
{
    machine_.heap.SetFast(true);
    machine::InstallVirtualDiskService(machine_, std::move(images));
}

BackupRun LibraryMachine::Backup(const std::filesystem::path& image, bool usedBlocksOnly)
{
    const std::u16string path = machine::HostDrives::WindowsPath(image.string());
    machine_.journal.Clear();
    machine_.heap.ResetCounters();
    BackupRun run;
    const double cpuStarted = ThreadCpuSeconds();
    const double started = NowSeconds();
    run.status = api_.backup(0, path.c_str(), nullptr, 0, usedBlocksOnly ? 1 : 0, 0, 0, "bench", 0, 1, 0, &run.result);
    run.cost = {NowSeconds() - started, ThreadCpuSeconds() - cpuStarted};
    return run;
}

Work LibraryMachine::TransferWork() const
{
    Work work;
    for (const CallRecord& call : Calls()) {
        if (call.kind != CallKind::ReadFile && !IsImageWrite(call)) {
            continue;
        }
        ++(call.kind == CallKind::ReadFile ? work.reads : work.writes);
        work.largestTransfer = std::max(work.largestTransfer, call.length);
    }
    work.heapBytes = machine_.heap.PeakBytes();
    return work;
}

std::string StatusText(KK_STATUS status)
{
    return machine::Hex(static_cast<uint32_t>(status));
}

}  // namespace bench
