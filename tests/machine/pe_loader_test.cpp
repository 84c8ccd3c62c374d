#include "machine/pe_loader.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <optional>

#include "machine/kestrelkit_api.h"
#include "tiny_dll.h"

namespace machine {
namespace {

using test::BuildTinyDll;
using test::ReadBytes;
using test::WriteBytes;

constexpr char kCountingDll[] = R"(
typedef int (*Function)(int);
__declspec(dllimport) int Twice(int);
static int counter = 5;
static int zeroed[2000];
static int Add(int value) { return value + 1; }
Function volatile table[2] = {Add, Add};
int* events;
__declspec(dllexport) int Count(void) { return ++counter; }
__declspec(dllexport) int FirstZeroed(void) { return zeroed[0]++; }
__declspec(dllexport) int ThroughTable(int value) { return table[1](value); }
__declspec(dllexport) int ThroughImport(int value) { return Twice(value); }
__declspec(dllexport) void Watch(int* where) { events = where; }
__declspec(dllexport) const char* Text(void) { return "constant"; }
int DllEntry(void* module, unsigned reason, void* reserved)
{
    (void)reserved;
    if (events != 0) { *events = (int)reason + 100; }
    return module != 0;
}
)";

constexpr char kTwiceLibrary[] = "LIBRARY helper.dll\nEXPORTS\nTwice\n";

int32_t KK_CALL Twice(int32_t value)
{
    return 2 * value;
}

void* ResolveTwice(std::string_view library, std::string_view name)
{
    return library == "helper.dll" && name == "Twice" ? reinterpret_cast<void*>(&Twice) : nullptr;
}

void* ResolveAnything(std::string_view /*library*/, std::string_view /*name*/)
{
    return reinterpret_cast<void*>(&Twice);
}

/// The small DLL above, which imports from a helper library.
class CountingDllTest : public testing::Test {
protected:
    CountingDllTest()
    {
        std::ofstream(folder_.Path() / "helper.def") << kTwiceLibrary;
        const std::string command = "llvm-dlltool-19 -m i386:x86-64 -d '" + (folder_.Path() / "helper.def").string() +
                                    "' -l '" + (folder_.Path() / "libhelper.a").string() + "'";
        EXPECT_EQ(std::system(command.c_str()), 0);
        file_ = BuildTinyDll(folder_.Path(), kCountingDll, {(folder_.Path() / "libhelper.a").string()});
    }

