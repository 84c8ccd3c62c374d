#pragma once

#include <filesystem>
#include <string>
#include <string_view>

/// A folder for one test's files, removed with the object.
class TemporaryFolder {
public:
    TemporaryFolder();
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;
    ~TemporaryFolder();

    std::filesystem::path operator/(std::string_view name) const { return path_ / name; }
    const std::filesystem::path& Path() const { return path_; }

private:
    std::filesystem::path path_;
};

/// What a command of the host's shell printed on both outputs. Fails the test when the command cannot be run or
/// answers other than 0.
std::string Shell(const std::string& command);

/// A host path as the machine's programs name it: drive Z: is the host's root.
std::u16string WindowsPath(const std::filesystem::path& hostPath);

std::string ReadFile(const std::filesystem::path& path);
