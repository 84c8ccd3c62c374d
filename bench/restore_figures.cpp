#include "restore_figures.h"

#include <cstring>
#include <fstream>
#include <memory>
#include <stdexcept>
#include <string>

#include "disk_image.h"
#include "host_command.h"
#include "library_machine.h"
#include "machine/raw_virtual_disks.h"
#include "read_block.h"

namespace bench {

using machine::CallKind;
using machine::CallRecord;

namespace {

constexpr size_t kWarmUps = 2;
constexpr uint64_t kChunkBytes = Transfers::kMostBytes;
constexpr const char* kTarget = "target.raw";

/// The library with files alone. Both sides of a pair write to the same file, which exists and has its pages.
class FileCopy {
public:
    explicit FileCopy(const Settings& settings)
        : target_(settings.folder / kTarget), library_(settings.dll, std::make_shared<machine::RawVirtualDisks>(true))
    {
    }

    /// Makes the target anew, a little larger than `source`: restores keep the last sectors of a disk free.
    void MakeTarget(const std::filesystem::path& source) const
    {
        const uint64_t bytes = std::filesystem::file_size(source) + (1 << 20);
        std::filesystem::remove(target_);
        (void)TimeCommand({"truncate", "-s", std::to_string(bytes), target_.string()});
    }

    /// The cost of one call. Throws unless it succeeded and did the same as the ones before.
    Cost Run(const std::function<KK_STATUS(const machine::KestrelkitApi&)>& call)
    {
        const bench::Run run = library_.Call(call);
        if (run.status != KK_STATUS_SUCCESS) {
            throw std::runtime_error("the copy ended with " + StatusText(run.status));
        }
        const Work work = library_.TransferWork(kTarget);
        if (work_.reads != 0 && work != work_) {
            throw std::runtime_error("two copies of the same did not do the same");
        }
        work_ = work;
        return run.cost;
    }

