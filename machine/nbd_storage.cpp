#include "machine/nbd_storage.h"

#include <libnbd.h>

#include <algorithm>
#include <stdexcept>
#include <string>
#include <vector>

namespace machine {
namespace {

/// The size at which the server is fastest; smaller and larger requests both lose.
constexpr uint64_t kPieceBytes = 2 << 20;

[[noreturn]] void Throw(const std::string& what)
{
    const char* const reason = nbd_get_error();
    throw std::runtime_error(what + (reason != nullptr ? std::string(": ") + reason : ""));
}

void Connect(nbd_handle* server, const std::filesystem::path& file, ImageFormat format, NbdStorage::Mode mode,
             uint64_t& size)
{
    const std::string path = file.string();
    // Nothing of a test has to survive the host's power loss.
    std::vector<std::string> words = {"qemu-nbd", "-f", QemuName(format), "--cache=unsafe", "--discard=unmap", path};
    if (mode == NbdStorage::Mode::ReadOnly) {
        words.emplace_back("--read-only");
    }
    std::vector<char*> arguments;
    for (std::string& word : words) {
        arguments.push_back(word.data());
    }
    arguments.push_back(nullptr);
    if (nbd_connect_systemd_socket_activation(server, arguments.data()) != 0) {
        Throw("cannot serve " + path);
    }
    const int64_t bytes = nbd_get_size(server);
    if (bytes < 0) {
        Throw("cannot learn the size of " + path);
    }
    size = static_cast<uint64_t>(bytes);
}

}  // namespace

NbdStorage::NbdStorage(const std::filesystem::path& file, ImageFormat imageFormat, Mode mode) : server_(nbd_create())
{
    if (server_ == nullptr) {
        Throw("cannot make an NBD client");
    }
    try {
        Connect(server_, file, imageFormat, mode, size_);
    } catch (...) {
        nbd_close(server_);
        throw;
    }
}

NbdStorage::~NbdStorage()
{
    // The server ends when its only client leaves, and closing the client waits for it.
    (void)nbd_shutdown(server_, 0);
    nbd_close(server_);
}

bool NbdStorage::Read(uint64_t offset, std::span<uint8_t> into)
{
    if (!Holds(offset, into.size())) {
        return false;
    }
    for (uint64_t done = 0; done < into.size();) {
        const uint64_t bytes = std::min<uint64_t>(into.size() - done, kPieceBytes);
        if (nbd_pread(server_, &into[done], bytes, offset + done, 0) != 0) {
            return false;
        }
        done += bytes;
    }
    return true;
}

bool NbdStorage::Write(uint64_t offset, std::span<const uint8_t> from)
{
    if (!Holds(offset, from.size())) {
        return false;
    }
    for (uint64_t done = 0; done < from.size();) {
        const uint64_t bytes = std::min<uint64_t>(from.size() - done, kPieceBytes);
        if (nbd_pwrite(server_, &from[done], bytes, offset + done, 0) != 0) {
            return false;
        }
        done += bytes;
    }
    return true;
}

bool NbdStorage::Flush()
{
    return nbd_flush(server_, 0) == 0;
}

}  // namespace machine
