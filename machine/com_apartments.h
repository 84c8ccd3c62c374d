#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <thread>
#include <vector>

#include "machine/com_values.h"

namespace machine {

enum class Apartment { Multithreaded, SingleThreaded };

/// Which threads have joined COM, and how often.
class ComApartments {
public:
    HResult Initialize(const void* reserved, uint32_t flags);
    /// False when the calling thread has nothing to balance.
    bool Uninitialize();
    HResult InitializeSecurity();

    /// Puts the calling thread into an apartment by somebody else's hand, who never takes it out.
    void Preset(Apartment apartment);

    /// Whether the calling thread may use objects: it joined, or some thread holds the multithreaded apartment.
    bool IsUsable() const;
    /// One line for each thread that has not left as often as it joined.
    std::vector<std::string> Imbalances() const;

private:
    struct Membership {
        Apartment apartment;
        uint32_t count;
        bool preset;
    };
    std::map<std::thread::id, Membership> members_;
    bool securityIsSet_ = false;
};

}  // namespace machine
