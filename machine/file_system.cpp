#include "machine/file_system.h"

#include <array>
#include <bit>
#include <cstring>
#include <string_view>

namespace machine {

namespace {

uint32_t Get16(std::span<const uint8_t> sector, size_t offset)
{
    return sector[offset] | (static_cast<uint32_t>(sector[offset + 1]) << 8);
}

uint32_t Get32(std::span<const uint8_t> sector, size_t offset)
{
    return Get16(sector, offset) | (Get16(sector, offset + 2) << 16);
}

bool Says(std::span<const uint8_t> sector, size_t offset, std::string_view text)
{
    return std::memcmp(sector.data() + offset, text.data(), text.size()) == 0;
}

/// FAT has no mark of its own: its kind follows from the number of clusters.
FileSystem RecogniseFat(std::span<const uint8_t> sector)
{
    const uint32_t sectorBytes = Get16(sector, 11);
    const uint32_t clusterSectors = sector[13];
    const uint32_t reservedSectors = Get16(sector, 14);
    const uint32_t tables = sector[16];
    const bool plausible = sectorBytes >= 512 && sectorBytes <= 4096 && std::has_single_bit(sectorBytes) &&
                           std::has_single_bit(clusterSectors) && reservedSectors != 0 && tables >= 1 && tables <= 2 &&
                           sector[21] >= 0xF0;
    if (!plausible) {
        return FileSystem::None;
    }
    const uint32_t rootSectors = (Get16(sector, 17) * 32 + sectorBytes - 1) / sectorBytes;
    const uint32_t smallTable = Get16(sector, 22);
    const uint64_t tableSectors = smallTable != 0 ? smallTable : Get32(sector, 36);
    const uint32_t smallTotal = Get16(sector, 19);
    const uint64_t total = smallTotal != 0 ? smallTotal : Get32(sector, 32);
    const uint64_t overhead = reservedSectors + tables * tableSectors + rootSectors;
    if (tableSectors == 0 || total <= overhead) {
        return FileSystem::None;
    }
    const uint64_t clusters = (total - overhead) / clusterSectors;
    if (smallTable == 0) {
        return FileSystem::Fat32;
    }
    return clusters < 4085 ? FileSystem::Fat12 : FileSystem::Fat16;
}

}  // namespace

FileSystem RecogniseBootSector(std::span<const uint8_t> sector)
{
    if (sector.size() < 512 || sector[510] != 0x55 || sector[511] != 0xAA) {
        return FileSystem::None;
    }
    if (Says(sector, 3, "NTFS    ")) {
        return FileSystem::Ntfs;
    }
    if (Says(sector, 3, "EXFAT   ")) {
        return FileSystem::Exfat;
    }
    const bool jumps = (sector[0] == 0xEB && sector[2] == 0x90) || sector[0] == 0xE9;
    return jumps ? RecogniseFat(sector) : FileSystem::None;
}

FileSystem RecogniseFileSystem(VolumeView& view)
{
    std::array<uint8_t, 512> sector = {};
    return view.Length() >= sector.size() && view.Read(0, sector) ? RecogniseBootSector(sector) : FileSystem::None;
}

std::u16string SystemNameOf(FileSystem fileSystem)
{
    switch (fileSystem) {
    case FileSystem::Ntfs:
        return u"NTFS";
    case FileSystem::Fat12:
    case FileSystem::Fat16:
        return u"FAT";
    case FileSystem::Fat32:
        return u"FAT32";
    case FileSystem::Exfat:
        return u"exFAT";
    case FileSystem::None:
        break;
    }
    return u"RAW";
}

}  // namespace machine
