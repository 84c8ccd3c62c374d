#include "library_machine.h"

#include <algorithm>
#include <string_view>

#include "machine/text.h"
#include "machine/virtual_disk_service.h"

namespace bench {

using machine::CallKind;
using machine::CallRecord;

LibraryMachine::LibraryMachine(const std::filesystem::path& dll, std::shared_ptr<machine::VirtualDiskBackEnd> images,
                               machine::ImportResolver resolver)
    : dll_(dll, {.resolver = std::move(resolver)}), api_(machine::ApiFromDll(dll_))
{
    machine_.heap.SetFast(true);
    machine::InstallVirtualDiskService(machine_, std::move(images));
}

Run LibraryMachine::Call(const std::function<KK_STATUS(const machine::KestrelkitApi&)>& call)
{
    machine_.journal.Clear();
    machine_.heap.ResetCounters();
    Run run;
    const double cpuStarted = ThreadCpuSeconds();
    const double started = NowSeconds();
    run.status = call(api_);
    run.cost = {NowSeconds() - started, ThreadCpuSeconds() - cpuStarted};
    return run;
}

BackupRun LibraryMachine::Backup(const std::filesystem::path& image, bool usedBlocksOnly)
{
    const std::u16string path = LibraryPath(image);
    BackupRun backup;
    const Run run = Call([&](const machine::KestrelkitApi& api) {
        return api.backup(0, path.c_str(), nullptr, 0, usedBlocksOnly ? 1 : 0, 0, 0, "bench", 0, 1, 0, &backup.result);
    });
    backup.status = run.status;
    backup.cost = run.cost;
    return backup;
}

Work LibraryMachine::TransferWork(const std::string& target) const
{
    Work work;
    for (const CallRecord& call : Calls()) {
        const bool write = call.kind == CallKind::WriteFile && call.object.find(target) != std::string::npos;
        if (call.kind != CallKind::ReadFile && !write) {
            continue;
        }
        ++(write ? work.writes : work.reads);
        work.bytes += write ? call.length : 0;
        work.largestTransfer = std::max(work.largestTransfer, call.length);
    }
    work.heapBytes = machine_.heap.PeakBytes();
    return work;
}

std::u16string LibraryPath(const std::filesystem::path& file)
{
    return machine::HostDrives::WindowsPath(file.string());
}

std::string StatusText(KK_STATUS status)
{
    return machine::Hex(static_cast<uint32_t>(status));
}

}  // namespace bench
