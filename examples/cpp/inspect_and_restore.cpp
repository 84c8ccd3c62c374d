// Tells what an image holds, or puts one of its partitions into a new partition in the largest free region of a disk.
// For Windows; restoring wants an elevated prompt:
//
//     inspect_and_restore IMAGE
//     inspect_and_restore IMAGE PARTITION DISK
//
// x86_64-w64-mingw32-g++ -std=c++20 -municode -static -Iinclude examples/cpp/inspect_and_restore.cpp
#include <algorithm>
#include <cwchar>
#include <filesystem>
#include <iostream>
#include <optional>
#include <vector>

#include <windows.h>

#include "kestrelkit/kestrelkit.hpp"

namespace {

using kestrelkit::Library;
using kestrelkit::WideString;

int Fail(const char* what, const kestrelkit::Status& status)
{
    std::cerr << what << ": " << status.Text() << '\n';
    return 1;
}

/// The library beside this program, by its full path, as becomes a program that is elevated.
std::optional<Library> LoadLibraryBesideProgram()
{
    std::vector<wchar_t> program(32768);
    const DWORD length = GetModuleFileNameW(nullptr, program.data(), static_cast<DWORD>(program.size()));
    const std::filesystem::path path = std::filesystem::path(WideString(program.data(), length)).parent_path();
    const HMODULE module = LoadLibraryExW((path / L"KestrelkitCore.dll").c_str(), nullptr,
                                          LOAD_LIBRARY_SEARCH_DLL_LOAD_DIR | LOAD_LIBRARY_SEARCH_SYSTEM32);
    if (module == nullptr) {
        return std::nullopt;
    }
    const auto exports = kestrelkit::Exports::Found(
        [module](const char* name) { return reinterpret_cast<void*>(GetProcAddress(module, name)); });
    return exports ? std::optional<Library>(*exports) : std::nullopt;
}

int Inspect(const Library& library, const WideString& path)
{
    const auto image = library.InspectImage(path);
    if (!image) {
        return Fail("KkInspectImage", image.status);
    }
    std::cout << (image->style == kestrelkit::PartitionStyle::Gpt ? "GPT" : "MBR") << ", " << (image->virtualSize >> 20)
              << " MiB, sectors of " << image->logicalSectorSize << " bytes\n";
    for (const kestrelkit::ImagePartition& partition : image->partitions) {
        std::cout << "  " << partition.number << "  at " << partition.offset << "  " << (partition.length >> 20)
                  << " MiB\n";
    }
    return 0;
}

/// The disk's largest free region; nothing when there is none, or the image's sectors are of another size.
std::optional<kestrelkit::Region> ChooseRegion(const Library& library, const kestrelkit::Image& image, uint32_t number)
{
    const auto disks = library.ListDisks();
    const auto disk = std::find_if(disks->begin(), disks->end(),
                                   [number](const kestrelkit::Disk& candidate) { return candidate.number == number; });
    const auto partitions = library.ListPartitions(number);
    if (disk == disks->end() || !partitions || disk->sectorSize != image.logicalSectorSize) {
        return std::nullopt;
    }
    const auto regions = kestrelkit::FreeRegions(*disk, *partitions);
    const auto largest = std::max_element(regions.begin(), regions.end(),
                                          [](const auto& a, const auto& b) { return a.length < b.length; });
    return largest != regions.end() ? std::optional(*largest) : std::nullopt;
}

int Restore(const Library& library, const WideString& path, uint32_t partition, uint32_t disk)
{
    const auto image = library.InspectImage(path);
    if (!image) {
        return Fail("KkInspectImage", image.status);
    }
    const auto region = ChooseRegion(library, *image, disk);
    if (!region) {
        std::cerr << "the disk has no free region for sectors like the image's\n";
        return 1;
    }
    const kestrelkit::Status status = library.RestoreToFreeSpace(path, partition, disk, *region, true);
    if (status.Failed()) {
        return Fail("KkRestoreToFreeSpace", status);
    }
    std::cout << "restored to " << region->start << " on disk " << disk << '\n';
    return 0;
}

std::optional<uint32_t> Number(const wchar_t* text)
{
    wchar_t* end = nullptr;
    const unsigned long number = std::wcstoul(text, &end, 10);
    return end != text && *end == L'\0' ? std::optional<uint32_t>(number) : std::nullopt;
}

}  // namespace

int wmain(int count, wchar_t** arguments)
{
    const std::optional<uint32_t> partition = count == 4 ? Number(arguments[2]) : std::nullopt;
    const std::optional<uint32_t> disk = count == 4 ? Number(arguments[3]) : std::nullopt;
    if (count != 2 && !(partition && disk)) {
        std::cerr << "usage: inspect_and_restore IMAGE [PARTITION DISK]\n";
        return 2;
    }
    const std::optional<Library> library = LoadLibraryBesideProgram();
    if (!library) {
        std::cerr << "KestrelkitCore.dll is not beside this program, or is another one\n";
        return 1;
    }
    const WideString image = std::filesystem::absolute(arguments[1]).native();
    return count == 2 ? Inspect(*library, image) : Restore(*library, image, *partition, *disk);
}
