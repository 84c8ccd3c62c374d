#pragma once

#include <cstdint>
#include <ostream>

/// A stretch of a disk in bytes.
struct Place {
    uint64_t start = 0;
    uint64_t length = 0;

    friend bool operator==(const Place&, const Place&) = default;
};

enum class TableKind { Gpt, Mbr };

/// What the library treats in ways of their own.
struct DiskKind {
    TableKind table = TableKind::Gpt;
    uint32_t sectorSize = 512;
};

inline constexpr DiskKind kSmallGpt = {TableKind::Gpt, 512};
inline constexpr DiskKind kLargeGpt = {TableKind::Gpt, 4096};
inline constexpr DiskKind kSmallMbr = {TableKind::Mbr, 512};
inline constexpr DiskKind kLargeMbr = {TableKind::Mbr, 4096};
inline constexpr DiskKind kDiskKinds[] = {kSmallGpt, kLargeGpt, kSmallMbr, kLargeMbr};

inline std::ostream& operator<<(std::ostream& stream, const Place& place)
{
    return stream << place.length << " bytes at " << place.start;
}

inline std::ostream& operator<<(std::ostream& stream, const DiskKind& kind)
{
    return stream << (kind.table == TableKind::Gpt ? "GPT" : "MBR") << " with sectors of " << kind.sectorSize;
}
