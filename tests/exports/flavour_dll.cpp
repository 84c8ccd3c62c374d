#include "exports/support/export_test.h"

namespace {

class ShippedDll final : public LibraryFlavour {
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
    return std::make_unique<ShippedDll>();
}
