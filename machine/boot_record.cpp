#include "machine/boot_record.h"

namespace machine {

std::optional<BootRecord> ReadBootRecord(Storage& storage, uint32_t sectorSize, uint64_t offset)
{
    BootRecord boot = {.offset = offset, .sector = std::vector<uint8_t>(sectorSize)};
    if (!storage.Read(offset, boot.sector)) {
        return std::nullopt;
    }
    boot.record = TakeRecord<MbrRecord>(boot.sector);
    return boot.record.mark == kBootMark ? std::optional(std::move(boot)) : std::nullopt;
}

bool WriteBootRecord(Storage& storage, BootRecord boot)
{
    PutRecord(boot.sector, 0, boot.record);
    return storage.Write(boot.offset, boot.sector);
}

}  // namespace machine
