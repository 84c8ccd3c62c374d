#pragma once

#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include "disk/mount_manager.h"
#include "disk/mount_points.h"
#include "support/machine_test.h"

inline constexpr char16_t kVolume1[] = u"\\Device\\HarddiskVolume1";
inline constexpr char16_t kGuidLink1[] = u"\\??\\Volume{11111111-2222-3333-4444-555555555555}";
inline constexpr char16_t kGuidPath1[] = u"\\\\?\\Volume{11111111-2222-3333-4444-555555555555}\\";

/// A mount-point table built by hand: records first, names behind them wherever the test wants them.
class MountTable {
public:
    explicit MountTable(uint32_t records) : bytes_(sizeof(kk::MountPointsHeader) + records * kRecordBytes)
    {
        SetCount(records);
    }

    /// Fills the next record; each name begins `gap` bytes behind the end of what is there. Everything that a reader
    /// has no business with is 0xFF.
    MountTable& Add(const std::u16string& link, const std::u16string& device, size_t gap = 0)
    {
        kk::MountPointRecord record;
        std::memset(&record, 0xFF, sizeof(record));
        record.symbolicLinkNameLength = static_cast<uint16_t>(link.size() * 2);
        record.deviceNameLength = static_cast<uint16_t>(device.size() * 2);
        record.symbolicLinkNameOffset = AddName(link, gap);
        record.deviceNameOffset = AddName(device, gap);
        Record(added_++, record);
        SetSize(static_cast<uint32_t>(bytes_.size()));
        return *this;
    }

    kk::MountPointRecord Record(size_t index) const
    {
        kk::MountPointRecord record;
        std::memcpy(&record, bytes_.data() + sizeof(kk::MountPointsHeader) + index * kRecordBytes, kRecordBytes);
        return record;
    }

    void Record(size_t index, const kk::MountPointRecord& record)
    {
        std::memcpy(bytes_.data() + sizeof(kk::MountPointsHeader) + index * kRecordBytes, &record, kRecordBytes);
    }

    MountTable& SetSize(uint32_t size)
    {
        std::memcpy(bytes_.data(), &size, sizeof(size));
        return *this;
    }

    MountTable& SetCount(uint32_t count)
    {
        std::memcpy(bytes_.data() + 4, &count, sizeof(count));
        return *this;
    }

    const std::vector<uint8_t>& Bytes() const { return bytes_; }

private:
    static constexpr size_t kRecordBytes = sizeof(kk::MountPointRecord);

    uint32_t AddName(const std::u16string& name, size_t gap)
    {
        bytes_.insert(bytes_.end(), gap, uint8_t{0xFF});
        const size_t offset = bytes_.size();
        bytes_.resize(offset + name.size() * 2);
        std::memcpy(bytes_.data() + offset, name.data(), name.size() * 2);
        return static_cast<uint32_t>(offset);
    }

    std::vector<uint8_t> bytes_;
    size_t added_ = 0;
};

/// A test of what the library finds in the mount manager's answers.
class MountManagerTest : public MachineTest {
protected:
    void AnswerQuery(machine::MountManager::RawAnswer answer) { machine.mountManager->SetRawAnswer(std::move(answer)); }

    void AnswerTable(const MountTable& table)
    {
        AnswerQuery([bytes = table.Bytes()](const machine::ControlRequest&) {
            return machine::ControlAnswer{.output = bytes};
        });
    }

    /// The path found for a device; '#' stands for units that were not written.
    std::u16string GuidPath(const std::u16string& device, size_t capacity = 160)
    {
        std::u16string path(capacity + 1, u'#');
        kk::GetVolumeGuidPath(device.c_str(), path.data(), capacity);
        EXPECT_EQ(path[capacity], u'#');
        return path.substr(0, path.find(u'\0'));
    }

    /// The letter's text found for a device. A failure gives "none" when it left the text empty.
    std::u16string DriveLetter(const std::u16string& device)
    {
        char16_t letter[kk::kDriveLetterUnits] = {u'#', u'#', u'#'};
        if (kk::GetDriveLetter(device.c_str(), letter)) {
            EXPECT_EQ(letter[2], u'\0');
            return letter;
        }
        return letter[0] == u'\0' ? u"none" : letter;
    }

    /// Room for the answer in each query so far.
    std::vector<uint64_t> QueryLengths() const
    {
        std::vector<uint64_t> lengths;
        for (const auto& record : machine.journal.FindAll({.code = kk::kIoctlMountmgrQueryPoints})) {
            lengths.push_back(record.length);
        }
        return lengths;
    }
};
