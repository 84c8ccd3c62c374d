#include "machine/host_file.h"

#include <cerrno>
#include <sys/stat.h>
#include <unistd.h>

#include "machine/host_transfers.h"

namespace machine {

namespace {

constexpr int64_t kAllocationUnit = 4096;

Status StatusOfErrno(int error)
{
    return error == ENOSPC ? kDiskFull : kIoDeviceError;
}

}  // namespace

HostFile::~HostFile()
{
    close(descriptor_);
}

IoResult HostFile::Read(OpenFile& /*file*/, uint64_t offset, std::span<uint8_t> into)
{
    const ssize_t count = ReadAt(descriptor_, offset, into);
    if (count < 0) {
        return {StatusOfErrno(errno), 0};
    }
    return {count == 0 && !into.empty() ? kEndOfFile : kSuccess, static_cast<uint64_t>(count)};
}

IoResult HostFile::Write(OpenFile& /*file*/, uint64_t offset, std::span<const uint8_t> from)
{
    return WriteAt(descriptor_, offset, from) ? IoResult{kSuccess, from.size()} : IoResult{StatusOfErrno(errno), 0};
}

Status HostFile::QueryStandardInformation(OpenFile& /*file*/, kk::FileStandardInformation& information)
{
    struct stat found = {};
    if (fstat(descriptor_, &found) != 0) {
        return kIoDeviceError;
    }
    information.endOfFile = found.st_size;
    information.allocationSize = (found.st_size + kAllocationUnit - 1) / kAllocationUnit * kAllocationUnit;
    information.numberOfLinks = static_cast<uint32_t>(found.st_nlink);
    return kSuccess;
}

Status HostFile::QueryFileSystemName(OpenFile& /*file*/, std::u16string& name)
{
    name = u"NTFS";
    return kSuccess;
}

/// The host's own cache is as good as the medium here: other programs see what was written either way.
Status HostFile::Flush(OpenFile& file)
{
    return (file.access & (kFileWriteData | kFileAppendData)) != 0 ? kSuccess : kAccessDenied;
}

Status HostFolder::QueryStandardInformation(OpenFile& /*file*/, kk::FileStandardInformation& information)
{
    information.numberOfLinks = 1;
    information.directory = 1;
    return kSuccess;
}

Status HostFolder::QueryFileSystemName(OpenFile& /*file*/, std::u16string& name)
{
    name = u"NTFS";
    return kSuccess;
}

}  // namespace machine
