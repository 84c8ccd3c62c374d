#include "machine/handles.h"

#include <utility>

namespace machine {

kk::NtHandle HandleTable::Add(Entry entry)
{
    const uintptr_t value = next_;
    next_ += 4;
    entries_.emplace(value, std::move(entry));
    return reinterpret_cast<kk::NtHandle>(value);
}

kk::NtHandle HandleTable::AddFile(OpenFile file)
{
    return Add({std::make_unique<OpenFile>(std::move(file)), {}, {}, nullptr});
}

kk::NtHandle HandleTable::AddServiceHandle(std::string what, std::function<void()> onClose,
                                           std::shared_ptr<void> object)
{
    return Add({nullptr, std::move(what), std::move(onClose), std::move(object)});
}

OpenFile* HandleTable::FindFile(kk::NtHandle handle)
{
    const auto found = entries_.find(reinterpret_cast<uintptr_t>(handle));
    return found == entries_.end() ? nullptr : found->second.file.get();
}

std::shared_ptr<void> HandleTable::FindServiceObject(kk::NtHandle handle, const std::string& what) const
{
    const auto found = entries_.find(reinterpret_cast<uintptr_t>(handle));
    const bool fits = found != entries_.end() && found->second.file == nullptr && found->second.what == what;
    return fits ? found->second.object : nullptr;
}

bool HandleTable::Close(kk::NtHandle handle)
{
    const auto found = entries_.find(reinterpret_cast<uintptr_t>(handle));
    if (found == entries_.end()) {
        return false;
    }
    const Entry entry = std::move(found->second);
    entries_.erase(found);
    if (entry.file != nullptr) {
        const std::shared_ptr<Device> device = entry.file->device;
        device->Close(*entry.file);
    }
    if (entry.onClose) {
        entry.onClose();
    }
    return true;
}

std::string HandleTable::NameOf(kk::NtHandle handle) const
{
    const auto found = entries_.find(reinterpret_cast<uintptr_t>(handle));
    if (found == entries_.end()) {
        return {};
    }
    return found->second.file != nullptr ? found->second.file->nameUtf8 : found->second.what;
}

std::vector<std::string> HandleTable::OpenNames() const
{
    std::vector<std::string> names;
    for (const auto& entry : entries_) {
        const auto& file = entry.second.file;
        names.push_back("a handle of " + (file != nullptr ? file->nameUtf8 : entry.second.what) + " was not closed");
    }
    return names;
}

}  // namespace machine
