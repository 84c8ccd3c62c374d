#include "machine/mount_manager.h"

#include <cstring>

#include "disk/mount_manager.h"
#include "machine/text.h"
#include "machine/volumes.h"

namespace machine {

namespace {

constexpr uint32_t kSmallestAnswer = sizeof(kk::MountPointsHeader) + sizeof(kk::MountPointRecord);

/// Puts bytes at the end, at an even offset, and tells where.
uint32_t Append(std::vector<uint8_t>& answer, const void* data, size_t size)
{
    answer.resize((answer.size() + 1) / 2 * 2);
    const auto offset = static_cast<uint32_t>(answer.size());
    answer.resize(offset + size);
    if (size != 0) {
        std::memcpy(answer.data() + offset, data, size);
    }
    return offset;
}

uint16_t BytesIn(const std::u16string& text)
{
    return static_cast<uint16_t>(text.size() * sizeof(char16_t));
}

}  // namespace

std::vector<MountManager::Point> MountManager::Points() const
{
    std::vector<Point> points;
    std::vector<bool> used(added_.size());
    for (const std::shared_ptr<Volume>& volume : volumes_.All()) {
        const std::u16string device = volume->DeviceName();
        points.push_back({volume->LinkName(), volume->UniqueId(), device});
        if (volume->Letter()) {
            points.push_back(
                {std::u16string(u"\\DosDevices\\") + *volume->Letter() + u":", volume->UniqueId(), device});
        }
        for (size_t i = 0; i < added_.size(); ++i) {
            if (EqualsIgnoreCase(added_[i].device, device)) {
                points.push_back({added_[i].link, volume->UniqueId(), added_[i].device});
                used[i] = true;
            }
        }
    }
    for (size_t i = 0; i < added_.size(); ++i) {
        if (!used[i]) {
            points.push_back(added_[i]);
        }
    }
    return points;
}

void MountManager::AddMountPoint(std::u16string link, std::u16string device)
{
    added_.push_back({std::move(link), std::vector<uint8_t>(12, 0xAB), std::move(device)});
}

void MountManager::MountOnFolder(std::u16string folder, std::u16string volumePath)
{
    folders_[std::move(folder)] = std::move(volumePath);
}

bool MountManager::RemoveFolder(std::u16string_view folder)
{
    return std::erase_if(folders_, [&](const auto& entry) { return EqualsIgnoreCase(entry.first, folder); }) != 0;
}

ControlAnswer MountManager::Control(OpenFile& /*file*/, const ControlRequest& request)
{
    if (request.code != kk::kIoctlMountmgrQueryPoints) {
        return {kInvalidDeviceRequest};
    }
    if (rawAnswer_) {
        if (std::optional<ControlAnswer> answer = rawAnswer_(request)) {
            return std::move(*answer);
        }
    }
    return AnswerQuery(request);
}

ControlAnswer MountManager::AnswerQuery(const ControlRequest& request) const
{
    if (request.input.size() < sizeof(kk::MountPointRecord) || request.outputRoom < kSmallestAnswer) {
        return {kInvalidParameter};
    }
    ControlAnswer answer = {kSuccess, Encode(Points())};
    if (answer.output.size() > request.outputRoom) {
        answer.status = kBufferOverflow;
        answer.output.resize(sizeof(kk::MountPointsHeader));
    }
    return answer;
}

Status MountManager::QueryStandardInformation(OpenFile& /*file*/, kk::FileStandardInformation& /*information*/)
{
    return kInvalidDeviceRequest;
}

std::vector<uint8_t> MountManager::Encode(const std::vector<Point>& points)
{
    std::vector<uint8_t> answer(sizeof(kk::MountPointsHeader) + points.size() * sizeof(kk::MountPointRecord));
    for (size_t i = 0; i < points.size(); ++i) {
        const Point& point = points[i];
        kk::MountPointRecord record = {};
        record.symbolicLinkNameLength = BytesIn(point.link);
        record.uniqueIdLength = static_cast<uint16_t>(point.uniqueId.size());
        record.deviceNameLength = BytesIn(point.device);
        record.symbolicLinkNameOffset = Append(answer, point.link.data(), record.symbolicLinkNameLength);
        record.uniqueIdOffset = Append(answer, point.uniqueId.data(), record.uniqueIdLength);
        record.deviceNameOffset = Append(answer, point.device.data(), record.deviceNameLength);
        std::memcpy(answer.data() + sizeof(kk::MountPointsHeader) + i * sizeof(record), &record, sizeof(record));
    }
    const kk::MountPointsHeader header = {static_cast<uint32_t>(answer.size()), static_cast<uint32_t>(points.size())};
    std::memcpy(answer.data(), &header, sizeof(header));
    return answer;
}

}  // namespace machine
