#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "machine/device.h"

namespace machine {

/// The handles of the machine's one process. Values are multiples of 4 and never come again.
class HandleTable {
public:
    kk::NtHandle AddFile(OpenFile file);

    /// A handle that a service gives out. `object` is whatever the service wants to find again.
    kk::NtHandle AddServiceHandle(std::string what, std::function<void()> onClose,
                                  std::shared_ptr<void> object = nullptr);

    /// The open file behind a handle, or null.
    OpenFile* FindFile(kk::NtHandle handle);

    /// The object given to AddServiceHandle under the same `what`, or null.
    template <typename T>
    std::shared_ptr<T> FindService(kk::NtHandle handle, const std::string& what) const
    {
        return std::static_pointer_cast<T>(FindServiceObject(handle, what));
    }

    /// False when there is no such handle.
    bool Close(kk::NtHandle handle);

    /// What a handle stands for, for records: an NT name, or a service's `what`. Empty when there is no such handle.
    std::string NameOf(kk::NtHandle handle) const;

    size_t OpenCount() const { return entries_.size(); }
    /// One line for each handle that is open.
    std::vector<std::string> OpenNames() const;

private:
    struct Entry {
        std::unique_ptr<OpenFile> file;
        std::string what;
        std::function<void()> onClose;
        std::shared_ptr<void> object;
    };
    kk::NtHandle Add(Entry entry);
    std::shared_ptr<void> FindServiceObject(kk::NtHandle handle, const std::string& what) const;

    std::map<uintptr_t, Entry> entries_;
    uintptr_t next_ = 0x40;
};

}  // namespace machine
