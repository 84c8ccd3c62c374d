#pragma once

#include "image/vhdx_reader.h"

#include <algorithm>
#include <optional>

#include "machine/machine.h"
#include "support/machine_test.h"
#include "support/pattern.h"
#include "support/shell.h"
#include "support/vhdx_builder.h"

/// A test that reads images from files of the host.
class VhdxReaderTest : public MachineTest {
protected:
    static constexpr uint64_t kTiB = 1024 * kGiB;
    static constexpr uint8_t kDirt = 0xEE;
    static constexpr int32_t kMalformed = Status(0xC000014C);
    static constexpr int32_t kEndOfFile = Status(0xC0000011);
    static constexpr int32_t kOutOfMemory = Status(0xC0000001);

    /// Opens the file with a reader of its own.
    KK_STATUS OpenFile()
    {
        reader.emplace();
        return reader->Open(WindowsPath(file).c_str());
    }
    KK_STATUS Open(const VhdxBuilder& builder)
    {
        builder.Save(file);
        return OpenFile();
    }
    void MustOpen(const VhdxBuilder& builder) { ASSERT_EQ(Open(builder), 0); }

    /// Reads into dirty bytes.
    KK_STATUS Read(uint64_t offset, size_t length)
    {
        bytes.assign(length, kDirt);
        return reader->Read(offset, bytes.data(), static_cast<uint32_t>(length));
    }
    void ExpectBytes(uint64_t offset, const std::vector<uint8_t>& expected)
    {
        EXPECT_EQ(Read(offset, expected.size()), 0) << "at " << offset;
        EXPECT_TRUE(bytes == expected) << "at " << offset << ", " << expected.size() << " bytes";
    }
    void ExpectZeros(uint64_t offset, size_t length) { ExpectBytes(offset, std::vector<uint8_t>(length)); }

    std::vector<machine::CallRecord> Reads() { return machine.journal.FindAll({machine::CallKind::ReadFile}); }

    TemporaryFolder folder;
    std::filesystem::path file = folder / "image.vhdx";
    std::optional<kk::VhdxReader> reader;
    std::vector<uint8_t> bytes;
};
