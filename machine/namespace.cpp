#include "machine/namespace.h"

#include <utility>

#include "machine/drive_volume_names.h"
#include "machine/host_drives.h"
#include "machine/text.h"

namespace machine {

namespace {

constexpr std::u16string_view kDosFolder = u"\\??\\";
constexpr std::u16string_view kDosDevices = u"\\DOSDEVICES\\";
constexpr std::u16string_view kGlobal = u"\\GLOBAL??\\";
constexpr std::u16string_view kGlobalRoot = u"\\??\\GLOBALROOT";
constexpr int kLinkLimit = 32;  // what the real system follows before it gives up

/// One spelling for the folder of DOS names, a letter for every drive, and none for GLOBALROOT.
std::u16string Canonical(std::u16string_view name)
{
    std::u16string result(name);
    for (int i = 0; i < kLinkLimit; ++i) {
        const std::u16string upper = UpperCase(result);
        if (upper.starts_with(kDosDevices)) {
            result = std::u16string(kDosFolder) + result.substr(kDosDevices.size());
        } else if (upper.starts_with(kGlobal)) {
            result = std::u16string(kDosFolder) + result.substr(kGlobal.size());
        } else if (upper.starts_with(kGlobalRoot) &&
                   (upper.size() == kGlobalRoot.size() || upper[kGlobalRoot.size()] == u'\\')) {
            result = result.substr(kGlobalRoot.size());
        } else {
            break;
        }
    }
    if (result.starts_with(kDosFolder)) {
        result.replace(kDosFolder.size(), result.npos, WithDriveLetter(result.substr(kDosFolder.size())));
    }
    return result;
}

/// `\??\C:` with or without a path, given its upper-case form.
bool IsDriveName(std::u16string_view upper)
{
    return upper.starts_with(kDosFolder) && upper.size() >= 6 && upper[4] >= u'A' && upper[4] <= u'Z' &&
           upper[5] == u':' && (upper.size() == 6 || upper[6] == u'\\');
}

/// Opens what lies on a drive that shows a folder of the host.
class HostDriveDevice final : public Device {
public:
    explicit HostDriveDevice(HostDrives& drives) : drives_(drives) {}

    Status Open(OpenFile& file, std::u16string_view rest) override { return drives_.Open(file, rest); }

private:
    HostDrives& drives_;
};

}  // namespace

void Namespace::AddDevice(std::u16string_view name, std::shared_ptr<Device> device)
{
    const std::u16string canonical = Canonical(name);
    entries_[UpperCase(canonical)] = {canonical, std::move(device), {}};
}

void Namespace::RemoveDevice(std::u16string_view name)
{
    entries_.erase(UpperCase(Canonical(name)));
}

void Namespace::AddLink(std::u16string_view name, std::u16string_view target)
{
    const std::u16string canonical = Canonical(name);
    entries_[UpperCase(canonical)] = {canonical, nullptr, Canonical(target)};
}

void Namespace::RemoveLink(std::u16string_view name)
{
    RemoveDevice(name);
}

Namespace::Match Namespace::LongestMatch(std::u16string_view name, bool ignoreCase) const
{
    for (size_t length = name.size(); length != 0 && length != std::u16string_view::npos;
         length = name.substr(0, length).rfind(u'\\')) {
        const std::u16string_view head = name.substr(0, length);
        const auto found = entries_.find(UpperCase(head));
        if (found != entries_.end() && (ignoreCase || found->second.name == head)) {
            return {&found->second, std::u16string(name.substr(length))};
        }
    }
    return {};
}

Namespace::Place Namespace::Find(std::u16string_view name, bool ignoreCase) const
{
    if (name.empty() || name.front() != u'\\') {
        return {.status = kObjectPathSyntaxBad};
    }
    if (name.starts_with(u"\\\\") || name == kDosFolder) {
        return {.status = kObjectNameInvalid};
    }
    std::u16string current = Canonical(name);
    for (int i = 0; i < kLinkLimit; ++i) {
        const std::u16string upper = UpperCase(current);
        const bool isDrive = IsDriveName(upper);
        const Match match = LongestMatch(current, ignoreCase);
        // A letter may belong to a volume and show a host folder: paths then lead to the folder.
        if (isDrive && drives_.IsMapped(upper[4]) && (upper.size() > 6 || match.entry == nullptr)) {
            return {kSuccess, std::make_shared<HostDriveDevice>(drives_), current.substr(kDosFolder.size())};
        }
        if (match.entry == nullptr) {
            return {.status = isDrive && upper.size() > 6 ? kObjectPathNotFound : kObjectNameNotFound};
        }
        if (match.entry->device != nullptr) {
            return {kSuccess, match.entry->device, match.rest};
        }
        current = match.entry->target + match.rest;
    }
    return {.status = kObjectNameInvalid};
}

}  // namespace machine
