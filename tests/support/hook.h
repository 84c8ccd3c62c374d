#pragma once

#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <array>
#include <cstdint>
#include <cstring>
#include <functional>

#include "kestrelkit/kestrelkit.h"

/// Redirects a function of this program by rewriting its first instructions.
class Redirection {
public:
    Redirection(void* from, const void* to) : code_(static_cast<uint8_t*>(from))
    {
        // mov rax, to; jmp rax: the register takes no part in calls.
        std::memcpy(jump_.data() + 2, &to, sizeof(to));
        std::memcpy(original_.data(), code_, original_.size());
    }

    void Set() { Patch(jump_); }
    void Remove() { Patch(original_); }

private:
    using Code = std::array<uint8_t, 12>;

    void Patch(const Code& code)
    {
        const auto pageBytes = static_cast<uintptr_t>(sysconf(_SC_PAGESIZE));
        const uintptr_t page = reinterpret_cast<uintptr_t>(code_) & ~(pageBytes - 1);
        ASSERT_EQ(mprotect(reinterpret_cast<void*>(page), 2 * pageBytes, PROT_READ | PROT_WRITE | PROT_EXEC), 0);
        std::memcpy(code_, code.data(), code.size());
    }

    uint8_t* code_;
    Code jump_ = {0x48, 0xB8, 0, 0, 0, 0, 0, 0, 0, 0, 0xFF, 0xE0};
    Code original_ = {};
};

/// Puts a test's handler in the place of a native call while the object lives: for arguments that the machine does not
/// record, and for answers that it never gives.
///
///     const Hook<&NtReadFile> hook([&](auto... arguments) { return Hook<&NtReadFile>::Original(arguments...); });
template <auto Target>
class Hook;

template <typename Result, typename... Arguments, Result(KK_CALL* Target)(Arguments...)>
class Hook<Target> {
public:
    using Handler = std::function<Result(Arguments...)>;

    explicit Hook(Handler handler)
    {
        handler_ = std::move(handler);
        Way().Set();
    }
    Hook(const Hook&) = delete;
    Hook& operator=(const Hook&) = delete;
    ~Hook() { Way().Remove(); }

    /// The call as it is without the hook.
    static Result Original(Arguments... arguments)
    {
        Way().Remove();
        const Result result = Target(arguments...);
        Way().Set();
        return result;
    }

private:
    static Result KK_CALL Enter(Arguments... arguments) { return handler_(arguments...); }

    static Redirection& Way()
    {
        static Redirection way(reinterpret_cast<void*>(Target), reinterpret_cast<const void*>(&Enter));
        return way;
    }

    static inline Handler handler_;
};
