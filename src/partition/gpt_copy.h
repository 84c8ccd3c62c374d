#pragma once

#include <cstdint>

#include "core/device_file.h"
#include "core/heap_block.h"
#include "partition/gpt_format.h"

namespace kk {

/// One of the two copies of a disk's GPT in memory: a header's sector and the entry array that it names. Of what the
/// disk says only as much is checked as keeps accesses inside the two.
class GptCopy {
public:
    /// The sector size must not be 0.
    GptCopy(DeviceFile& disk, uint32_t sectorSize) : disk_(disk), sectorSize_(sectorSize) {}

    /// Reads the header at `headerLba`. KK_STATUS_REGISTRY_CORRUPT when there is none, when sectors are too small for
    /// one or when the offset exceeds 64 bits; KK_STATUS_NO_MEMORY; the status of the failing read. Once in the
    /// object's life.
    [[nodiscard]] KK_STATUS ReadHeader(uint64_t headerLba);

    /// Reads the entries, after the header. KK_STATUS_REGISTRY_CORRUPT for a count that is 0 or above 4096, entries
    /// below 128 bytes or an offset that exceeds 64 bits; KK_STATUS_NO_MEMORY, also for an array of 4 GiB and more; the
    /// status of the failing read. Once in the object's life.
    [[nodiscard]] KK_STATUS ReadEntries();

    /// Renews both checksums and writes the array, and only if that worked the header's sector, of which nothing but
    /// the header stays.
    [[nodiscard]] KK_STATUS Write();

    [[nodiscard]] GptHeader& Header() { return *reinterpret_cast<GptHeader*>(sector_.Data()); }
    [[nodiscard]] const GptHeader& Header() const { return *reinterpret_cast<const GptHeader*>(sector_.Data()); }
    [[nodiscard]] uint32_t EntryCount() const { return Header().entryCount.Get(); }
    [[nodiscard]] uint32_t EntryBytes() const { return Header().entrySize.Get(); }
    [[nodiscard]] GptEntry& Entry(uint32_t index) { return *reinterpret_cast<GptEntry*>(EntryAddress(index)); }
    [[nodiscard]] const GptEntry& Entry(uint32_t index) const
    {
        return *reinterpret_cast<const GptEntry*>(EntryAddress(index));
    }

private:
    [[nodiscard]] uint8_t* EntryAddress(uint32_t index) const
    {
        return array_.Data() + static_cast<uint64_t>(index) * EntryBytes();
    }

    DeviceFile& disk_;
    uint32_t sectorSize_;
    uint64_t headerOffset_ = 0;  // bytes, as are the next two
    uint64_t arrayOffset_ = 0;
    uint32_t arrayBytes_ = 0;
    HeapBlock sector_;
    HeapBlock array_;
};

}  // namespace kk
