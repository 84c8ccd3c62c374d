#include "support/vhdx_judges.h"

#include <gtest/gtest.h>

#include "support/complaint.h"
#include "support/shell.h"

std::string ComplaintAboutVhdx(const std::string& file, uint32_t sectorSize)
{
    const std::string complaint = Complaint(
        {"vhdiinfo", file}, "Bytes per sector\t: " + std::to_string(sectorSize) + " bytes", {"Unable", "error"});
    if (!complaint.empty() || sectorSize != 512) {
        return complaint;
    }
    return Complaint({"qemu-img", "check", "-f", "vhdx", file}, "No errors were found on the image.",
                     {"ERROR", "Leaked", "error", "repair"});
}

std::vector<uint8_t> VhdxBytesForOthers(const std::string& file, uint64_t offset, uint64_t length)
{
    // Debian's own interpreter is the one that finds Debian's modules.
    const std::string bytes = Shell("/usr/bin/python3 -c 'import pyvhdi, sys; file = pyvhdi.file(); "
                                    "file.open(sys.argv[1]); sys.stdout.buffer.write("
                                    "file.read_buffer_at_offset(int(sys.argv[3]), int(sys.argv[2])))' '" +
                                    file + "' " + std::to_string(offset) + " " + std::to_string(length));
    EXPECT_EQ(bytes.size(), length);
    return {bytes.begin(), bytes.end()};
}
