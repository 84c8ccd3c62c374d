#pragma once

#include <cstdint>
#include <string>
#include <vector>

/// What programs that are not ours have against a VHDX file: the words of the first that complains, or nothing. One of
/// them knows 512 bytes a sector alone and is asked about no others.
std::string ComplaintAboutVhdx(const std::string& file, uint32_t sectorSize = 512);

/// Some bytes of the disk as another reader sees them. Fails the test when it cannot read them all.
std::vector<uint8_t> VhdxBytesForOthers(const std::string& file, uint64_t offset, uint64_t length);
