// What a C run-time would bring for control-flow guard. Part of the DLL only, and only where the compiler has guarded
// its indirect calls: each goes through the dispatch function with its target in rax. The system puts its own functions
// in the place of ours when it enforces the guard; where it does not, calls just go on.

#include "core/load_config.h"

namespace {

[[gnu::naked]] void Check()
{
    asm("retq");
}

[[gnu::naked]] void Dispatch()
{
    asm("jmpq *%rax");
}

}  // namespace

extern "C" {

// The linker's lists. The last two are numbers, given as addresses.
extern const char __guard_fids_table[];
extern const char __guard_fids_count[];
extern const char __guard_flags[];

// The compiler reads the second one at each call. Both lie in a section that is never writable for longer than the
// system takes to exchange them.
[[gnu::section(".00cfg")]] extern void (*const __guard_check_icall_fptr)();
[[gnu::section(".00cfg")]] extern void (*const __guard_dispatch_icall_fptr)();
void (*const __guard_check_icall_fptr)() = Check;
void (*const __guard_dispatch_icall_fptr)() = Dispatch;

// The linker knows it by this name.
extern const kk::LoadConfig _load_config_used;
constinit const kk::LoadConfig _load_config_used = {
    .size = sizeof(kk::LoadConfig),
    .unused = {},
    .guardCheckFunction = &__guard_check_icall_fptr,
    .guardDispatchFunction = &__guard_dispatch_icall_fptr,
    .guardFunctionTable = __guard_fids_table,
    .guardFunctionCount = __guard_fids_count,
    .guardFlags = __guard_flags,
    .codeIntegrity = 0,
};
}
