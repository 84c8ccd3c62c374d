#include "machine/host_drives.h"

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "machine/drive_volume_names.h"
#include "machine/host_file.h"
#include "machine/text.h"

namespace machine {

namespace {

constexpr uint32_t kReadLike = kFileReadData | 0x20;  // reading and executing conflict with others in one way
constexpr uint32_t kWriteLike = kFileWriteData | kFileAppendData;

bool Wants(uint32_t access, uint32_t bits)
{
    return (access & bits) != 0;
}

/// Whether someone who shares so little lets someone in who wants so much.
bool Permits(uint32_t share, uint32_t access)
{
    return (!Wants(access, kReadLike) || (share & kk::kFileShareRead) != 0) &&
           (!Wants(access, kWriteLike) || (share & kk::kFileShareWrite) != 0) &&
           (!Wants(access, kDelete) || (share & kFileShareDelete) != 0);
}

/// Opens for attributes alone take no part in sharing.
bool TakesPart(uint32_t access)
{
    return Wants(access, kReadLike | kWriteLike | kDelete);
}

bool IsDriveLetter(char16_t unit)
{
    return (unit >= u'A' && unit <= u'Z') || (unit >= u'a' && unit <= u'z');
}

char16_t UpperLetter(char16_t letter)
{
    return UpperCase(std::u16string_view(&letter, 1))[0];
}

std::string ParentOf(const std::string& hostPath)
{
    const size_t slash = hostPath.rfind('/');
    return slash == 0 ? "/" : hostPath.substr(0, slash);
}

enum class Kind { Missing, MissingFolder, File, Folder };

Kind KindOf(const std::string& hostPath)
{
    struct stat found = {};
    if (stat(hostPath.c_str(), &found) == 0) {
        return S_ISDIR(found.st_mode) ? Kind::Folder : Kind::File;
    }
    const bool hasParent = stat(ParentOf(hostPath).c_str(), &found) == 0 && S_ISDIR(found.st_mode);
    return hasParent ? Kind::Missing : Kind::MissingFolder;
}

Status OpenFolder(OpenFile& file)
{
    if ((file.options & kk::kFileNonDirectoryFile) != 0) {
        return kFileIsADirectory;
    }
    if (file.disposition == kFileCreate) {
        return kObjectNameCollision;
    }
    file.device = std::make_shared<HostFolder>();
    file.createInformation = kInformationOpened;
    return kSuccess;
}

/// What the disposition makes of a file that exists or does not: a status, flags for open(2), and the answer.
struct Plan {
    Status status = kSuccess;
    int flags = 0;
    uint64_t information = kInformationOpened;
};

Plan PlanOpen(uint32_t disposition, bool exists)
{
    switch (disposition) {
    case kk::kFileOpen:
        return {exists ? kSuccess : kObjectNameNotFound};
    case kFileCreate:
        return {exists ? kObjectNameCollision : kSuccess, O_CREAT, kInformationCreated};
    case kFileOpenIf:
        return {kSuccess, exists ? 0 : O_CREAT, exists ? kInformationOpened : kInformationCreated};
    case kFileOverwrite:
        return {exists ? kSuccess : kObjectNameNotFound, O_TRUNC, kInformationOverwritten};
    case kk::kFileOverwriteIf:
        return {kSuccess, exists ? O_TRUNC : O_CREAT, exists ? kInformationOverwritten : kInformationCreated};
    case kFileSupersede:
        return {kSuccess, exists ? O_TRUNC : O_CREAT, exists ? kInformationSuperseded : kInformationCreated};
    default:
        return {kInvalidParameter};
    }
}

/// A host file's mode follows from the access that is asked for; emptying it needs the right to write in any case.
int OpenFlags(uint32_t access, int planned)
{
    const bool writes = Wants(access, kWriteLike) || planned != 0;
    return (writes ? O_RDWR : O_RDONLY) | O_CLOEXEC | planned;
}

}  // namespace

ShareTable::Hold::Hold(ShareTable& table, std::string hostPath, uint32_t access, uint32_t share)
    : table_(table), hostPath_(std::move(hostPath)), access_(access), share_(share)
{
    table_.holds_[hostPath_].holds.push_back(this);
}

ShareTable::Hold::~Hold()
{
    table_.Drop(*this);
}

void ShareTable::Hold::DeleteAtLastClose()
{
    table_.holds_[hostPath_].deletePending = true;
}

std::unique_ptr<ShareTable::Hold> ShareTable::TryHold(const std::string& hostPath, uint32_t access, uint32_t share)
{
    const auto found = holds_.find(hostPath);
    if (found != holds_.end() && TakesPart(access)) {
        for (const Hold* const other : found->second.holds) {
            if (TakesPart(other->access_) && (!Permits(other->share_, access) || !Permits(share, other->access_))) {
                return nullptr;
            }
        }
    }
    return std::make_unique<Hold>(*this, hostPath, access, share);
}

bool ShareTable::IsDeletePending(const std::string& hostPath) const
{
    const auto found = holds_.find(hostPath);
    return found != holds_.end() && found->second.deletePending;
}

void ShareTable::Drop(const Hold& hold)
{
    const auto found = holds_.find(hold.hostPath_);
    std::erase(found->second.holds, &hold);
    if (!found->second.holds.empty()) {
        return;
    }
    if (found->second.deletePending) {
        unlink(hold.hostPath_.c_str());
    }
    holds_.erase(found);
}

void HostDrives::Map(char16_t letter, const std::string& hostFolder)
{
    std::string folder = hostFolder;
    while (!folder.empty() && folder.back() == '/') {
        folder.pop_back();
    }
    folders_[UpperLetter(letter)] = folder;
}

void HostDrives::Unmap(char16_t letter)
{
    folders_.erase(UpperLetter(letter));
}

bool HostDrives::IsMapped(char16_t letter) const
{
    return folders_.contains(UpperLetter(letter));
}

uint32_t HostDrives::LetterMask() const
{
    uint32_t mask = 0;
    for (const auto& folder : folders_) {
        mask |= 1u << (folder.first - u'A');
    }
    return mask;
}

std::optional<std::string> HostDrives::HostPath(std::u16string_view path) const
{
    for (const std::u16string_view prefix : {u"\\\\?\\", u"\\\\.\\", u"\\??\\"}) {
        if (path.starts_with(prefix)) {
            path.remove_prefix(prefix.size());
            break;
        }
    }
    const std::u16string lettered = WithDriveLetter(path);
    path = lettered;
    const bool isDrivePath =
        path.size() >= 2 && IsDriveLetter(path[0]) && path[1] == u':' && (path.size() == 2 || path[2] == u'\\');
    if (!isDrivePath || !IsMapped(path[0])) {
        return std::nullopt;
    }
    std::string rest = Utf8(path.substr(2));
    std::replace(rest.begin(), rest.end(), '\\', '/');
    const std::string whole = folders_.at(UpperLetter(path[0])) + rest;
    return whole.empty() ? "/" : whole;
}

std::u16string HostDrives::WindowsPath(const std::string& hostPath)
{
    std::string path = "Z:" + hostPath;
    std::replace(path.begin(), path.end(), '/', '\\');
    return Utf16(path);
}

Status HostDrives::Open(OpenFile& file, std::u16string_view path)
{
    const std::optional<std::string> hostPath = HostPath(path);
    if (!hostPath) {
        return kObjectPathNotFound;
    }
    if (path.find(u'/') != std::u16string_view::npos || path.find(u'\0') != std::u16string_view::npos) {
        return kObjectNameInvalid;
    }
    const Kind kind = KindOf(*hostPath);
    if (kind == Kind::Folder) {
        return OpenFolder(file);
    }
    if (kind == Kind::MissingFolder) {
        return kObjectPathNotFound;
    }
    if ((file.options & kFileDirectoryFile) != 0) {
        return kind == Kind::File ? kNotADirectory : kObjectNameNotFound;
    }
    return OpenRegularFile(file, *hostPath, kind == Kind::File);
}

Status HostDrives::OpenRegularFile(OpenFile& file, const std::string& hostPath, bool exists)
{
    const Plan plan = PlanOpen(file.disposition, exists);
    if (plan.status != kSuccess) {
        return plan.status;
    }
    if (shares.IsDeletePending(hostPath)) {
        return kDeletePending;
    }
    const bool deletes = (file.options & kFileDeleteOnClose) != 0;
    if (deletes && !Wants(file.access, kDelete)) {
        return kInvalidParameter;
    }
    const uint32_t wanted = file.access | ((plan.flags & O_TRUNC) != 0 ? kFileWriteData : 0);
    if (shares.TryHold(hostPath, wanted, file.share) == nullptr) {
        return kSharingViolation;
    }
    const int descriptor = open(hostPath.c_str(), OpenFlags(file.access, plan.flags), 0644);
    if (descriptor < 0) {
        return errno == ENOENT ? kObjectNameNotFound : errno == ENOSPC ? kDiskFull : kAccessDenied;
    }
    std::unique_ptr<ShareTable::Hold> hold = shares.TryHold(hostPath, file.access, file.share);
    if (deletes) {
        hold->DeleteAtLastClose();
    }
    file.device = std::make_shared<HostFile>(descriptor, std::move(hold));
    file.createInformation = plan.information;
    return kSuccess;
}

}  // namespace machine
