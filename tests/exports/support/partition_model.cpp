#include "exports/support/partition_model.h"

#include <algorithm>

namespace {

constexpr uint64_t kMiB = 1 << 20;

/// Room for sums and products of 64-bit numbers.
__extension__ using Wide = unsigned __int128;

Wide RoundUp(Wide value, uint64_t unit)
{
    return (value + unit - 1) / unit * unit;
}

Wide EndOf(const Place& place)
{
    return Wide{place.start} + place.length;
}

}  // namespace

int32_t PartitionModel::Create(const Place& region, uint64_t size, uint64_t& start)
{
    const Wide from = std::max(RoundUp(region.start, kMiB), Wide{kMiB});
    const Wide to = std::min(EndOf(region), Wide{UsableEnd()});
    const Wide room = to > from ? to - from : 0;
    const Wide length = size == 0 ? room / kMiB * kMiB : RoundUp(size, kind_.sectorSize);
    if (length == 0 || length > room) {
        return KK_STATUS_BUFFER_TOO_SMALL;
    }
    const Place place = {static_cast<uint64_t>(from), static_cast<uint64_t>(length)};
    for (const Place& other : Partitions()) {
        if (other.start < EndOf(place) && place.start < EndOf(other)) {
            return KK_STATUS_INVALID_PARAMETER;
        }
    }
    const auto slot = std::ranges::find_if(slots_, [](const auto& each) { return !each; });
    if (slot == slots_.end()) {
        return KK_STATUS_DISK_FULL;
    }
    *slot = place;
    start = place.start;
    return 0;
}

int32_t PartitionModel::Delete(uint64_t start)
{
    std::optional<Place>* const slot = Find(start);
    if (slot == nullptr) {
        return KK_STATUS_INVALID_PARAMETER;
    }
    slot->reset();
    return 0;
}

int32_t PartitionModel::Extend(uint64_t start, uint64_t newSize)
{
    std::optional<Place>* const slot = Find(start);
    if (slot == nullptr) {
        return KK_STATUS_INVALID_PARAMETER;
    }
    uint64_t limit = UsableEnd();
    for (const Place& other : Partitions()) {
        limit = other.start > start ? std::min(limit, other.start) : limit;
    }
    const uint64_t room = limit - start;
    const Wide length = newSize == 0 ? room / kind_.sectorSize * kind_.sectorSize : RoundUp(newSize, kind_.sectorSize);
    if (length <= (*slot)->length) {
        return KK_STATUS_INVALID_PARAMETER;
    }
    if (length > room) {
        return KK_STATUS_BUFFER_TOO_SMALL;
    }
    (*slot)->length = static_cast<uint64_t>(length);
    return 0;
}

int32_t PartitionModel::Shrink(uint64_t start, uint64_t newSize, const Volume& volume)
{
    std::optional<Place>* const slot = Find(start);
    const Wide target = RoundUp(newSize, kMiB);
    if (slot == nullptr || target >= (*slot)->length || !volume.found) {
        return KK_STATUS_INVALID_PARAMETER;
    }
    const uint64_t present = volume.fileSystemBytes == 0 ? (*slot)->length : volume.fileSystemBytes;
    if (target == 0 || target > present) {
        return KK_STATUS_INVALID_PARAMETER;  // the file system's own
    }
    if ((*slot)->length > target + kMiB) {
        (*slot)->length = static_cast<uint64_t>(target);
    }
    return 0;
}

std::vector<std::optional<Place>> PartitionModel::Slots() const
{
    std::vector<std::optional<Place>> slots = slots_;
    while (!slots.empty() && !slots.back()) {
        slots.pop_back();
    }
    return slots;
}

std::vector<Place> PartitionModel::Partitions() const
{
    std::vector<Place> places;
    for (const std::optional<Place>& slot : slots_) {
        if (slot) {
            places.push_back(*slot);
        }
    }
    return places;
}

std::vector<Place> PartitionModel::Gaps() const
{
    std::vector<Place> places = Partitions();
    std::ranges::sort(places, {}, &Place::start);
    places.push_back({UsableEnd(), 0});
    std::vector<Place> gaps;
    uint64_t end = kMiB;
    for (const Place& place : places) {
        if (place.start > end) {
            gaps.push_back({end, place.start - end});
        }
        end = place.start + place.length;
    }
    return gaps;
}

uint64_t PartitionModel::UsableEnd() const
{
    return kind_.table == TableKind::Gpt ? diskSize_ - uint64_t{34} * kind_.sectorSize : diskSize_;
}

std::optional<Place>* PartitionModel::Find(uint64_t start)
{
    const auto slot = std::ranges::find_if(slots_, [start](const auto& each) { return each && each->start == start; });
    return slot == slots_.end() ? nullptr : &*slot;
}
