#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "machine/device.h"

namespace machine {

/// Who has which host file open, and what they let others do.
class ShareTable {
public:
    /// An open that counts until it is destroyed.
    class Hold {
    public:
        Hold(ShareTable& table, std::string hostPath, uint32_t access, uint32_t share);
        Hold(const Hold&) = delete;
        Hold& operator=(const Hold&) = delete;
        ~Hold();

        /// The file goes when its last hold does.
        void DeleteAtLastClose();

    private:
        friend class ShareTable;
        ShareTable& table_;
        std::string hostPath_;
        uint32_t access_;
        uint32_t share_;
    };

    /// Null when an earlier open does not share what is asked for, or the other way round.
    std::unique_ptr<Hold> TryHold(const std::string& hostPath, uint32_t access, uint32_t share);
    bool IsDeletePending(const std::string& hostPath) const;

private:
    struct File {
        std::vector<const Hold*> holds;
        bool deletePending = false;
    };
    void Drop(const Hold& hold);

    std::map<std::string, File> holds_;
};

/// Drive letters that show folders of the host. `Z:` is the host's root from the start.
class HostDrives {
public:
    HostDrives() { Map(u'Z', "/"); }

    void Map(char16_t letter, const std::string& hostFolder);
    void Unmap(char16_t letter);
    bool IsMapped(char16_t letter) const;
    /// Bit 0 for A.
    uint32_t LetterMask() const;

    /// The host's name of `Z:\x`, `\\?\Z:\x`, `\\.\Z:\x` or `\??\Z:\x`; nullopt when that is on no mapped drive.
    std::optional<std::string> HostPath(std::u16string_view path) const;
    /// The other way round: a Windows path on `Z:`.
    static std::u16string WindowsPath(const std::string& hostPath);

    ShareTable shares;

    /// Opens or creates a file behind `file`. `path` begins with a drive letter.
    Status Open(OpenFile& file, std::u16string_view path);

private:
    Status OpenRegularFile(OpenFile& file, const std::string& hostPath, bool exists);

    std::map<char16_t, std::string> folders_;  // without a slash at the end
};

}  // namespace machine
