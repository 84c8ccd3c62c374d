#pragma once

#include <algorithm>
#include <cstdint>
#include <optional>
#include <vector>

#include <kestrelkit/kestrelkit_types.hpp>

namespace kkctl {

/// The partitions that a user named by their numbers; all when none was named.
struct PartitionChoice {
    std::vector<uint32_t> numbers;

    bool Includes(uint32_t number) const
    {
        return numbers.empty() || std::ranges::find(numbers, number) != numbers.end();
    }

    /// The first number that no partition has: the library would leave it out without a word.
    template <typename AnyPartition>
    std::optional<uint32_t> FirstMissingIn(const std::vector<AnyPartition>& partitions) const
    {
        const auto isMissing = [&partitions](uint32_t number) {
            return std::ranges::find(partitions, number, &AnyPartition::number) == partitions.end();
        };
        const auto missing = std::ranges::find_if(numbers, isMissing);
        return missing != numbers.end() ? std::optional(*missing) : std::nullopt;
    }

    /// How many bytes the chosen partitions have together.
    template <typename AnyPartition>
    uint64_t BytesIn(const std::vector<AnyPartition>& partitions) const
    {
        uint64_t bytes = 0;
        for (const AnyPartition& partition : partitions) {
            bytes += Includes(partition.number) ? partition.length : 0;
        }
        return bytes;
    }

    /// As the library wants them.
    kestrelkit::PartitionNumbers ForLibrary() const
    {
        return numbers.empty() ? std::nullopt : kestrelkit::PartitionNumbers(numbers);
    }
};

}  // namespace kkctl
