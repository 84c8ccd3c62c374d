#include "exports/support/export_test.h"

/// The DLL is not sanitized, so only the machine would notice a block of it that is used after it was freed. The linked
/// library keeps the long queue of such blocks; here it would mostly make the forks of the sweeps slow.
extern "C" const char* __asan_default_options()
{
    return "quarantine_size_mb=16";
}

namespace {

class TestedDll final : public LibraryFlavour {
public:
    const machine::KestrelkitApi& Api() const override { return api_; }
    bool IsSanitized() const override { return false; }

private:
    machine::LoadedDll dll_{KK_DLL};
    machine::KestrelkitApi api_ = machine::ApiFromDll(dll_);
};

}  // namespace

std::unique_ptr<LibraryFlavour> MakeLibraryFlavour()
{
    return std::make_unique<TestedDll>();
}
