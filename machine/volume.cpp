#include "machine/volume.h"

#include <algorithm>

#include "machine/text.h"

namespace machine {

bool ReadExtents(const std::vector<Extent>& extents, uint64_t offset, std::span<uint8_t> into)
{
    uint64_t extentStart = 0;
    uint64_t done = 0;
    for (const Extent& extent : extents) {
        const uint64_t from = offset + done;
        if (done < into.size() && from >= extentStart && from < extentStart + extent.length) {
            const uint64_t inside = from - extentStart;
            const uint64_t piece = std::min(into.size() - done, extent.length - inside);
            if (!extent.disk->ReadRaw(extent.start + inside, into.subspan(done, piece))) {
                return false;
            }
            done += piece;
        }
        extentStart += extent.length;
    }
    return done == into.size();
}

Volume::Volume(uint32_t number, Extent extent, const kk::Guid& guid, std::vector<uint8_t> uniqueId)
    : number_(number), extents_{std::move(extent)}, guid_(guid), uniqueId_(std::move(uniqueId))
{
}

std::u16string Volume::DeviceName() const
{
    return u"\\Device\\HarddiskVolume" + Utf16(std::to_string(number_));
}

std::u16string Volume::LinkName() const
{
    return u"\\??\\Volume" + BracedGuid(guid_);
}

std::u16string Volume::Path() const
{
    return u"\\\\?\\Volume" + BracedGuid(guid_) + u"\\";
}

Volume& Volume::AddExtent(Extent extent)
{
    extents_.push_back(std::move(extent));
    return *this;
}

bool Volume::Covers(uint32_t diskNumber, uint64_t offset, uint64_t length) const
{
    return std::any_of(extents_.begin(), extents_.end(), [&](const Extent& extent) {
        return extent.disk->Number() == diskNumber && offset < extent.start + extent.length &&
               extent.start < offset + length;
    });
}

uint64_t Volume::Length() const
{
    uint64_t length = 0;
    for (const Extent& extent : extents_) {
        length += extent.length;
    }
    return length;
}

uint32_t Volume::SectorSize() const
{
    return extents_.front().disk->SectorSize();
}

Status Volume::Write(uint64_t offset, std::span<const uint8_t> from)
{
    uint64_t extentStart = 0;
    uint64_t done = 0;
    for (const Extent& extent : extents_) {
        const uint64_t at = offset + done;
        if (done < from.size() && at >= extentStart && at < extentStart + extent.length) {
            const uint64_t inside = at - extentStart;
            const uint64_t piece = std::min(from.size() - done, extent.length - inside);
            const Status status = extent.disk->Write(extent.start + inside, from.subspan(done, piece));
            if (status != kSuccess) {
                return status;
            }
            done += piece;
        }
        extentStart += extent.length;
    }
    return done == from.size() ? kSuccess : kNonexistentSector;
}

Volume& Volume::SetInUseBySystem(bool inUse)
{
    opens_.SetInUseBySystem(inUse);
    return *this;
}

Volume& Volume::SetFileSystemName(std::u16string name)
{
    answers_->fileSystemName = std::move(name);
    return *this;
}

Volume& Volume::SetNtfsData(VolumeAnswers::Answer answer)
{
    answers_->ntfsData = std::move(answer);
    return *this;
}

Volume& Volume::SetBitmapAnswer(VolumeAnswers::Answer answer)
{
    answers_->bitmap = std::move(answer);
    return *this;
}

Volume& Volume::SetLengthInfo(VolumeAnswers::Answer answer)
{
    answers_->lengthInfo = std::move(answer);
    return *this;
}

}  // namespace machine
