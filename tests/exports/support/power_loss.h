#pragma once

#include <cstdint>
#include <functional>
#include <ostream>
#include <vector>

#include "exports/support/disk_bytes.h"
#include "exports/support/disk_kind.h"
#include "exports/support/disk_writes.h"
#include "exports/support/table_on_disk.h"

/// The table that a copy describes: the one from before an edit, the one after it, or neither, as it is not intact.
enum class Tells { Neither, Old, New };

/// What both copies of a GPT describe.
struct CopiesTell {
    Tells primary;
    Tells backup;

    bool IsOneIntact() const { return primary != Tells::Neither || backup != Tells::Neither; }
    friend bool operator==(const CopiesTell&, const CopiesTell&) = default;
};

std::ostream& operator<<(std::ostream& stream, const CopiesTell& copies);

/// An edit of a table that was made and taken back, so that it can be made again write by write, and a machine stopped
/// in its midst.
class CutOffEdit {
public:
    /// Makes the edit, which must succeed and may change, besides the table, what is in `data`.
    CutOffEdit(machine::Disk& disk, const DiskKind& kind, const std::function<int32_t()>& edit,
               const std::vector<Place>& data = {});

    /// In every state one copy of the GPT is intact, programs that are not ours and the machine's driver find the old
    /// or the new partitions, and nothing has changed that may not.
    void ExpectAGptInEveryState();
    /// The same of an MBR, which is one sector.
    void ExpectAnMbrInEveryState();
    /// What is left when of the first writes only some have reached the disk, in whatever order: one bit for each.
    CopiesTell AfterOnly(uint32_t writes);

    size_t Writes() const { return writes_.Count(); }

private:
    struct Table {
        GptOnDisk primary = {};
        GptOnDisk backup = {};
        std::string forOthers = {};
        std::vector<Place> forTheDriver = {};
    };

    Table Read() const;
    Tells TellsOf(const GptOnDisk& copy, const GptOnDisk& old, const GptOnDisk& edited) const;
    CopiesTell Copies() const;
    void ExpectFound(const Table& table);
    void ExpectTornWrites(size_t next);

    machine::Disk& disk_;
    DiskKind kind_;
    DiskBytes before_;
    Table old_;
    DiskWrites writes_;
    Table new_;
    std::vector<Place> mayChange_;
};
