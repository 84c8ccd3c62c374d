#pragma once

#include <cstddef>

namespace kk {

/// Tag for building an object in memory that is already there; the standard form would drag in the run-time's header.
struct Place {
    void* at;
};

}  // namespace kk

inline void* operator new(size_t /*size*/, kk::Place place) noexcept
{
    return place.at;
}

/// Matches the form above; called only if a constructor threw, which none does.
inline void operator delete(void* /*object*/, kk::Place /*place*/) noexcept {}
