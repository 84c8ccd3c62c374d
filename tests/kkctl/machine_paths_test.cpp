#include "machine_paths.h"

#include <filesystem>

#include <gtest/gtest.h>

#include "text.h"

namespace kkctl {

TEST(MachinePathsTest, AbsolutePathsLieOnDriveZ)
{
    EXPECT_EQ(MachinePath("/images/ü disk.vhdx"), u"Z:\\images\\ü disk.vhdx");
    EXPECT_EQ(MachinePath("/a/./b/../c.vhdx"), u"Z:\\a\\c.vhdx");
}

TEST(MachinePathsTest, RelativePathsStartFromTheCurrentFolder)
{
    const std::string here = std::filesystem::current_path().string();

    EXPECT_EQ(MachinePath("x.vhdx"), MachinePath(here + "/x.vhdx"));
    EXPECT_EQ(MachinePath("../x.vhdx"), MachinePath(std::filesystem::path(here).parent_path().string() + "/x.vhdx"));
}

TEST(MachinePathsTest, NamesThatTheMachineCannotSpellAreRefused)
{
    EXPECT_THROW(MachinePath(""), PathError);
    EXPECT_THROW(MachinePath("/a\\b"), PathError);
    EXPECT_THROW(MachinePath("/\xFF"), PathError);
}

}  // namespace kkctl
