#include "machine/host_tools.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <fcntl.h>
#include <spawn.h>
#include <stdexcept>
#include <sys/wait.h>
#include <system_error>
#include <unistd.h>

#include "machine/host_transfers.h"

extern char** environ;

namespace machine {

namespace {

constexpr uint64_t kCopyBytes = 1 << 20;
constexpr uint64_t kSparseBytes = 64 * 1024;

/// A descriptor that closes itself.
class Descriptor {
public:
    explicit Descriptor(int value) : value_(value) {}
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    ~Descriptor() { Close(); }

    int Get() const { return value_; }
    void Close()
    {
        if (value_ >= 0) {
            close(value_);
            value_ = -1;
        }
    }

private:
    int value_;
};

[[noreturn]] void ThrowErrno(const std::string& what)
{
    throw std::system_error(errno, std::generic_category(), what);
}

/// Starts the program with its output in `output`.
pid_t Spawn(const std::vector<std::string>& arguments, int output)
{
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_adddup2(&actions, output, STDOUT_FILENO);
    posix_spawn_file_actions_adddup2(&actions, output, STDERR_FILENO);
    std::vector<char*> pointers;
    for (const std::string& argument : arguments) {
        pointers.push_back(const_cast<char*>(argument.c_str()));
    }
    pointers.push_back(nullptr);
    pid_t process = 0;
    const int error = posix_spawnp(&process, pointers[0], &actions, nullptr, pointers.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    if (error != 0) {
        throw std::system_error(error, std::generic_category(), arguments[0]);
    }
    return process;
}

std::string ReadAll(int descriptor)
{
    std::string text;
    char buffer[4096];
    for (;;) {
        const ssize_t count = read(descriptor, buffer, sizeof(buffer));
        if (count > 0) {
            text.append(buffer, static_cast<size_t>(count));
        } else if (count == 0 || errno != EINTR) {
            return text;
        }
    }
}

std::vector<std::string> MakerOf(FileSystem fileSystem, const std::string& path, uint32_t sectorSize,
                                 uint64_t startSector, const FormatOptions& options)
{
    const std::string sector = std::to_string(sectorSize);
    const std::string cluster = std::to_string(options.clusterSize);
    std::vector<std::string> command;
    if (fileSystem == FileSystem::Ntfs) {
        command = {"mkntfs", "-Q", "-F", "-p", std::to_string(startSector), "-H", "255", "-S", "63", "-s", sector};
        if (options.clusterSize != 0) {
            command.insert(command.end(), {"-c", cluster});
        }
        if (!options.label.empty()) {
            command.insert(command.end(), {"-L", options.label});
        }
    } else if (fileSystem == FileSystem::Exfat) {
        // Of the three tools only this one reads its arguments in the host's locale.
        command = {"env", "LC_ALL=C.UTF-8", "mkfs.exfat"};
        if (options.clusterSize != 0) {
            command.insert(command.end(), {"-c", cluster});
        }
        if (!options.label.empty()) {
            command.insert(command.end(), {"-L", options.label});
        }
    } else {
        const char* const bits = fileSystem == FileSystem::Fat12 ? "12" : fileSystem == FileSystem::Fat16 ? "16" : "32";
        command = {"mkfs.vfat", "-F", bits, "-S", sector, "-h", std::to_string(startSector)};
        if (options.clusterSize != 0) {
            command.insert(command.end(), {"-s", std::to_string(options.clusterSize / sectorSize)});
        }
        if (!options.label.empty()) {
            command.insert(command.end(), {"-n", options.label});
        }
    }
    command.push_back(path);
    return command;
}

}  // namespace

ToolResult RunTool(const std::vector<std::string>& arguments)
{
    int ends[2] = {};
    if (pipe2(ends, O_CLOEXEC) != 0) {
        ThrowErrno("pipe");
    }
    Descriptor reader(ends[0]);
    Descriptor writer(ends[1]);
    const pid_t process = Spawn(arguments, writer.Get());
    writer.Close();
    ToolResult result;
    result.text = ReadAll(reader.Get());
    int state = 0;
    while (waitpid(process, &state, 0) < 0 && errno == EINTR) {
    }
    result.exitCode = WIFEXITED(state) ? WEXITSTATUS(state) : -1;
    return result;
}

std::string RunToolOrThrow(const std::vector<std::string>& arguments)
{
    ToolResult result = RunTool(arguments);
    if (result.exitCode != 0) {
        throw std::runtime_error(arguments[0] + " failed: " + result.text);
    }
    return std::move(result.text);
}

TemporaryFile::TemporaryFile(uint64_t bytes, const std::string& suffix)
{
    const char* const folder = std::getenv("TMPDIR");
    path_ = std::string(folder != nullptr ? folder : "/tmp") + "/machine-XXXXXX" + suffix;
    Descriptor file(mkostemps(path_.data(), static_cast<int>(suffix.size()), O_CLOEXEC));
    if (file.Get() < 0 || ftruncate(file.Get(), static_cast<off_t>(bytes)) != 0) {
        ThrowErrno(path_);
    }
}

TemporaryFile::~TemporaryFile()
{
    unlink(path_.c_str());
}

void FormatRegion(Storage& storage, uint32_t sectorSize, uint64_t start, uint64_t length, FileSystem fileSystem,
                  const FormatOptions& options)
{
    TemporaryFile file(length);
    RunToolOrThrow(MakerOf(fileSystem, file.Path(), sectorSize, start / sectorSize, options));
    for (const auto& [hostPath, name] : options.files) {
        RunToolOrThrow({"ntfscp", "-q", file.Path(), hostPath, name});
    }
    ImportHostFile(storage, start, file.Path());
}

void ImportHostFile(Storage& storage, uint64_t offset, const std::string& hostPath)
{
    FileStorage file(hostPath, FileStorage::Mode::ReadOnly);
    std::vector<uint8_t> buffer;
    for (const Stretch& stretch : file.DataIn(0, file.Size())) {
        const uint64_t end = stretch.offset + stretch.length;
        for (uint64_t at = stretch.offset; at < end; at += buffer.size()) {
            buffer.resize(std::min(kCopyBytes, end - at));
            if (!file.Read(at, buffer)) {
                ThrowErrno(hostPath);
            }
            if (!storage.Write(offset + at, buffer)) {
                throw std::runtime_error("the file does not fit at this place of the disk");
            }
        }
    }
}

void ExportHostFile(Storage& storage, uint64_t offset, uint64_t length, const std::string& hostPath)
{
    Descriptor file(open(hostPath.c_str(), O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC, 0644));
    if (file.Get() < 0 || ftruncate(file.Get(), static_cast<off_t>(length)) != 0) {
        ThrowErrno(hostPath);
    }
    if (offset > storage.Size() || length > storage.Size() - offset) {
        throw std::runtime_error("the disk does not reach that far");
    }
    std::vector<uint8_t> buffer;
    for (const Stretch& stretch : storage.DataIn(offset, length)) {
        const uint64_t end = stretch.offset + stretch.length;
        for (uint64_t at = stretch.offset; at < end; at += buffer.size()) {
            buffer.resize(std::min(kSparseBytes, end - at));
            if (!storage.Read(at, buffer)) {
                throw std::runtime_error("reading the disk failed");
            }
            const bool empty = std::all_of(buffer.begin(), buffer.end(), [](uint8_t byte) { return byte == 0; });
            if (!empty && !WriteAt(file.Get(), at - offset, buffer)) {
                ThrowErrno(hostPath);
            }
        }
    }
}

}  // namespace machine