    TemporaryFolder folder_;
    std::filesystem::path file_;
};

TEST_F(CountingDllTest, ExportsRunInPlace)
{
    const LoadedDll dll(file_, {.resolver = ResolveTwice});

    EXPECT_EQ(dll.Export<int(KK_CALL*)()>("Count")(), 6);
    EXPECT_EQ(dll.Export<int(KK_CALL*)()>("Count")(), 7);
    EXPECT_STREQ(dll.Export<const char*(KK_CALL*)()>("Text")(), "constant");
    EXPECT_EQ(dll.Export<int(KK_CALL*)()>("NoSuchName"), nullptr);
}

TEST_F(CountingDllTest, PointersInItsDataAreRelocated)
{
    const LoadedDll dll(file_, {.resolver = ResolveTwice});

    EXPECT_EQ(dll.Export<int(KK_CALL*)(int)>("ThroughTable")(41), 42);
}

TEST_F(CountingDllTest, ImportsAreBoundByName)
{
    const LoadedDll dll(file_, {.resolver = ResolveTwice});

    ASSERT_EQ(dll.Imports().size(), 1u);
    EXPECT_EQ(dll.Imports()[0].library, "helper.dll");
    EXPECT_EQ(dll.Imports()[0].name, "Twice");
    EXPECT_EQ(dll.Export<int(KK_CALL*)(int)>("ThroughImport")(21), 42);
}

TEST_F(CountingDllTest, AnUnknownImportIsRefusedByItsName)
{
    const auto nothing = [](std::string_view, std::string_view) -> void* { return nullptr; };

    try {
        const LoadedDll dll(file_, {.resolver = nothing});
        FAIL() << "it was loaded";
    } catch (const std::runtime_error& error) {
        EXPECT_STREQ(error.what(), "unknown import helper.dll!Twice");
    }
}

TEST_F(CountingDllTest, EachLoadHasItsOwnState)
{
    const LoadedDll first(file_, {.resolver = ResolveTwice});
    EXPECT_EQ(first.Export<int(KK_CALL*)()>("Count")(), 6);
    EXPECT_EQ(first.Export<int(KK_CALL*)()>("FirstZeroed")(), 0);
    const LoadedDll second(file_, {.resolver = ResolveTwice});

    EXPECT_EQ(second.Export<int(KK_CALL*)()>("Count")(), 6);
    EXPECT_EQ(second.Export<int(KK_CALL*)()>("FirstZeroed")(), 0);
    EXPECT_EQ(first.Export<int(KK_CALL*)()>("FirstZeroed")(), 1);
}

TEST_F(CountingDllTest, UnloadingTellsTheDll)
{
    int32_t event = 0;
    {
        const LoadedDll dll(file_, {.resolver = ResolveTwice});
        dll.Export<void(KK_CALL*)(int32_t*)>("Watch")(&event);
    }

    EXPECT_EQ(event, 100);
}

TEST_F(CountingDllTest, NoPageIsWritableAndExecutable)
{
    const LoadedDll dll(file_, {.resolver = ResolveTwice});

    for (const PeSection& section : dll.Headers().sections) {
        const bool writable = (section.characteristics & kPeSectionWrite) != 0;
        const bool executable = (section.characteristics & kPeSectionExecute) != 0;
        EXPECT_FALSE(writable && executable) << section.name;
    }
    auto* const code = const_cast<uint8_t*>(dll.Export<const uint8_t*>("Count"));
    EXPECT_DEATH(*code = 0, "");
}

TEST_F(CountingDllTest, ADllThatRefusesToAttachIsNotLoaded)
{
    const auto file = BuildTinyDll(folder_.Path(), "int DllEntry(void) { return 0; }");

    EXPECT_THROW(LoadedDll{file}, std::runtime_error);
}

TEST(PeLoaderTest, ThreadLocalStorageIsRefused)
{
    const TemporaryFolder folder;
    const auto file = BuildTinyDll(folder.Path(), R"(
unsigned _tls_index;
static void* callbacks[1];
const struct { void* start; void* end; unsigned* index; void** callbacks; unsigned zero; unsigned flags; }
    _tls_used = {0, 0, &_tls_index, callbacks, 0, 0};
int DllEntry(void) { return _tls_used.flags == 0; }
)",
                                   {"-Wl,-Xlink=-include:_tls_used"});

    try {
        const LoadedDll dll(file, {.resolver = ResolveAnything});
        FAIL() << "it was loaded";
    } catch (const std::runtime_error& error) {
        EXPECT_STREQ(error.what(), "not a loadable DLL: it has thread-local storage");
    }
}

TEST(PeLoaderTest, AMissingFileIsAnError)
{
    EXPECT_THROW(LoadedDll{"/no/such/file.dll"}, std::runtime_error);
}

/// The shipped DLL and damaged copies of it, which are bound but never run.
class ShippedDllTest : public testing::Test {
protected:
    /// What went wrong with loading `bytes`, or nothing.
    std::optional<std::string> Load(const std::vector<uint8_t>& bytes)
    {
        const auto copy = folder_.Path() / "copy.dll";
        WriteBytes(copy, bytes);
        try {
            const LoadedDll dll(copy, {.resolver = ResolveAnything, .callEntryPoint = false});
            return std::nullopt;
        } catch (const std::runtime_error& error) {
            return error.what();
        }
    }

    template <typename T>
    T Get(uint64_t offset) const
    {
        T value;
        std::memcpy(&value, &original_.at(offset + sizeof(T) - 1) - (sizeof(T) - 1), sizeof(T));
        return value;
    }

    template <typename T>
    std::vector<uint8_t> With(uint64_t offset, T value) const
    {
        std::vector<uint8_t> changed = original_;
        std::memcpy(&changed.at(offset + sizeof(T) - 1) - (sizeof(T) - 1), &value, sizeof(T));
        return changed;
    }

