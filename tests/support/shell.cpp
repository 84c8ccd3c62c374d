#include "support/shell.h"

#include <gtest/gtest.h>
#include <sys/wait.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>

TemporaryFolder::TemporaryFolder()
{
    std::string pattern = (std::filesystem::temp_directory_path() / "kestrelkit-XXXXXX").string();
    if (mkdtemp(pattern.data()) == nullptr) {
        throw std::filesystem::filesystem_error("no temporary folder", std::error_code(errno, std::generic_category()));
    }
    path_ = pattern;
}

TemporaryFolder::~TemporaryFolder()
{
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
}

std::string Shell(const std::string& command)
{
    FILE* const pipe = popen(("{ " + command + " ; } 2>&1 </dev/null").c_str(), "r");
    if (pipe == nullptr) {
        ADD_FAILURE() << "cannot run " << command;
        return {};
    }
    std::string output;
    std::array<char, 4096> piece;
    for (size_t got = 0; (got = fread(piece.data(), 1, piece.size(), pipe)) > 0;) {
        output.append(piece.data(), got);
    }
    const int status = pclose(pipe);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << command << "\n" << output;
    return output;
}

std::u16string WindowsPath(const std::filesystem::path& hostPath)
{
    std::u16string path = u"Z:" + std::filesystem::absolute(hostPath).u16string();
    std::replace(path.begin(), path.end(), u'/', u'\\');
    return path;
}

std::string ReadFile(const std::filesystem::path& path)
{
    std::ifstream stream(path, std::ios::binary);
    std::ostringstream content;
    content << stream.rdbuf();
    return std::move(content).str();
}
