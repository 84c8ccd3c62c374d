#include "machine/host_transfers.h"

#include <unistd.h>

namespace machine {

ssize_t ReadAt(int descriptor, uint64_t offset, std::span<uint8_t> into)
{
    size_t done = 0;
    while (done < into.size()) {
        const ssize_t piece =
            pread(descriptor, into.data() + done, into.size() - done, static_cast<off_t>(offset + done));
        if (piece < 0) {
            return piece;
        }
        if (piece == 0) {
            break;
        }
        done += static_cast<size_t>(piece);
    }
    return static_cast<ssize_t>(done);
}

bool WriteAt(int descriptor, uint64_t offset, std::span<const uint8_t> from)
{
    for (size_t done = 0; done < from.size();) {
        const ssize_t piece =
            pwrite(descriptor, from.data() + done, from.size() - done, static_cast<off_t>(offset + done));
        if (piece <= 0) {
            return false;
        }
        done += static_cast<size_t>(piece);
    }
    return true;
}

}  // namespace machine
