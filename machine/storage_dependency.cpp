#include "machine/storage_dependency.h"

#include <cstring>

namespace machine {
namespace {

size_t BytesOfText(const std::optional<std::u16string>& text)
{
    return text ? (text->size() + 1) * sizeof(char16_t) : 0;
}

/// Puts a text behind the entries and moves on; null for a text that is missing.
const char16_t* PlaceText(const std::optional<std::u16string>& text, uint8_t*& place)
{
    if (!text) {
        return nullptr;
    }
    auto* const start = reinterpret_cast<const char16_t*>(place);
    std::memcpy(place, text->c_str(), BytesOfText(text));
    place += BytesOfText(text);
    return start;
}

}  // namespace

uint32_t DependencyAnswerBytes(const std::vector<StorageDependency>& chain)
{
    size_t bytes = sizeof(kk::StorageDependencyInfo) + chain.size() * sizeof(kk::StorageDependencyEntry);
    for (const StorageDependency& link : chain) {
        bytes += BytesOfText(link.texts.deviceName) + BytesOfText(link.texts.hostVolumeName) +
                 BytesOfText(link.texts.dependentVolumeName) + BytesOfText(link.texts.relativePath);
    }
    return static_cast<uint32_t>(bytes);
}

void WriteDependencyAnswer(const std::vector<StorageDependency>& chain, kk::StorageDependencyInfo* answer)
{
    answer->numberEntries = static_cast<uint32_t>(chain.size());
    auto* entryPlace = reinterpret_cast<uint8_t*>(answer + 1);
    uint8_t* textPlace = entryPlace + chain.size() * sizeof(kk::StorageDependencyEntry);
    for (const StorageDependency& link : chain) {
        const kk::StorageDependencyEntry entry = {
            .dependencyTypeFlags = link.typeFlags,
            .providerSpecificFlags = 0,
            .virtualStorageType = {kk::kVirtualStorageTypeDeviceVhdx, kk::kVirtualStorageTypeVendorMicrosoft},
            .ancestorLevel = link.ancestorLevel,
            .dependencyDeviceName = PlaceText(link.texts.deviceName, textPlace),
            .hostVolumeName = PlaceText(link.texts.hostVolumeName, textPlace),
            .dependentVolumeName = PlaceText(link.texts.dependentVolumeName, textPlace),
            .dependentVolumeRelativePath = PlaceText(link.texts.relativePath, textPlace),
        };
        std::memcpy(entryPlace, &entry, sizeof(entry));
        entryPlace += sizeof(entry);
    }
}

}  // namespace machine
