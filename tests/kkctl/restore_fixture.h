#pragma once

#include <string>

#include <nlohmann/json.hpp>

#include "fake_kit.h"

/// Every image has a GPT, sectors of 512 bytes and the partitions 1, of 10 MiB, and 4, of 40 MiB.
class RestoreCommandTest : public CommandLineTest {
protected:
    RestoreCommandTest()
    {
        library.imageInfo.logicalSectorSize = 512;
        library.imageInfo.partitionStyle = KK_PARTITION_STYLE_GPT;
        library.imagePartitions = {ImagePartitionAt(1, 1 << 20, 10 << 20), ImagePartitionAt(4, 16 << 20, 40 << 20)};
    }

    std::string Json() const { return nlohmann::ordered_json::parse(out).dump(); }
};
