#include "machine/format_command.h"

#include <algorithm>
#include <memory>
#include <optional>
#include <stdexcept>
#include <system_error>
#include <utility>
#include <vector>

#include "machine/machine.h"
#include "machine/text.h"

namespace machine {

namespace {

constexpr uint64_t kSmallestFat16Sectors = 32768;
constexpr uint64_t kSmallestFat32Sectors = 65536;
constexpr uint64_t kLargestFat32 = 32ull << 30;
constexpr uint64_t kZeroedAtOnce = 1 << 20;
constexpr size_t kNtfsLabelUnits = 32;
constexpr size_t kFatLabelUnits = 11;

struct Order {
    char16_t letter = 0;
    std::optional<std::u16string> fileSystem = std::nullopt;
    std::u16string label = {};
    bool quick = false;
    bool answeredYes = false;
};

/// What follows `prefix`, when `word` begins with it.
std::optional<std::u16string> ValueOf(std::u16string_view word, std::u16string_view prefix)
{
    const bool fits = word.size() >= prefix.size() && EqualsIgnoreCase(word.substr(0, prefix.size()), prefix);
    return fits ? std::optional(std::u16string(word.substr(prefix.size()))) : std::nullopt;
}

bool ReadSwitch(const std::u16string& word, Order& order)
{
    if (EqualsIgnoreCase(word, u"/Q")) {
        order.quick = true;
        return true;
    }
    if (EqualsIgnoreCase(word, u"/Y")) {
        order.answeredYes = true;
        return true;
    }
    if (std::optional<std::u16string> label = ValueOf(word, u"/V:")) {
        order.label = std::move(*label);
        return true;
    }
    order.fileSystem = ValueOf(word, u"/FS:");
    return order.fileSystem && !order.fileSystem->empty();
}

std::optional<Order> ReadOrder(std::span<const std::u16string> arguments)
{
    if (arguments.empty() || arguments[0].size() != 2 || arguments[0][1] != u':') {
        return std::nullopt;
    }
    Order order = {.letter = arguments[0][0]};
    for (const std::u16string& word : arguments.subspan(1)) {
        if (!ReadSwitch(word, order)) {
            return std::nullopt;
        }
    }
    return order;
}

/// None for names of file systems that the command does not make.
FileSystem FileSystemNamed(std::u16string_view name, uint64_t sectors)
{
    if (EqualsIgnoreCase(name, u"NTFS")) {
        return FileSystem::Ntfs;
    }
    if (EqualsIgnoreCase(name, u"FAT")) {
        return sectors < kSmallestFat16Sectors ? FileSystem::Fat12 : FileSystem::Fat16;
    }
    if (EqualsIgnoreCase(name, u"FAT32")) {
        return FileSystem::Fat32;
    }
    return EqualsIgnoreCase(name, u"exFAT") ? FileSystem::Exfat : FileSystem::None;
}

FileSystem FileSystemFor(const Order& order, Volume& volume)
{
    if (order.fileSystem) {
        return FileSystemNamed(*order.fileSystem, volume.Length() / volume.SectorSize());
    }
    const FileSystem present = volume.RecognisedFileSystem();
    return present != FileSystem::None ? present : FileSystem::Ntfs;
}

bool IsFat(FileSystem fileSystem)
{
    return fileSystem == FileSystem::Fat12 || fileSystem == FileSystem::Fat16 || fileSystem == FileSystem::Fat32;
}

bool MayStandInFatLabel(char16_t unit)
{
    return unit >= u' ' && unit < 0x7F && std::u16string_view(u"\"*+,./:;<=>?[\\]|").find(unit) == std::u16string::npos;
}

/// The label as it goes onto the volume, or nothing when it cannot.
std::optional<std::string> FittingLabel(const std::u16string& label, FileSystem fileSystem)
{
    if (label.size() > (fileSystem == FileSystem::Ntfs ? kNtfsLabelUnits : kFatLabelUnits)) {
        return std::nullopt;
    }
    if (!IsFat(fileSystem)) {
        return Utf8(label);
    }
    const bool allowed = std::all_of(label.begin(), label.end(), MayStandInFatLabel);
    return allowed ? std::optional(Utf8(UpperCase(label))) : std::nullopt;
}

bool SizeFits(const Extent& extent, FileSystem fileSystem)
{
    const uint32_t sectorSize = extent.disk->SectorSize();
    if (fileSystem == FileSystem::Fat32) {
        return extent.length / sectorSize >= kSmallestFat32Sectors && extent.length <= kLargestFat32;
    }
    return fileSystem != FileSystem::Exfat || sectorSize == 512;
}

bool CanBeWritten(const Volume& volume)
{
    if (!volume.IsPresent() || volume.Extents().size() != 1) {
        return false;
    }
    const DiskBehaviour& behaviour = volume.Extents().front().disk->behaviour;
    return !behaviour.readOnly && !behaviour.noMedia;
}

/// A volume from which everybody else's handles are thrown off, which is what /Y agrees to. Whoever opens it next
/// mounts what is there then.
class TakenVolume {
public:
    explicit TakenVolume(Volume& volume) : opens_(volume.Opens())
    {
        isOpen_ = opens_.Open(open_) == kSuccess;
        isTaken_ = isOpen_ && opens_.Dismount(open_) == kSuccess;
    }
    TakenVolume(const TakenVolume&) = delete;
    TakenVolume& operator=(const TakenVolume&) = delete;
    ~TakenVolume()
    {
        if (isOpen_) {
            opens_.Close(open_);
        }
    }

