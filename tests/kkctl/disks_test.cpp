#include <gmock/gmock.h>
#include <nlohmann/json.hpp>

#include "fake_kit.h"

class DisksTest : public CommandLineTest {
protected:
    DisksTest()
    {
        library.disks = {{.number = 0,
                          .notWritten4 = 0,
                          .size = 64ull << 20,
                          .sectorSize = 512,
                          .partitionStyle = KK_PARTITION_STYLE_GPT,
                          .partitionCount = 3,
                          .notWritten28 = 0},
                         {.number = 12,
                          .notWritten4 = 0,
                          .size = (2ull << 40) + 512,
                          .sectorSize = 4096,
                          .partitionStyle = KK_PARTITION_STYLE_RAW,
                          .partitionCount = 0,
                          .notWritten28 = 0}};
    }
};

TEST_F(DisksTest, TheTableIsAligned)
{
    EXPECT_EQ(Run({"disks"}), 0);

    EXPECT_EQ(out, "DISK      SIZE          BYTES  SECTOR  STYLE  PARTITIONS\n"
                   "   0  64.0 MiB       67108864     512  GPT             3\n"
                   "  12   2.0 TiB  2199023256064    4096  RAW             0\n");
    EXPECT_EQ(err, "");
}

TEST_F(DisksTest, JsonHasEveryField)
{
    EXPECT_EQ(Run({"disks", "--json"}), 0);

    EXPECT_EQ(nlohmann::ordered_json::parse(out).dump(),
              R"({"disks":[{"number":0,"size":67108864,"sectorSize":512,"partitionStyle":"GPT","partitionCount":3},)"
              R"({"number":12,"size":2199023256064,"sectorSize":4096,"partitionStyle":"RAW","partitionCount":0}]})");
}

TEST_F(DisksTest, NoDiskIsNoFailure)
{
    library.disks.clear();

    EXPECT_EQ(Run({"disks"}), 0);
    EXPECT_EQ(out, "There is no disk that can be read.\n");
    EXPECT_EQ(Run({"disks", "--json"}), 0);
    EXPECT_EQ(nlohmann::json::parse(out).dump(), R"({"disks":[]})");
}
