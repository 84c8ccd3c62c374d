#include <string>

#include "core/nt.h"
#include "machine/gate.h"
#include "machine/machine.h"
#include "machine/text.h"

using namespace machine;

KK_STATUS KK_CALL LdrLoadDll(const char16_t* /*searchPath*/, const uint32_t* /*flags*/, const kk::UnicodeString* name,
                             void** module)
{
    Machine& machine = Machine::Current();
    const std::u16string library(name->buffer, name->length / sizeof(char16_t));
    CallRecord call;
    call.kind = CallKind::LoadLibrary;
    call.name = "LdrLoadDll";
    call.object = Utf8(library);
    return PassGate(machine, std::move(call), [&](CallRecord&) {
        void* const loaded = machine.modules.Load(library);
        if (loaded == nullptr) {
            return kDllNotFound;
        }
        *module = loaded;
        return kSuccess;
    });
}

KK_STATUS KK_CALL LdrGetProcedureAddress(void* module, const kk::AnsiString* name, uint32_t /*ordinal*/, void** address)
{
    Machine& machine = Machine::Current();
    const std::string entry = name != nullptr ? std::string(name->buffer, name->length) : std::string();
    CallRecord call;
    call.kind = CallKind::GetProcedure;
    call.name = "LdrGetProcedureAddress";
    call.object = machine.modules.NameOf(module) + "!" + entry;
    return PassGate(machine, std::move(call), [&](CallRecord&) {
        void* const found = machine.modules.FindEntry(module, entry);
        if (found == nullptr) {
            return kEntryPointMissing;
        }
        *address = found;
        return kSuccess;
    });
}
