#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "image/virtual_disk_api.h"

// How GetStorageDependencyInformation lays out its answer.

namespace machine {

/// The texts of an entry; one that is missing is a null pointer.
struct DependencyTexts {
    std::optional<std::u16string> deviceName = std::nullopt;
    std::optional<std::u16string> hostVolumeName = std::nullopt;
    std::optional<std::u16string> dependentVolumeName = std::nullopt;
    std::optional<std::u16string> relativePath = std::nullopt;
};

/// One image of the chain that a disk stands on.
struct StorageDependency {
    uint32_t typeFlags = 0;
    uint32_t ancestorLevel = 0;
    DependencyTexts texts = {};
};

/// The size of the answer: its head, the entries, and their texts behind them.
uint32_t DependencyAnswerBytes(const std::vector<StorageDependency>& chain);

/// Writes the answer; there is room for all of it.
void WriteDependencyAnswer(const std::vector<StorageDependency>& chain, kk::StorageDependencyInfo* answer);

}  // namespace machine
