#pragma once

#include <map>
#include <memory>
#include <string>
#include <string_view>

#include "machine/device.h"

namespace machine {

class HostDrives;

/// The object namespace: devices and symbolic links by name. `\??\` and `\DosDevices\` are one folder, and
/// `\??\GLOBALROOT` leads to the root.
class Namespace {
public:
    explicit Namespace(HostDrives& drives) : drives_(drives) {}

    void AddDevice(std::u16string_view name, std::shared_ptr<Device> device);
    void RemoveDevice(std::u16string_view name);
    /// Such as `\??\C:` to `\Device\HarddiskVolume2`.
    void AddLink(std::u16string_view name, std::u16string_view target);
    void RemoveLink(std::u16string_view name);

    struct Place {
        Status status = kObjectNameNotFound;
        std::shared_ptr<Device> device = nullptr;
        std::u16string rest = {};
    };
    Place Find(std::u16string_view name, bool ignoreCase) const;

private:
    struct Entry {
        std::u16string name;  // in its own case
        std::shared_ptr<Device> device;
        std::u16string target;
    };
    struct Match {
        const Entry* entry = nullptr;
        std::u16string rest = {};
    };
    Match LongestMatch(std::u16string_view name, bool ignoreCase) const;

    HostDrives& drives_;
    std::map<std::u16string, Entry> entries_;  // by upper-case name
};

}  // namespace machine
