#include "partition_types.h"

#include <string_view>

namespace kkctl {

namespace {

struct GptType {
    std::string_view guid;
    const char* name;
};

constexpr GptType kGptTypes[] = {
    {"c12a7328-f81f-11d2-ba4b-00a0c93ec93b", "EFI system"},
    {"e3c9e316-0b5c-4db8-817d-f92df00215ae", "Microsoft reserved"},
    {"ebd0a0a2-b9e5-4433-87c0-68b6b72699c7", "Basic data"},
    {"de94bba4-06d1-4d40-a16a-bfd50179d6ac", "Windows recovery"},
    {"5808c8aa-7e8f-42e0-85d2-e1e90434cfb3", "LDM metadata"},
    {"af9b60a0-1431-4f62-bc68-3311714a69ad", "LDM data"},
    {"e75caf8f-f680-4cee-afa3-b001e56efc2d", "Storage Spaces"},
    {"21686148-6449-6e6f-744e-656564454649", "BIOS boot"},
    {"0fc63daf-8483-4772-8e79-3d69d8477de4", "Linux data"},
    {"0657fd6d-a4ab-43c4-84e5-0933c84b4f4f", "Linux swap"},
    {"e6d6d379-f507-44c2-a23c-238f2a3df928", "Linux LVM"},
    {"a19d880f-05fc-4d3b-a006-743f0f84911e", "Linux RAID"},
};

struct MbrType {
    uint8_t type;
    const char* name;
};

constexpr MbrType kMbrTypes[] = {
    {0x01, "FAT12"},        {0x04, "FAT16 (small)"}, {0x06, "FAT16"},       {0x07, "NTFS/exFAT"},
    {0x0B, "FAT32"},        {0x0C, "FAT32 (LBA)"},   {0x0E, "FAT16 (LBA)"}, {0x17, "Hidden NTFS"},
    {0x1B, "Hidden FAT32"}, {0x27, "Recovery"},      {0x42, "LDM"},         {0x82, "Linux swap"},
    {0x83, "Linux"},        {0x8E, "Linux LVM"},     {0xDE, "OEM"},         {0xEE, "GPT protective"},
    {0xEF, "EFI system"},   {0xFD, "Linux RAID"},
};

}  // namespace

std::string FormatGuid(const GuidBytes& guid)
{
    // The first three groups are numbers stored least significant byte first, the others plain bytes.
    constexpr int kOrder[] = {3, 2, 1, 0, -1, 5, 4, -1, 7, 6, -1, 8, 9, -1, 10, 11, 12, 13, 14, 15};
    constexpr char kDigits[] = "0123456789abcdef";
    std::string text;
    for (const int index : kOrder) {
        if (index < 0) {
            text.push_back('-');
            continue;
        }
        const uint8_t byte = guid[static_cast<size_t>(index)];
        text.push_back(kDigits[byte >> 4]);
        text.push_back(kDigits[byte & 15]);
    }
    return text;
}

const char* StyleName(kestrelkit::PartitionStyle style)
{
    switch (style) {
    case kestrelkit::PartitionStyle::Mbr:
        return "MBR";
    case kestrelkit::PartitionStyle::Gpt:
        return "GPT";
    default:
        return "RAW";
    }
}

std::string GptTypeName(const GuidBytes& type)
{
    const std::string text = FormatGuid(type);
    for (const GptType& known : kGptTypes) {
        if (known.guid == text) {
            return known.name;
        }
    }
    return {};
}

std::string MbrTypeName(uint8_t type)
{
    for (const MbrType& known : kMbrTypes) {
        if (known.type == type) {
            return known.name;
        }
    }
    return {};
}

}  // namespace kkctl