    /// False when somebody has locked the volume, or the system itself uses it.
    explicit operator bool() const { return isTaken_; }

private:
    VolumeOpens& opens_;
    uint64_t open_ = 0;
    bool isOpen_;
    bool isTaken_;
};

void WriteZeros(const Extent& extent)
{
    const std::vector<uint8_t> zeros(kZeroedAtOnce);
    std::vector<uint8_t> present;
    for (uint64_t done = 0; done < extent.length; done += present.size()) {
        present = extent.disk->ReadBytes(extent.start + done, std::min(kZeroedAtOnce, extent.length - done));
        // What is zero already stays untouched, so that sparse disks remain sparse.
        if (std::any_of(present.begin(), present.end(), [](uint8_t byte) { return byte != 0; })) {
            extent.disk->WriteBytes(extent.start + done, std::span(zeros).first(present.size()));
        }
    }
}

uint32_t Format(Volume& volume, const Order& order, FileSystem fileSystem)
{
    const std::optional<std::string> label = FittingLabel(order.label, fileSystem);
    if (!label || !CanBeWritten(volume) || !SizeFits(volume.Extents().front(), fileSystem)) {
        return kFormatFailed;
    }
    const TakenVolume taken(volume);
    if (!taken) {
        return kFormatFailed;
    }
    const Extent& extent = volume.Extents().front();
    try {
        if (!order.quick) {
            WriteZeros(extent);
        }
        extent.disk->Format(extent.start, extent.length, fileSystem, {.label = *label});
    } catch (const std::system_error&) {
        throw;  // the host's trouble, not the volume's
    } catch (const std::runtime_error&) {
        return kFormatFailed;
    }
    return kFormatDone;
}

}  // namespace

ProcessCourse RunFormatCommand(Machine& machine, std::span<const std::u16string> arguments)
{
    const std::optional<Order> order = ReadOrder(arguments);
    if (!order) {
        return {.exitCode = kFormatBadArguments};
    }
    const std::shared_ptr<Volume> volume = machine.volumes.FindByLetter(order->letter);
    const FileSystem fileSystem = volume != nullptr ? FileSystemFor(*order, *volume) : FileSystem::None;
    if (fileSystem == FileSystem::None) {
        return {.exitCode = kFormatFailed};
    }
    if (!order->answeredYes) {
        return {.duration = ProcessCourse::kForEver};
    }
    return {.duration = machine.processes.formatDuration,
            .work = [order = *order, volume, fileSystem] { return Format(*volume, order, fileSystem); }};
}

}  // namespace machine
