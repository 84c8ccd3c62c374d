// Feeds whole VHDX files to the library. An input is not the file itself, most of which is empty, but what lies in it:
//
//     1 byte    chooses arguments of the calls
//     4 bytes   size of the file in units of 512 bytes
//     then, as often as the input has bytes: 4 bytes offset, 2 bytes length, as many bytes as that
//
// so that a mutation hits a structure and not a void. make_corpus.py makes such inputs of real images.

#include <algorithm>
#include <cstring>

#include "fuzzed_machine.h"
#include "image/vhdx_reader.h"

namespace {

constexpr uint64_t kLargestFile = 64ull << 20;

/// Takes numbers and bytes off an input until it is empty.
class Input {
public:
    explicit Input(std::span<const uint8_t> bytes) : bytes_(bytes) {}

    template <typename T>
    T Number()
    {
        T value = 0;
        const auto taken = Bytes(sizeof(T));
        std::memcpy(&value, taken.data(), taken.size());
        return value;
    }
    std::span<const uint8_t> Bytes(size_t count)
    {
        const auto taken = bytes_.first(std::min(count, bytes_.size()));
        bytes_ = bytes_.subspan(taken.size());
        return taken;
    }
    bool IsEmpty() const { return bytes_.empty(); }

private:
    std::span<const uint8_t> bytes_;
};

/// Tiny blocks cost a look into the table for every few bytes. That is slow and nothing else, and would keep the
/// fuzzer from everything more interesting.
bool HasTinyBlocks(const std::u16string& path)
{
    constexpr uint32_t smallest = 64 << 10;
    kk::VhdxReader reader;
    return reader.Open(path.c_str()) == KK_STATUS_SUCCESS && reader.BlockSize() < smallest;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    static MemoryFile file;
    Input input({data, size});
    const auto choice = input.Number<uint8_t>();
    const uint64_t fileBytes = uint64_t{input.Number<uint32_t>()} * 512 % kLargestFile;
    file.Reset(fileBytes);
    while (!input.IsEmpty()) {
        const auto offset = input.Number<uint32_t>();
        const auto bytes = input.Bytes(input.Number<uint16_t>());
        if (offset < fileBytes) {
            file.Write(offset, bytes.first(std::min<uint64_t>(bytes.size(), fileBytes - offset)));
        }
    }

    FuzzedMachine machine;
    if (!HasTinyBlocks(file.Path())) {
        InspectAndRestore(machine, file, choice);
    }
    return 0;
}
