#include "checksum_figures.h"

#include <algorithm>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>

#include "library_machine.h"
#include "machine/memory_virtual_disks.h"
#include "partition/gpt_format.h"
#include "read_block.h"
#include "textbook_crc32.h"
#include "zlib_crc32.h"

namespace bench {

using machine::CallKind;
using machine::CallRecord;

namespace {

constexpr size_t kWarmUps = 3;
constexpr uint64_t kDiskBytes = 64 << 20;
constexpr uint64_t kFreeStart = 8 << 20;
constexpr uint64_t kFreeBytes = 4 << 20;
constexpr uint32_t kSectorBytes = 512;
constexpr uint32_t kUsualEntries = 128;

using Checksum = std::function<uint32_t(std::span<const uint8_t>)>;

/// A disk with a GPT, in which a partition comes and goes.
class EditedTable {
public:
    EditedTable(const Settings& settings, uint32_t entryCount)
        : arrayBytes_(uint64_t{entryCount} * sizeof(kk::GptEntry)),
          library_(settings.dll, std::make_shared<machine::MemoryVirtualDisks>())
    {
        disk_ = &library_.Nt().AddDisk(kDiskBytes);
        disk_->Gpt({.partitions = {{.start = kFreeStart / 2, .length = kFreeBytes / 2}}, .entryCount = entryCount});
        LoadTable();
    }

    /// The time in the library from the arrival of an array to its write, for one of the two copies: the search for an
    /// entry, its change, and both checksums.
    Cost Run()
    {
        const bench::Run added = library_.Call([](const machine::KestrelkitApi& api) {
            return api.createPartition(0, kFreeStart, kFreeBytes, kFreeBytes, nullptr);
        });
        const Cost cost = {SecondsPerCopy()};
        LoadTable();
        const bench::Run removed =
            library_.Call([](const machine::KestrelkitApi& api) { return api.deletePartition(0, kFreeStart); });
        if (added.status != KK_STATUS_SUCCESS || removed.status != KK_STATUS_SUCCESS) {
            throw std::runtime_error("the edits ended with " + StatusText(added.status) + " and " +
                                     StatusText(removed.status));
        }
        return cost;
    }

    /// The time of the same two checksums, which must come out as the library's.
    Cost RunPeer(const Checksum& checksum)
    {
        std::vector<uint8_t> array = array_;  // as warm as the library finds it: just written
        kk::GptHeader header = header_;
        const double started = NowSeconds();
        header.entriesCrc32 = checksum(array);
        header.headerCrc32 = uint32_t{0};
        header.headerCrc32 = checksum({reinterpret_cast<const uint8_t*>(&header), sizeof(header)});
        const double seconds = NowSeconds() - started;
        if (header.entriesCrc32.Get() != header_.entriesCrc32.Get() ||
            header.headerCrc32.Get() != header_.headerCrc32.Get()) {
            throw std::runtime_error("the checksums differ from the library's");
        }
        return {seconds};
    }

    uint64_t BytesPerCopy() const { return arrayBytes_ + sizeof(kk::GptHeader); }

private:
    void LoadTable()
    {
        array_ = disk_->ReadBytes(2 * kSectorBytes, arrayBytes_);
        const std::vector<uint8_t> sector = disk_->ReadBytes(kSectorBytes, kSectorBytes);
        std::copy_n(sector.begin(), sizeof(header_), reinterpret_cast<uint8_t*>(&header_));
    }

    /// The mean of the two copies.
    double SecondsPerCopy() const
    {
        const std::vector<CallRecord>& calls = library_.Calls();
        double seconds = 0;
        int copies = 0;
        for (size_t i = 0; i + 1 < calls.size(); ++i) {
            const bool read = calls[i].kind == CallKind::ReadFile && calls[i].length == arrayBytes_;
            const bool written = calls[i + 1].kind == CallKind::WriteFile && calls[i + 1].length == arrayBytes_;
            if (read && written) {
                seconds += static_cast<double>(calls[i + 1].enteredNs - calls[i].leftNs) * 1e-9;
                ++copies;
            }
        }
        if (copies != 2) {
            throw std::runtime_error("not two arrays were changed but " + std::to_string(copies));
        }
        return seconds / copies;
    }

    uint64_t arrayBytes_;
    LibraryMachine library_;
    machine::Disk* disk_ = nullptr;
    std::vector<uint8_t> array_;
    kk::GptHeader header_ = {};
};

Figure MeasureChecksum(const Settings& settings, Figure figure, uint32_t entryCount, const Checksum& peer)
{
    EditedTable table(settings, entryCount);
    ReadBlock block(table.BytesPerCopy());
    figure.pairs = MeasurePairs(
        kWarmUps, settings.shortPairs, [&] { return table.Run(); }, [&] { return table.RunPeer(peer); },
        [&] { return block.SecondsToRead(); });
    figure.work.bytes = table.BytesPerCopy();
    figure.remark = std::to_string(entryCount) + " entries and the header";
    return figure;
}

}  // namespace

std::vector<Figure> MeasureChecksums(const Settings& settings)
{
    const ZlibCrc32 zlib;
    const Gate gate = {Gate::Kind::TimeRatioAtMost, 1.10};
    const Figure usual = {
        .name = "checksum", .title = "Checksums of a usual GPT", .peer = "loop over bits", .gate = gate};
    const Figure largest = {
        .name = "checksum-largest", .title = "Checksums of the largest GPT", .peer = "loop over bits", .gate = gate};
    const Figure againstZlib = {.name = "checksum-zlib", .title = "Checksums of a usual GPT", .peer = "zlib crc32"};
    return {MeasureChecksum(settings, usual, kUsualEntries, TextbookCrc32),
            MeasureChecksum(settings, largest, kk::kGptMostEntries, TextbookCrc32),
            MeasureChecksum(settings, againstZlib, kUsualEntries, std::cref(zlib))};
}

}  // namespace bench
