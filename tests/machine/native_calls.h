#pragma once

#include <algorithm>
#include <cstring>
#include <gtest/gtest.h>
#include <optional>
#include <string>
#include <vector>

#include "core/nt.h"
#include "disk/volume_controls.h"
#include "machine/machine.h"

// Native calls in a form that tests can read, and a machine that fails the test on every breach of its rules.

namespace machine {

inline constexpr uint64_t kKiB = 1024;
inline constexpr uint64_t kMiB = 1024 * kKiB;

/// A call's status and what it wrote into a status block of zeros.
struct Outcome {
    Status status = 0;
    uint64_t information = 0;
    std::vector<uint8_t> output = {};

    template <typename T>
    T As(size_t offset = 0) const
    {
        T value = {};
        if (offset + sizeof(T) <= output.size()) {
            std::memcpy(&value, output.data() + offset, sizeof(T));
        }
        return value;
    }
};

struct OpenHow {
    uint32_t access = kk::kFileGenericRead;
    uint32_t share = kk::kFileShareRead | kk::kFileShareWrite;
    uint32_t disposition = kk::kFileOpen;
    uint32_t options = kk::kFileNonDirectoryFile | kk::kFileSynchronousIoNonalert;
    uint32_t attributes = kk::kObjCaseInsensitive;
};

inline constexpr OpenHow kForWriting = {.access = kk::kFileGenericRead | kk::kFileGenericWrite};

/// A handle that is closed with its owner.
class Handle {
public:
    explicit Handle(const std::u16string& name, const OpenHow& how = {})
    {
        const auto bytes = static_cast<uint16_t>(name.size() * 2);
        const kk::UnicodeString text = {bytes, bytes, name.c_str()};
        const kk::ObjectAttributes attributes = {sizeof(attributes), nullptr, &text, how.attributes, nullptr, nullptr};
        kk::IoStatusBlock block = {};
        created.status = NtCreateFile(&value, how.access, &attributes, &block, nullptr, kk::kFileAttributeNormal,
                                      how.share, how.disposition, how.options, nullptr, 0);
        created.information = block.information;
    }
    Handle(const Handle&) = delete;
    Handle& operator=(const Handle&) = delete;
    ~Handle() { Close(); }

    void Close()
    {
        if (value != nullptr) {
            EXPECT_EQ(NtClose(value), kSuccess);
            value = nullptr;
        }
    }

    Outcome Read(int64_t offset, uint32_t length) const
    {
        Outcome outcome = {.output = std::vector<uint8_t>(length, 0xEE)};
        kk::IoStatusBlock block = {};
        outcome.status =
            NtReadFile(value, nullptr, nullptr, nullptr, &block, outcome.output.data(), length, &offset, nullptr);
        outcome.information = block.information;
        return outcome;
    }

    Outcome Write(int64_t offset, const std::vector<uint8_t>& bytes) const
    {
        Outcome outcome;
        kk::IoStatusBlock block = {};
        outcome.status = NtWriteFile(value, nullptr, nullptr, nullptr, &block, bytes.data(),
                                     static_cast<uint32_t>(bytes.size()), &offset, nullptr);
        outcome.information = block.information;
        return outcome;
    }

    /// Goes to the file system or to the driver, as the code demands.
    Outcome Control(uint32_t code, uint32_t room, const std::vector<uint8_t>& input = {}) const
    {
        Outcome outcome = {.output = std::vector<uint8_t>(room, 0xEE)};
        kk::IoStatusBlock block = {};
        const auto call = code >> 16 == kk::kFileDeviceFileSystem ? &NtFsControlFile : &NtDeviceIoControlFile;
        outcome.status = call(value, nullptr, nullptr, nullptr, &block, code, input.data(),
                              static_cast<uint32_t>(input.size()), outcome.output.data(), room);
        outcome.information = block.information;
        return outcome;
    }

    Outcome QueryFile(uint32_t room, uint32_t informationClass = kk::kFileStandardInformationClass) const
    {
        Outcome outcome = {.output = std::vector<uint8_t>(room, 0xEE)};
        kk::IoStatusBlock block = {};
        outcome.status = NtQueryInformationFile(value, &block, outcome.output.data(), room, informationClass);
        outcome.information = block.information;
        return outcome;
    }

    Outcome QueryVolume(uint32_t room) const
    {
        Outcome outcome = {.output = std::vector<uint8_t>(room, 0xEE)};
        kk::IoStatusBlock block = {};
        outcome.status = NtQueryVolumeInformationFile(value, &block, outcome.output.data(), room,
                                                      kk::kFileFsAttributeInformationClass);
        outcome.information = block.information;
        return outcome;
    }

    Status Flush() const
    {
        kk::IoStatusBlock block = {};
        return NtFlushBuffersFile(value, &block);
    }

    kk::NtHandle value = nullptr;
    Outcome created = {};
};

/// A machine whose breaches are collected; those that a test does not expect fail it.
class MachineTest : public ::testing::Test {
protected:
    MachineTest()
    {
        machine.SetFailureHandler([this](const std::string& breach) { breaches.push_back(breach); });
    }
    ~MachineTest() override
    {
        machine.SetFailureHandler([](const std::string& breach) { ADD_FAILURE() << breach; });
        for (const std::string& breach : breaches) {
            ADD_FAILURE() << breach;
        }
    }

    /// The breaches so far, which thereby count as expected.
    std::vector<std::string> TakeBreaches() { return std::exchange(breaches, {}); }

    /// A GPT disk with one NTFS partition.
    Disk& AddNtfsDisk(uint64_t bytes, uint64_t start, uint64_t length, const FormatOptions& options = {})
    {
        Disk& disk = machine.AddDisk(bytes).Gpt({.partitions = {{.start = start, .length = length}}});
        return disk.Format(start, length, FileSystem::Ntfs, options);
    }

    std::vector<std::string> breaches;
    Machine machine;
};

}  // namespace machine