    /// Where the address `rva` of the image lies in the file.
    uint64_t FileOffset(uint32_t rva) const
    {
        for (const PeSection& section : headers_.sections) {
            if (rva >= section.address && rva - section.address < section.memoryBytes) {
                return section.fileOffset + (rva - section.address);
            }
        }
        ADD_FAILURE() << "no section holds " << rva;
        return 0;
    }

    TemporaryFolder folder_;
    std::vector<uint8_t> original_ = ReadBytes(KK_DLL);
    PeHeaders headers_ = ReadPeHeaders(original_);
    uint64_t coff_ = Get<uint32_t>(0x3C) + 4;
    uint64_t optional_ = coff_ + 20;
    uint64_t sectionTable_ = optional_ + Get<uint16_t>(coff_ + 16);
};

TEST_F(ShippedDllTest, ImportsOnlyNtdllFunctionsThatTheMachineHas)
{
    const LoadedDll dll(KK_DLL);

    EXPECT_FALSE(dll.Imports().empty());
    for (const PeImport& import : dll.Imports()) {
        EXPECT_EQ(import.library, "ntdll.dll") << import.name;
    }
}

TEST_F(ShippedDllTest, HasEveryExportOfTheTable)
{
    const LoadedDll dll(KK_DLL);
    const KestrelkitApi api = ApiFromDll(dll);

    EXPECT_NE(api.listDisks, nullptr);
    EXPECT_NE(api.listPartitions, nullptr);
    EXPECT_NE(api.backup, nullptr);
    const auto names = dll.ExportNames();
    EXPECT_NE(std::find(names.begin(), names.end(), "KkBackup"), names.end());
}

TEST_F(ShippedDllTest, EveryTruncationIsRefused)
{
    uint64_t end = 0;
    std::vector<uint64_t> lengths = {0, 1, 2, 0x3B, 0x3C, 0x3F, 0x40, coff_ - 4, coff_ - 1, coff_, optional_ - 1};
    for (uint64_t length = coff_; length <= sectionTable_ + headers_.sections.size() * 40; ++length) {
        lengths.push_back(length);
    }
    for (const PeSection& section : headers_.sections) {
        if (section.fileBytes != 0) {
            const uint64_t sectionEnd = uint64_t{section.fileOffset} + section.fileBytes;
            lengths.insert(lengths.end(), {section.fileOffset, section.fileOffset + 1ull, sectionEnd - 1});
            end = std::max(end, sectionEnd);
        }
    }
    for (const uint64_t length : lengths) {
        ASSERT_LT(length, end);
        const std::vector<uint8_t> cut(original_.begin(), original_.begin() + static_cast<std::ptrdiff_t>(length));
        EXPECT_TRUE(Load(cut).has_value()) << length;
    }
    EXPECT_EQ(Load({original_.begin(), original_.begin() + static_cast<std::ptrdiff_t>(end)}), std::nullopt);
}

// A flipped byte may be harmless (a time stamp), but it never does more than refuse the file.
TEST_F(ShippedDllTest, NoFlippedHeaderByteDoesHarm)
{
    const uint64_t end = sectionTable_ + headers_.sections.size() * 40;
    for (uint64_t offset = 0; offset < end; ++offset) {
        for (const int mask : {0x01, 0x80, 0xFF}) {
            (void)Load(With(offset, static_cast<uint8_t>(original_[offset] ^ mask)));
        }
    }
}

// Import, export and relocation tables are as little to be trusted as the headers.
TEST_F(ShippedDllTest, NoFlippedTableByteDoesHarm)
{
    for (const PeDirectory& directory : {headers_.exports, headers_.imports, headers_.relocations}) {
        const uint32_t bytes = std::min<uint32_t>(directory.bytes, 160);
        for (uint32_t index = 0; index < bytes; ++index) {
            const uint64_t offset = FileOffset(directory.address + index);
            (void)Load(With(offset, static_cast<uint8_t>(original_.at(offset) ^ 0xFF)));
        }
    }
}

