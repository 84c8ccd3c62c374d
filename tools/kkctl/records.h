#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "text.h"

namespace kkctl {

/// Counts, fetches into zeroed records and keeps what was written: between the calls the number may change.
template <typename Record, typename Call>
KK_STATUS FetchRecords(Call call, std::vector<Record>& records)
{
    uint32_t count = 0;
    KK_STATUS status = call(static_cast<Record*>(nullptr), 0u, &count);
    if (status < 0 || count == 0) {
        return status;
    }
    records.resize(count);
    status = call(records.data(), count, &count);
    records.resize(status < 0 ? 0 : std::min<size_t>(records.size(), count));
    return status;
}

/// Reads a text field by its place in the record, because in packed records such fields lie at odd addresses.
template <typename Record>
std::string TextAt(const Record& record, size_t offset, size_t size)
{
    WideString text(size / sizeof(KkWideChar), KkWideChar{0});
    std::memcpy(text.data(), reinterpret_cast<const std::byte*>(&record) + offset, size);
    text.erase(std::find(text.begin(), text.end(), KkWideChar{0}), text.end());
    return ToUtf8(text);
}

}  // namespace kkctl
