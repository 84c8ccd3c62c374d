#include "targets.h"

#include <charconv>

#include "call_error.h"
#include "place.h"
#include "sizes.h"
#include "text.h"

namespace kkctl {

namespace {

WideString Wide(const std::string& name)
{
    std::optional<WideString> wide = FromUtf8(name);
    if (!wide) {
        throw PathError("'" + name + "' is not UTF-8");
    }
    return *wide;
}

/// Names of devices go to the library as they are. A backslash at the end would make one a folder.
std::optional<WideString> DeviceName(const std::string& text)
{
    for (const std::string_view prefix : {R"(\\.\)", R"(\\?\)", R"(\??\)", R"(\Device\)"}) {
        if (text.starts_with(prefix)) {
            const bool endsInBackslash = text.size() > prefix.size() && text.ends_with('\\');
            return Wide(endsInBackslash ? text.substr(0, text.size() - 1) : text);
        }
    }
    return std::nullopt;
}

bool IsDriveLetter(const std::string& text)
{
    const bool isShort = text.size() == 2 || (text.size() == 3 && text[2] == '\\');
    return isShort && text[1] == ':' && ((text[0] | 0x20) >= 'a' && (text[0] | 0x20) <= 'z');
}

std::optional<Place> PlaceIn(std::string_view text)
{
    const size_t at = text.find('@');
    if (at == std::string_view::npos) {
        return std::nullopt;
    }
    const std::optional<uint32_t> disk = DiskNumberIn(text.substr(0, at));
    const std::optional<uint64_t> start = ParseSize(text.substr(at + 1));
    return disk && start ? std::optional(Place{*disk, *start}) : std::nullopt;
}

WideString VolumeAt(const Kit& kit, const Place& place)
{
    const auto partitions = kit.Calls().ListPartitions(place.disk);
    if (!partitions) {
        throw CallError("listing the partitions of disk " + std::to_string(place.disk), partitions.status);
    }
    for (const Partition& partition : *partitions) {
        if (partition.startOffset == place.start && !partition.deviceName.empty()) {
            return partition.deviceName;
        }
    }
    throw ArgumentError("there is no volume on " + NameOf(place));
}

}  // namespace

std::optional<uint32_t> DiskNumberIn(std::string_view text)
{
    uint32_t number = 0;
    const char* const end = text.data() + text.size();
    const auto [rest, error] = std::from_chars(text.data(), end, number);
    return error == std::errc() && rest == end ? std::optional(number) : std::nullopt;
}

WideString DiskPath(const Kit& kit, const std::string& disk)
{
    if (const std::optional<uint32_t> number = DiskNumberIn(disk)) {
        return Wide(R"(\\.\PhysicalDrive)" + std::to_string(*number));
    }
    const std::optional<WideString> device = DeviceName(disk);
    return device ? *device : kit.ToLibraryPath(disk);
}

WideString VolumePath(const Kit& kit, const std::string& volume)
{
    if (const std::optional<Place> place = PlaceIn(volume)) {
        return VolumeAt(kit, *place);
    }
    if (IsDriveLetter(volume)) {
        return Wide(R"(\\.\)" + volume.substr(0, 2));
    }
    const std::optional<WideString> device = DeviceName(volume);
    return device ? *device : kit.ToLibraryPath(volume);
}

}  // namespace kkctl
