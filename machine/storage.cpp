#include "machine/storage.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>

#include "machine/host_transfers.h"

namespace machine {

bool MemoryStorage::Read(uint64_t offset, std::span<uint8_t> into)
{
    if (!Holds(offset, into.size())) {
        return false;
    }
    for (size_t done = 0; done < into.size();) {
        const uint64_t at = (offset + done) % kPageBytes;
        const size_t piece = std::min<size_t>(into.size() - done, kPageBytes - at);
        const auto page = pages_.find((offset + done) / kPageBytes);
        if (page == pages_.end()) {
            std::memset(into.data() + done, 0, piece);
        } else {
            std::memcpy(into.data() + done, page->second->data() + at, piece);
        }
        done += piece;
    }
    return true;
}

bool MemoryStorage::Write(uint64_t offset, std::span<const uint8_t> from)
{
    if (!Holds(offset, from.size())) {
        return false;
    }
    for (size_t done = 0; done < from.size();) {
        const uint64_t at = (offset + done) % kPageBytes;
        const size_t piece = std::min<size_t>(from.size() - done, kPageBytes - at);
        std::unique_ptr<Page>& page = pages_[(offset + done) / kPageBytes];
        if (page == nullptr) {
            page = std::make_unique<Page>();
        }
        std::memcpy(page->data() + at, from.data() + done, piece);
        done += piece;
    }
    return true;
}

std::vector<Stretch> MemoryStorage::DataIn(uint64_t offset, uint64_t length) const
{
    std::vector<uint64_t> starts;
    for (const auto& page : pages_) {
        starts.push_back(page.first * kPageBytes);
    }
    std::sort(starts.begin(), starts.end());
    std::vector<Stretch> stretches;
    for (const uint64_t start : starts) {
        const uint64_t from = std::max(offset, start);
        const uint64_t to = std::min(offset + length, start + kPageBytes);
        if (from < to) {
            stretches.push_back({from, to - from});
        }
    }
    return stretches;
}

FileStorage::FileStorage(const std::string& hostPath, Mode mode)
    : descriptor_(open(hostPath.c_str(), (mode == Mode::ReadOnly ? O_RDONLY : O_RDWR) | O_CLOEXEC)), size_(0)
{
    struct stat information = {};
    if (descriptor_ < 0 || fstat(descriptor_, &information) != 0) {
        const int error = errno;
        if (descriptor_ >= 0) {
            close(descriptor_);
        }
        throw std::system_error(error, std::generic_category(), hostPath);
    }
    size_ = static_cast<uint64_t>(information.st_size);
}

FileStorage::~FileStorage()
{
    close(descriptor_);
}

bool FileStorage::Read(uint64_t offset, std::span<uint8_t> into)
{
    return Holds(offset, into.size()) && ReadAt(descriptor_, offset, into) == static_cast<ssize_t>(into.size());
}

bool FileStorage::Write(uint64_t offset, std::span<const uint8_t> from)
{
    return Holds(offset, from.size()) && WriteAt(descriptor_, offset, from);
}

bool FileStorage::Flush()
{
    return fsync(descriptor_) == 0;
}

std::vector<Stretch> FileStorage::DataIn(uint64_t offset, uint64_t length) const
{
    std::vector<Stretch> stretches;
    const uint64_t end = offset + length;
    for (uint64_t at = offset; at < end;) {
        const off_t data = lseek(descriptor_, static_cast<off_t>(at), SEEK_DATA);
        if (data < 0 && errno == ENXIO) {
            break;
        }
        const off_t hole = data < 0 ? -1 : lseek(descriptor_, data, SEEK_HOLE);
        if (hole < 0) {
            return {{offset, length}};  // some file systems do not tell
        }
        if (static_cast<uint64_t>(data) < end) {
            stretches.push_back({static_cast<uint64_t>(data),
                                 std::min(end, static_cast<uint64_t>(hole)) - static_cast<uint64_t>(data)});
        }
        at = static_cast<uint64_t>(hole);
    }
    return stretches;
}

}  // namespace machine
