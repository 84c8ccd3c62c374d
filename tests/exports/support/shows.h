#pragma once

#include <string_view>

#include "machine/kestrelkit_api.h"

/// Says what a test shows of an export: SHOWS(KkName, "a behaviour") or SHOWS(KkName, status, "when it comes"). The
/// status is a name of the public header or a number such as 0xC0000022, so that tools/conformance can read it.
///
/// It stands first in the test's body. When the body ends, the export must have been called, and must have returned
/// the status, or the test fails.
#define SHOWS(name, ...)                                                                                               \
    const Shown KK_SHOWN_NAME(shown, __COUNTER__)                                                                      \
    {                                                                                                                  \
        IndexOfExport(#name), __VA_ARGS__                                                                              \
    }
#define KK_SHOWN_NAME(word, number) KK_SHOWN_NAME_OF(word, number)
#define KK_SHOWN_NAME_OF(word, number) word##number

/// The place of an export in `kExports`; any other name does not compile.
consteval size_t IndexOfExport(std::string_view name)
{
    return std::apply(
        [name](const auto&... entries) {
            size_t index = 0;
            if (!((entries.name == name || (++index, false)) || ...)) {
                throw "there is no such export";
            }
            return index;
        },
        machine::kExports);
}

class Shown {
public:
    Shown(size_t index, const char* behaviour) : index_(index), behaviour_(behaviour) {}
    Shown(size_t index, int64_t status, const char* behaviour)
        : index_(index), behaviour_(behaviour), hasStatus_(true), status_(static_cast<KK_STATUS>(status))
    {
    }
    ~Shown();
    Shown(const Shown&) = delete;
    Shown& operator=(const Shown&) = delete;

private:
    size_t index_;
    const char* behaviour_;
    bool hasStatus_ = false;
    KK_STATUS status_ = 0;
};
