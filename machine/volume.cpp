#include "machine/volume.h"

#include <algorithm>

#include "machine/text.h"

namespace machine {

namespace {

/// Cuts a transfer at the borders of the extents and moves the pieces in order, until one fails or the last extent
/// ends. `move` takes the extent, the offset inside it, and which bytes of the transfer are meant. Tells how many bytes
/// were moved.
template <typename Move>
uint64_t MovePieces(const std::vector<Extent>& extents, uint64_t offset, uint64_t length, Move&& move)
{
    uint64_t extentStart = 0;
    uint64_t done = 0;
    for (const Extent& extent : extents) {
        const uint64_t at = offset + done;
        if (done < length && at >= extentStart && at < extentStart + extent.length) {
            const uint64_t inside = at - extentStart;
            const uint64_t piece = std::min(length - done, extent.length - inside);
            if (!move(extent, inside, done, piece)) {
                break;
            }
            done += piece;
        }
        extentStart += extent.length;
    }
    return done;
}

}  // namespace

bool ReadExtents(const std::vector<Extent>& extents, uint64_t offset, std::span<uint8_t> into)
{
    const auto read = [into](const Extent& extent, uint64_t inside, uint64_t done, uint64_t piece) {
        return extent.disk->ReadRaw(extent.start + inside, into.subspan(done, piece));
    };
    return MovePieces(extents, offset, into.size(), read) == into.size();
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
    Status status = kSuccess;
    const auto write = [from, &status](const Extent& extent, uint64_t inside, uint64_t done, uint64_t piece) {
        status = extent.disk->Write(extent.start + inside, from.subspan(done, piece));
        return status == kSuccess;
    };
    const uint64_t done = MovePieces(extents_, offset, from.size(), write);
    return status == kSuccess && done != from.size() ? kNonexistentSector : status;
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
