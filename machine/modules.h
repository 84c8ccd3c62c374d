#pragma once

#include <initializer_list>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <utility>

namespace machine {

/// The libraries that can be loaded at run time, and their entry points.
class Modules {
public:
    using Entries = std::initializer_list<std::pair<const char*, void*>>;

    /// Adds a library, or more entry points to it. `library` is given with ".dll".
    void Add(std::u16string_view library, Entries entries);

    void Remove(std::u16string_view library);
    void RemoveEntry(std::u16string_view library, const std::string& entry);

    /// The module handle of a library, named in any case, with or without ".dll"; null when it is missing.
    void* Load(std::u16string_view library) const;
    /// Null when the module or the entry is missing.
    void* FindEntry(void* module, const std::string& entry) const;
    /// "virtdisk.dll", or empty when there is no such module.
    std::string NameOf(void* module) const;

private:
    struct Module {
        std::string name;
        std::map<std::string, void*> entries;
    };
    static std::u16string KeyOf(std::u16string_view library);
    const Module* FindModule(void* module) const;

    std::map<std::u16string, std::unique_ptr<Module>> modules_;
};

/// A function as an entry of a module.
template <typename Function>
void* EntryAddress(Function* function)
{
    return reinterpret_cast<void*>(function);
}

}  // namespace machine
