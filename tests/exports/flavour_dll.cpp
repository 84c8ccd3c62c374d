#include <cstdlib>

#include "exports/support/export_test.h"

namespace {

/// The shipped DLL, unless KK_TESTED_DLL names one that was built otherwise.
const char* TestedDll()
{
    const char* const other = std::getenv("KK_TESTED_DLL");
    return other != nullptr ? other : KK_DLL;
}

class ShippedDll final : public LibraryFlavour {
public:
    const machine::KestrelkitApi& Api() const override { return api_; }
    bool IsSanitized() const override { return false; }

private:
    machine::LoadedDll dll_{TestedDll()};
    machine::KestrelkitApi api_ = machine::ApiFromDll(dll_);
};

}  // namespace

std::unique_ptr<LibraryFlavour> MakeLibraryFlavour()
{
    return std::make_unique<ShippedDll>();
}
