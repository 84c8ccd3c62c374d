#pragma once

#include <cstring>
#include <vector>

#include "disk/disk_controls.h"
#include "machine/device.h"

/// A disk driver's answer to the layout request, built by hand where no real table gives it.
struct LayoutAnswer {
    kk::DriveLayoutInformationEx head = {};
    std::vector<kk::PartitionInformationEx> partitions = {};

    explicit LayoutAnswer(kk::WirePartitionStyle style) { head.partitionStyle = style; }

    /// Adds an entry and counts it.
    kk::PartitionInformationEx& Add(uint32_t number, int64_t start, int64_t length)
    {
        kk::PartitionInformationEx& entry = partitions.emplace_back();
        entry.style = head.partitionStyle;
        entry.partitionNumber = number;
        entry.startingOffset = start;
        entry.partitionLength = length;
        head.partitionCount = static_cast<uint32_t>(partitions.size());
        return entry;
    }

    LayoutAnswer& AddMbr(uint32_t number, int64_t start, uint8_t type)
    {
        Add(number, start, 4096).mbr.partitionType = type;
        return *this;
    }

    LayoutAnswer& AddGpt(uint32_t number, int64_t start)
    {
        kk::PartitionInformationEx& entry = Add(number, start, 4096);
        entry.gpt.partitionType = {number, 2, 3, {4, 5, 6, 7, 8, 9, 10, 11}};
        entry.gpt.partitionId = {number, 9, 9, {9, 9, 9, 9, 9, 9, 9, 9}};
        return *this;
    }

    std::vector<uint8_t> Bytes() const
    {
        std::vector<uint8_t> bytes(sizeof(head) + partitions.size() * sizeof(kk::PartitionInformationEx));
        std::memcpy(bytes.data(), &head, sizeof(head));
        for (size_t i = 0; i < partitions.size(); ++i) {
            std::memcpy(bytes.data() + sizeof(head) + i * sizeof(partitions[i]), &partitions[i], sizeof(partitions[i]));
        }
        return bytes;
    }

    /// The bytes cut to `size`.
    std::vector<uint8_t> FirstBytes(size_t size) const
    {
        std::vector<uint8_t> bytes = Bytes();
        bytes.resize(size);
        return bytes;
    }
};
