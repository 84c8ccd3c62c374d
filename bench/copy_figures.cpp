#include "copy_figures.h"

#include <stdexcept>
#include <string>

#include "host_command.h"
#include "library_machine.h"
#include "machine/raw_virtual_disks.h"

namespace bench {

namespace {

constexpr size_t kWarmUps = 2;
constexpr uint64_t kTransferBytes = Transfers::kMostBytes;

/// The disk in a machine, and an image file whose pages are there already from the second backup on.
class DiskBackup {
public:
    explicit DiskBackup(const Settings& settings)
        : source_(settings.folder / "disk.raw"), image_(settings.folder / "target.raw"),
          library_(settings.dll, std::make_shared<machine::RawVirtualDisks>(true))
    {
        machine::Disk& disk = library_.Nt().AddDiskFile(source_.string(), {.readOnly = true});
        for (const kk::PartitionInformationEx& partition : disk.CachedLayout().partitions) {
            if (partition.partitionNumber != 0) {
                start_ = static_cast<uint64_t>(partition.startingOffset);
                length_ = static_cast<uint64_t>(partition.partitionLength);
            }
        }
    }

    /// The cost of one backup. Throws unless it did the same as the ones before.
    Cost Run(bool usedBlocksOnly)
    {
        std::filesystem::remove(image_.string() + ".json");
        const BackupRun run = library_.Backup(image_, usedBlocksOnly);
        const uint32_t copies = usedBlocksOnly ? run.result.liveUsedBlockCopies : run.result.liveWholeCopies;
        if (run.status != 0 || copies != 1) {
            throw std::runtime_error("the backup ended with " + StatusText(run.status));
        }
        // The volume or disk that transfers come from is opened for reading alone, so a write to a disk is one to the
        // image.
        Work work = library_.TransferWork("PhysicalDrive");
        work.bytes = run.result.bytesCopied;
        if (work_.bytes != 0 && work != work_) {
            throw std::runtime_error("two backups of the same disk did not do the same");
        }
        work_ = work;
        return run.cost;
    }

    const std::filesystem::path& Source() const { return source_; }
    const std::filesystem::path& Image() const { return image_; }
    uint64_t Start() const { return start_; }
    uint64_t Length() const { return length_; }
    const Work& DoneWork() const { return work_; }

private:
    std::filesystem::path source_;
    std::filesystem::path image_;
    LibraryMachine library_;
    uint64_t start_ = 0;
    uint64_t length_ = 0;
    Work work_;
};

/// The library flushes the image at its end, so the peer has to as well.
Cost CopyByDd(const DiskBackup& backup)
{
    const std::string start = std::to_string(backup.Start());
    return TimeCommand({"dd", "if=" + backup.Source().string(), "of=" + backup.Image().string(), "bs=8M",
                        "skip=" + start, "seek=" + start, "count=" + std::to_string(backup.Length()),
                        "iflag=skip_bytes,count_bytes", "oflag=seek_bytes", "conv=notrunc,fsync"});
}

/// Throws unless the partition's bytes are the same in both files.
void CompareCopy(const DiskBackup& backup)
{
    const std::string start = std::to_string(backup.Start());
    (void)TimeCommand({"cmp", "-n", std::to_string(backup.Length()), "-i", start + ":" + start,
                       backup.Source().string(), backup.Image().string()});
}

}  // namespace

std::vector<Figure> MeasureWholeCopy(const Settings& settings)
{
    Figure figure = {.name = "whole-copy",
                     .title = "Backup, every byte of a 4 GiB disk",
                     .peer = "dd bs=8M",
                     .gate = {Gate::Kind::TimeRatioAtMost, 1.10}};
    std::filesystem::remove(settings.folder / "target.raw");
    DiskBackup backup(settings);
    (void)backup.Run(false);
    CompareCopy(backup);
    const auto ours = [&] { return backup.Run(false); };
    const auto peer = [&] { return CopyByDd(backup); };
    figure.pairs = MeasurePairs(kWarmUps, settings.longPairs, ours, peer);
    figure.work = backup.DoneWork();
    const uint64_t chunks = (backup.Length() + kTransferBytes - 1) / kTransferBytes;
    constexpr uint64_t tableWrites = 5;  // the MBR, and a header and an array in each of two copies
    figure.expected = Transfers{chunks, chunks + tableWrites};
    figure.remark = std::to_string(tableWrites) + " of the writes are the partition table";
    return {figure};
}

std::vector<Figure> MeasureUsedBlockCopy(const Settings& settings)
{
    Figure figure = {.name = "used-blocks",
                     .title = "Backup, clusters in use of that disk",
                     .peer = "ntfsclone -O",
                     .gate = {Gate::Kind::TimeRatioAtMost, 0.75}};
    const std::string volume = (settings.folder / "volume.raw").string();
    const std::filesystem::path clone = settings.folder / "clone.raw";
    std::filesystem::remove(clone);
    DiskBackup backup(settings);
    (void)TimeCommand({"ntfsclone", "-q", "-o", clone.string(), volume});
    const auto ours = [&] { return backup.Run(true); };
    const auto peer = [&] { return TimeCommand({"ntfsclone", "-q", "-O", clone.string(), volume}); };
    figure.pairs = MeasurePairs(kWarmUps, settings.longPairs, ours, peer);
    figure.work = backup.DoneWork();
    figure.expected = Transfers{};
    const uint64_t percent = figure.work.bytes * 100 / backup.Length();
    figure.remark = std::to_string(percent) + " % of the partition";
    std::filesystem::remove(clone);
    return {figure};
}

}  // namespace bench
