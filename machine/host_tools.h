#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "machine/file_system.h"
#include "machine/storage.h"

namespace machine {

struct ToolResult {
    int exitCode = -1;
    std::string text = {};  // standard output and standard error
};

/// Runs a program of the host, found through PATH, with empty standard input.
ToolResult RunTool(const std::vector<std::string>& arguments);

/// The same; throws with the program's own words when it does not exit with 0.
std::string RunToolOrThrow(const std::vector<std::string>& arguments);

/// A file of the host that is deleted with its owner.
class TemporaryFile {
public:
    /// Empty, or `bytes` long and sparse.
    explicit TemporaryFile(uint64_t bytes = 0, const std::string& suffix = "");
    TemporaryFile(const TemporaryFile&) = delete;
    TemporaryFile& operator=(const TemporaryFile&) = delete;
    ~TemporaryFile();

    const std::string& Path() const { return path_; }

private:
    std::string path_;
};

struct FormatOptions {
    uint32_t clusterSize = 0;  // the tool's choice unless given
    std::string label = {};
    /// Host files to put into the root of an NTFS volume, under the given names.
    std::vector<std::pair<std::string, std::string>> files = {};
};

/// Makes a file system of `length` bytes at `start`, with the host's tools. Sectors that the tools leave alone keep
/// what they hold.
void FormatRegion(Storage& storage, uint32_t sectorSize, uint64_t start, uint64_t length, FileSystem fileSystem,
                  const FormatOptions& options);

/// Copies a host file to `offset`; its holes are skipped.
void ImportHostFile(Storage& storage, uint64_t offset, const std::string& hostPath);

/// Copies `length` bytes to a new host file, which is sparse where 64 KiB are zero.
void ExportHostFile(Storage& storage, uint64_t offset, uint64_t length, const std::string& hostPath);

}  // namespace machine
