#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <unordered_map>
#include <vector>

namespace machine {

/// The process heap: knows every block, fills fresh and freed memory with patterns and notices writes outside a block.
class Heap {
public:
    explicit Heap(std::function<void(const std::string&)> report) : report_(std::move(report)) {}
    Heap(const Heap&) = delete;
    Heap& operator=(const Heap&) = delete;
    ~Heap();

    /// Null when the limit would be passed. Blocks lie at multiples of 16 and are filled with 0xCD, or with zeros on
    /// demand.
    void* Allocate(uint64_t size, bool zeroed);
    bool Free(void* block);

    uint64_t LiveBlocks() const { return blocks_.size(); }
    uint64_t LiveBytes() const { return liveBytes_; }
    uint64_t PeakBytes() const { return peakBytes_; }
    uint64_t TotalAllocations() const { return totalAllocations_; }
    /// Sizes of all allocations so far, in order.
    const std::vector<uint64_t>& Sizes() const { return sizes_; }
    /// Starts the peak, the total and the list of sizes anew.
    void ResetCounters();

    /// Size of the live block that begins at `block`, or 0.
    uint64_t SizeOf(const void* block) const;
    /// One line for each live block.
    std::vector<std::string> LiveBlockNames() const;

    /// All live blocks together may not pass this; 2 GiB unless set.
    void SetLimit(uint64_t bytes) { limit_ = bytes; }
    /// Leaves blocks above 1 MiB unfilled, for measurements.
    void SetFast(bool fast) { fast_ = fast; }

private:
    struct Block {
        uint64_t size;
        uint64_t number;
    };
    bool GuardsAreIntact(const uint8_t* block, uint64_t size) const;

    std::function<void(const std::string&)> report_;
    std::unordered_map<const void*, Block> blocks_;
    std::vector<uint64_t> sizes_;
    uint64_t liveBytes_ = 0;
    uint64_t peakBytes_ = 0;
    uint64_t totalAllocations_ = 0;
    uint64_t nextNumber_ = 1;
    uint64_t limit_ = 2ull << 30;
    bool fast_ = false;
};

}  // namespace machine
