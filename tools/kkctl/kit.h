#pragma once

#include <cstdint>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include <kestrelkit/kestrelkit.hpp>

namespace kkctl {

// The program's own words for what it lists and edits are those of the library's C++ interface.
using kestrelkit::Disk;
using kestrelkit::Image;
using kestrelkit::ImagePartition;
using kestrelkit::Partition;
using kestrelkit::PartitionStyle;
using kestrelkit::Region;
using kestrelkit::Result;
using kestrelkit::Status;
using kestrelkit::WideString;

/// What the command line says about the library and the machine it works on.
struct KitOptions {
    std::vector<std::string> disks;  ///< files that are disks 0, 1, ... of the simulated machine
    std::string dll;                 ///< the library's file; empty for the usual place
    bool writesDisks = false;        ///< the command may change disks of the simulated machine
};

/// The library or its machine could not be made ready.
class KitError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// The user named something that is not there or cannot be handed to the library.
class ArgumentError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// A path that cannot be handed to the library.
class PathError : public ArgumentError {
public:
    using ArgumentError::ArgumentError;
};

/// The loaded library, and what depends on where the program runs.
class Kit {
public:
    Kit() = default;
    Kit(const Kit&) = delete;
    Kit& operator=(const Kit&) = delete;
    virtual ~Kit() = default;

    const kestrelkit::Library& Calls() const { return calls_; }

    /// Whether the disks are files and the machine is not the one that the program runs on.
    virtual bool IsSimulated() const = 0;

    /// Gives a user's file path the absolute form that the library needs, or throws PathError.
    virtual WideString ToLibraryPath(const std::string& path) const = 0;

    /// Bytes put so far into the image that a backup is writing to `path`. For any thread, also during a call.
    virtual uint64_t ImageBytesWritten(const std::string& path) const = 0;

protected:
    kestrelkit::Library calls_{kestrelkit::Exports()};
};

/// Finds the library's functions; throws KitError when `address`, which knows them by their names, lacks one.
template <typename Address>
kestrelkit::Library FindCalls(const std::string& file, Address address)
{
    const auto find = [&](const char* function) {
        void* const found = address(function);
        if (found == nullptr) {
            throw KitError(file + " has no function " + function);
        }
        return found;
    };
    return kestrelkit::Library(*kestrelkit::Exports::Found(find));
}

/// Loads the library; throws KitError. Defined once for Windows and once for the simulated machine.
std::unique_ptr<Kit> OpenKit(const KitOptions& options);

}  // namespace kkctl