TEST_F(ShippedDllTest, WrongHeaderFieldsAreNamed)
{
    const uint64_t directories = optional_ + 112;
    const uint64_t firstSection = sectionTable_;
    const struct {
        std::vector<uint8_t> file;
        const char* reason;
    } cases[] = {
        {With<uint16_t>(0, 0x4D5A), "it does not begin with MZ"},
        {With<uint32_t>(0x3C, 0xFFFFFFFF), "the file ends before offset 4294967295 + 4"},
        {With<uint32_t>(coff_ - 4, 0x00014550), "it has no PE signature"},
        {With<uint16_t>(coff_, 0x014C), "it is not for 64-bit x86 processors"},
        {With<uint16_t>(coff_ + 2, 0), "it has no sections or too many"},
        {With<uint16_t>(coff_ + 2, 97), "it has no sections or too many"},
        {With<uint16_t>(coff_ + 16, 111), "the optional header is too short"},
        {With<uint16_t>(coff_ + 18, 0x0002), "it is a program, not a library"},
        {With<uint16_t>(coff_ + 18, 0x2000), "it was not linked completely"},
        {With<uint16_t>(coff_ + 18, 0x2003), "it cannot be moved"},
        {With<uint16_t>(optional_, 0x010B), "the optional header is not PE32+"},
        {With<uint32_t>(optional_ + 16, headers_.imageBytes), "the entry point is not in code"},
        {With<uint32_t>(optional_ + 32, 512), "sections are not aligned to pages"},
        {With<uint32_t>(optional_ + 36, 768), "the file alignment is none of 512 to 4096"},
        {With<uint32_t>(optional_ + 56, 0), "the image size is zero, uneven or too large"},
        {With<uint32_t>(optional_ + 56, 0xFFFFF000), "the image size is zero, uneven or too large"},
        {With<uint32_t>(optional_ + 56, headers_.imageBytes + 4096), "the sections do not fill the image"},
        {With<uint32_t>(optional_ + 56, headers_.imageBytes - 4096), "lies outside the image"},
        {With<uint32_t>(optional_ + 60, headers_.imageBytes + 1), "the headers are larger than the image"},
        {With<uint32_t>(optional_ + 108, 17), "there are more than 16 data directories"},
        {With<uint32_t>(directories, headers_.imageBytes + 1), "a data directory lies outside the image"},
        {With<uint32_t>(directories + 8 + 4, 0xFFFFFFFF), "a data directory lies outside the image"},
        {With<uint64_t>(directories + 9 * 8, 0x1000001000), "it has thread-local storage"},
        {With<uint64_t>(directories + 13 * 8, 0x1000001000), "it has delayed imports"},
        {With<uint32_t>(firstSection + 8, 0), "a section is empty"},
        {With<uint32_t>(firstSection + 8, 0xFFFFFFFF), "a section lies outside the image"},
        {With<uint32_t>(firstSection + 12, 0x1001), "a section does not follow the one before it"},
        {With<uint32_t>(firstSection + 36, 0xE0000020), "a section is both writable and executable"},
    };
    for (const auto& item : cases) {
        const auto error = Load(item.file);
        ASSERT_TRUE(error.has_value()) << item.reason;
        EXPECT_NE(error->find(item.reason), std::string::npos) << *error << " instead of " << item.reason;
    }
}

TEST_F(ShippedDllTest, AnImportByNumberIsRefused)
{
    const uint64_t descriptor = FileOffset(headers_.imports.address);
    const uint64_t firstName = FileOffset(Get<uint32_t>(descriptor));

    EXPECT_EQ(Load(With<uint64_t>(firstName, 0x8000000000000001)), "not a loadable DLL: an import goes by number");
}

TEST_F(ShippedDllTest, AnExportThatLiesInTheExportTableIsRefusedAsForwarded)
{
    const uint64_t functions = FileOffset(Get<uint32_t>(FileOffset(headers_.exports.address) + 28));

    EXPECT_EQ(Load(With<uint32_t>(functions, headers_.exports.address + 1)),
              "not a loadable DLL: an export is forwarded to another library");
}

}  // namespace
}  // namespace machine
