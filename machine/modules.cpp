#include "machine/modules.h"

#include "machine/text.h"

namespace machine {

std::u16string Modules::KeyOf(std::u16string_view library)
{
    std::u16string key = UpperCase(library);
    if (key.find(u'.') == std::u16string::npos) {
        key += u".DLL";
    }
    return key;
}

void Modules::Add(std::u16string_view library, Entries entries)
{
    std::unique_ptr<Module>& module = modules_[KeyOf(library)];
    if (module == nullptr) {
        module = std::make_unique<Module>(Module{Utf8(library), {}});
    }
    for (const auto& [name, address] : entries) {
        module->entries[name] = address;
    }
}

void Modules::Remove(std::u16string_view library)
{
    modules_.erase(KeyOf(library));
}

void Modules::RemoveEntry(std::u16string_view library, const std::string& entry)
{
    const auto found = modules_.find(KeyOf(library));
    if (found != modules_.end()) {
        found->second->entries.erase(entry);
    }
}

void* Modules::Load(std::u16string_view library) const
{
    const auto found = modules_.find(KeyOf(library));
    return found == modules_.end() ? nullptr : found->second.get();
}

void* Modules::FindEntry(void* module, const std::string& entry) const
{
    const Module* const found = FindModule(module);
    if (found == nullptr) {
        return nullptr;
    }
    const auto address = found->entries.find(entry);
    return address == found->entries.end() ? nullptr : address->second;
}

std::string Modules::NameOf(void* module) const
{
    const Module* const found = FindModule(module);
    return found == nullptr ? std::string() : found->name;
}

const Modules::Module* Modules::FindModule(void* module) const
{
    for (const auto& entry : modules_) {
        if (entry.second.get() == module) {
            return entry.second.get();
        }
    }
    return nullptr;
}

}  // namespace machine