    const std::filesystem::path& Target() const { return target_; }
    const std::vector<CallRecord>& Calls() const { return library_.Calls(); }
    const Work& DoneWork() const { return work_; }

private:
    std::filesystem::path target_;
    LibraryMachine library_;
    Work work_;
};

/// Throws unless the target begins with the bytes of the source, from `start` on.
void CompareCopy(const std::filesystem::path& source, const FileCopy& copy, uint64_t start)
{
    const std::string skip = std::to_string(start);
    (void)TimeCommand({"cmp", "-n", std::to_string(std::filesystem::file_size(source) - start - kChunkBytes), "-i",
                       skip + ":" + skip, source.string(), copy.Target().string()});
}

std::vector<std::string> SparseDd(const std::filesystem::path& source, const FileCopy& copy)
{
    return {"dd", "if=" + source.string(), "of=" + copy.Target().string(), "bs=8M", "conv=sparse,notrunc"};
}

/// How many chunks of the file hold something else than zeros.
uint64_t CountChunksWithData(const std::filesystem::path& file)
{
    std::ifstream stream(file, std::ios::binary);
    const std::vector<char> zeros(kChunkBytes);
    std::vector<char> chunk(kChunkBytes);
    uint64_t count = 0;
    while (stream.read(chunk.data(), static_cast<std::streamsize>(kChunkBytes)) || stream.gcount() > 0) {
        const auto length = static_cast<size_t>(stream.gcount());
        count += std::memcmp(chunk.data(), zeros.data(), length) != 0 ? 1 : 0;
    }
    return count;
}

Figure MeasureRestore(const Settings& settings, Figure figure, bool againstQemu)
{
    const std::filesystem::path disk = settings.folder / "disk.raw";
    const std::filesystem::path image = MakeDiskImage(settings);
    FileCopy copy(settings);
    copy.MakeTarget(disk);
    const std::u16string imagePath = LibraryPath(image);
    const std::u16string targetPath = LibraryPath(copy.Target());
    const auto ours = [&] {
        return copy.Run([&](const machine::KestrelkitApi& api) {
            return api.restorePartitions(imagePath.c_str(), targetPath.c_str(), nullptr, 0, 0);
        });
    };
    (void)ours();
    constexpr uint64_t partitionStart = 1 << 20;
    CompareCopy(disk, copy, partitionStart);
    const std::vector<std::string> qemu = {
        "qemu-img", "convert", "-n", "-m", "1", "-f", "vhdx", "-O", "raw", image.string(), copy.Target().string()};
    const std::vector<std::string> peerCommand = againstQemu ? qemu : SparseDd(disk, copy);
    figure.pairs = MeasurePairs(kWarmUps, settings.longPairs, ours, [&] { return TimeCommand(peerCommand); });
    figure.work = copy.DoneWork();
    figure.expected = Transfers{.writes = CountChunksWithData(settings.folder / "volume.raw")};
    figure.remark = "reads of 8 bytes are looks into the block table";
    return figure;
}

/// A loop that looks at one byte after the other, and cannot do otherwise.
bool IsZeroByteByByte(const std::vector<uint8_t>& bytes)
{
    for (const uint8_t byte : bytes) {
        if (byte != 0) {
            return false;
        }
    }
    return true;
}

/// The median of the library's own time between a chunk's arrival and the wish for the next.
double SecondsForZeros(const std::vector<CallRecord>& calls)
{
    std::vector<double> seconds;
    for (size_t i = 0; i + 1 < calls.size(); ++i) {
        const auto isChunk = [](const CallRecord& call) {
            return call.kind == CallKind::ReadFile && call.length == kChunkBytes;
        };
        if (isChunk(calls[i]) && isChunk(calls[i + 1])) {
            seconds.push_back(static_cast<double>(calls[i + 1].enteredNs - calls[i].leftNs) * 1e-9);
        }
    }
    if (seconds.empty()) {
        throw std::runtime_error("no two chunks were read in a row");
    }
    return Median(seconds);
}

}  // namespace

std::vector<Figure> MeasureRestores(const Settings& settings)
{
    const Figure againstQemu = {.name = "restore-qemu-img",
                                .title = "Restore of that disk's image onto a raw file",
                                .peer = "qemu-img convert -n -m 1",
                                .gate = {Gate::Kind::TimeRatioAtMost, 1.00}};
    const Figure againstDd = {.name = "restore-dd",
                              .title = "The same",
                              .peer = "dd bs=8M conv=sparse",
                              .gate = {Gate::Kind::TimeRatioAtMost, 1.10}};
    return {MeasureRestore(settings, againstQemu, true), MeasureRestore(settings, againstDd, false)};
}

std::vector<Figure> MeasureClone(const Settings& settings)
{
    Figure figure = {.name = "clone",
                     .title = "Clone of that disk's volume onto a raw file",
                     .peer = "dd bs=8M conv=sparse",
                     .gate = {Gate::Kind::TimeRatioAtMost, 1.10}};
    const std::filesystem::path volume = settings.folder / "volume.raw";
    FileCopy copy(settings);
    copy.MakeTarget(volume);
    const std::u16string sourcePath = LibraryPath(volume);
    const std::u16string targetPath = LibraryPath(copy.Target());
    const auto ours = [&] {
        return copy.Run([&](const machine::KestrelkitApi& api) {
            return api.cloneVolume(sourcePath.c_str(), targetPath.c_str(), 0);
        });
    };
    (void)ours();
    CompareCopy(volume, copy, 0);
    const auto peer = [&] { return TimeCommand(SparseDd(volume, copy)); };
    figure.pairs = MeasurePairs(kWarmUps, settings.longPairs, ours, peer);
    figure.work = copy.DoneWork();
    const uint64_t chunks = (std::filesystem::file_size(volume) + kChunkBytes - 1) / kChunkBytes;
    figure.expected = Transfers{chunks, CountChunksWithData(volume)};
    return {figure};
}

std::vector<Figure> MeasureZeroTest(const Settings& settings)
{
    Figure figure = {.name = "zero-test",
                     .title = "Zero test of 8 MiB of zeros",
                     .peer = "loop over bytes",
                     .gate = {Gate::Kind::SpeedRatioAtLeast, 5, 0.35e-3}};
    const std::filesystem::path zeros = settings.folder / "zeros.raw";
    (void)TimeCommand({"truncate", "-s", "128M", zeros.string()});
    FileCopy copy(settings);
    copy.MakeTarget(zeros);
    const std::u16string sourcePath = LibraryPath(zeros);
    const std::u16string targetPath = LibraryPath(copy.Target());
    const auto ours = [&] {
        (void)copy.Run([&](const machine::KestrelkitApi& api) {
            return api.cloneVolume(sourcePath.c_str(), targetPath.c_str(), 0);
        });
        return Cost{SecondsForZeros(copy.Calls())};
    };
    std::vector<uint8_t> chunk;
    const auto peer = [&] {
        chunk.assign(kChunkBytes, 0);  // as warm as the library finds it: just written
        const double started = NowSeconds();
        if (!IsZeroByteByByte(chunk)) {
            throw std::runtime_error("zeros are not zero");
        }
        return Cost{NowSeconds() - started};
    };
    ReadBlock block(kChunkBytes);
    figure.pairs = MeasurePairs(kWarmUps, settings.shortPairs, ours, peer, [&] { return block.SecondsToRead(); });
    figure.work.bytes = kChunkBytes;
    std::filesystem::remove(zeros);
    return {figure};
}

}  // namespace bench
