#pragma once

#include <memory>
#include <utility>

#include "machine/storage.h"
#include "machine/tracked_storage.h"

namespace machine {

/// A parent's bytes, which stay as they are, under those that were written since.
class OverlayStorage final : public Storage {
public:
    OverlayStorage(std::unique_ptr<Storage> parent, std::shared_ptr<TrackedStorage> changes)
        : parent_(std::move(parent)), changes_(std::move(changes))
    {
    }

    uint64_t Size() const override { return changes_->Size(); }
    bool Read(uint64_t offset, std::span<uint8_t> into) override;
    bool Write(uint64_t offset, std::span<const uint8_t> from) override { return changes_->Write(offset, from); }
    bool Flush() override { return changes_->Flush(); }
    std::vector<Stretch> DataIn(uint64_t offset, uint64_t length) const override;

private:
    std::unique_ptr<Storage> parent_;
    std::shared_ptr<TrackedStorage> changes_;
};

}  // namespace machine
