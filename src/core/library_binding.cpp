#include "core/library_binding.h"

#include "core/nt.h"
#include "core/shared_flag.h"
#include "core/status.h"
#include "core/text.h"

namespace kk {

namespace {

uint16_t AnsiLength(const char* text)
{
    uint16_t length = 0;
    while (text[length] != 0) {
        ++length;
    }
    return length;
}

void*& SlotOf(void* table, const EntryPoint& entry)
{
    return *reinterpret_cast<void**>(static_cast<uint8_t*>(table) + entry.slot);
}

}  // namespace

void* LoadSystemLibrary(const char16_t* name)
{
    const auto bytes = static_cast<uint16_t>(TextLength(name) * sizeof(char16_t));
    const UnicodeString counted = {bytes, static_cast<uint16_t>(bytes + sizeof(char16_t)), name};
    void* module = nullptr;
    return Failed(LdrLoadDll(nullptr, nullptr, &counted, &module)) ? nullptr : module;
}

void* SystemProcAddress(void* module, const char* name)
{
    if (module == nullptr) {
        return nullptr;
    }
    const uint16_t length = AnsiLength(name);
    const AnsiString counted = {length, static_cast<uint16_t>(length + 1), name};
    void* address = nullptr;
    return Failed(LdrGetProcedureAddress(module, &counted, 0, &address)) ? nullptr : address;
}

Binding BindLibrary(const LibraryBinding& library, void* table)
{
    void* module = LoadSystemLibrary(library.name);
    if (module == nullptr) {
        return Binding::NotLoaded;
    }
    bool complete = true;
    void* first = nullptr;
    for (const EntryPoint& entry : library.entries) {
        void* const address = SystemProcAddress(module, entry.name);
        if (&entry == library.entries.data()) {
            first = address;
        } else {
            SlotOf(table, entry) = address;
        }
        complete = complete && (address != nullptr || !entry.required);
    }
    // Last: the table for creating images has no flag but this entry.
    PublishShared(SlotOf(table, library.entries.front()), first);
    return complete ? Binding::Complete : Binding::Incomplete;
}

}  // namespace kk
