#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

namespace kk {

/// A loaded library by its name, or null.
[[nodiscard]] void* LoadSystemLibrary(const char16_t* name);

/// An entry point of a module by its name, or null; a null module has none.
[[nodiscard]] void* SystemProcAddress(void* module, const char* name);

/// One entry point of a library and where its address goes in the table that is bound.
struct EntryPoint {
    const char* name;
    size_t slot;  // byte offset of the pointer in the table
    bool required;
};

/// A library whose entry points are found by name at run time.
struct LibraryBinding {
    const char16_t* name;
    std::span<const EntryPoint> entries;
};

/// How a binding went.
enum class Binding {
    NotLoaded,   // the table is as it was
    Incomplete,  // a required entry point is missing
    Complete,
};

/// Loads the library and stores the address of every entry point in `table`, null where there is none. The first one is
/// stored last, so that a thread that sees it (LoadShared) sees all. The module is never unloaded.
[[nodiscard]] Binding BindLibrary(const LibraryBinding& library, void* table);

}  // namespace kk
