#include "core/nt_path.h"

#include <gtest/gtest.h>

#include <array>
#include <memory>
#include <string>

namespace kk {
namespace {

/// Converts a path that ends where its memory does, into a buffer that does so too.
std::u16string NtPath(const std::u16string& path, size_t capacity = kNtPathUnits)
{
    const auto input = std::make_unique<char16_t[]>(path.size() + 1);
    std::copy_n(path.c_str(), path.size() + 1, input.get());
    const auto output = std::make_unique<char16_t[]>(capacity);
    std::fill_n(output.get(), capacity, u'#');

    ToNtPath(input.get(), output.get(), capacity);
    const std::u16string written(output.get(), capacity);
    EXPECT_NE(written.find(u'\0'), std::u16string::npos) << "not terminated";
    return written.substr(0, written.find(u'\0'));
}

TEST(ToNtPathTest, APathWithoutABackslashInFrontGetsThePrefix)
{
    EXPECT_EQ(NtPath(u"C:\\x"), u"\\??\\C:\\x");
    EXPECT_EQ(NtPath(u"C:\\dir\\file"), u"\\??\\C:\\dir\\file");
    EXPECT_EQ(NtPath(u"file"), u"\\??\\file");
    EXPECT_EQ(NtPath(u"/x"), u"\\??\\/x");
    EXPECT_EQ(NtPath(u".\\x"), u"\\??\\.\\x");
    EXPECT_EQ(NtPath(u""), u"\\??\\");
}

TEST(ToNtPathTest, ADevicePrefixIsReplaced)
{
    EXPECT_EQ(NtPath(u"\\\\.\\PhysicalDrive0"), u"\\??\\PhysicalDrive0");
    EXPECT_EQ(NtPath(u"\\\\?\\Volume{11}\\"), u"\\??\\Volume{11}\\");
    EXPECT_EQ(NtPath(u"\\\\?\\C:\\x"), u"\\??\\C:\\x");
    EXPECT_EQ(NtPath(u"\\\\.\\"), u"\\??\\");
    EXPECT_EQ(NtPath(u"\\\\?\\"), u"\\??\\");
}

TEST(ToNtPathTest, ANativeNameIsCopiedUnchanged)
{
    EXPECT_EQ(NtPath(u"\\Device\\HarddiskVolume3"), u"\\Device\\HarddiskVolume3");
    EXPECT_EQ(NtPath(u"\\??\\C:\\x"), u"\\??\\C:\\x");
    EXPECT_EQ(NtPath(u"\\"), u"\\");
    EXPECT_EQ(NtPath(u"\\x"), u"\\x");
}

TEST(ToNtPathTest, ANetworkNameIsCopiedUnchanged)
{
    EXPECT_EQ(NtPath(u"\\\\server\\share"), u"\\\\server\\share");
    EXPECT_EQ(NtPath(u"\\\\s\\x"), u"\\\\s\\x");
    EXPECT_EQ(NtPath(u"\\\\"), u"\\\\");
}

TEST(ToNtPathTest, AnIncompleteDevicePrefixIsCopiedUnchanged)
{
    EXPECT_EQ(NtPath(u"\\\\."), u"\\\\.");
    EXPECT_EQ(NtPath(u"\\\\?"), u"\\\\?");
    EXPECT_EQ(NtPath(u"\\\\.x\\"), u"\\\\.x\\");
    EXPECT_EQ(NtPath(u"\\\\?/x"), u"\\\\?/x");
    EXPECT_EQ(NtPath(u"\\.\\x"), u"\\.\\x");
    EXPECT_EQ(NtPath(u"\\?\\x"), u"\\?\\x");
    EXPECT_EQ(NtPath(u"\\x.\\y"), u"\\x.\\y");
}

TEST(ToNtPathTest, ALongPathIsCutWithItsPrefixCounted)
{
    const std::u16string path(2000, u'x');

    EXPECT_EQ(NtPath(path), u"\\??\\" + std::u16string(1019, u'x'));
    EXPECT_EQ(NtPath(u"\\" + path), u"\\" + std::u16string(1022, u'x'));
    EXPECT_EQ(NtPath(u"\\\\.\\" + path), u"\\??\\" + std::u16string(1019, u'x'));
}

TEST(ToNtPathTest, APathThatJustFitsIsWhole)
{
    const std::u16string fits(1019, u'x');

    EXPECT_EQ(NtPath(fits), u"\\??\\" + fits);
    EXPECT_EQ(NtPath(fits + u"y"), u"\\??\\" + fits);
}

TEST(ToNtPathTest, SmallBuffersHoldWhatFits)
{
    EXPECT_EQ(NtPath(u"C:", 1), u"");
    EXPECT_EQ(NtPath(u"C:", 2), u"\\");
    EXPECT_EQ(NtPath(u"C:", 4), u"\\??");
    EXPECT_EQ(NtPath(u"C:", 5), u"\\??\\");
    EXPECT_EQ(NtPath(u"C:", 6), u"\\??\\C");
    EXPECT_EQ(NtPath(u"C:", 7), u"\\??\\C:");
    EXPECT_EQ(NtPath(u"\\Device", 1), u"");
}

TEST(ToNtPathTest, WritesNothingWithoutRoom)
{
    std::array<char16_t, 2> output = {u'#', u'#'};

    ToNtPath(u"C:\\x", output.data(), 0);
    ToNtPath(u"\\Device", output.data(), 0);
    EXPECT_EQ(output, (std::array<char16_t, 2>{u'#', u'#'}));
}

}  // namespace
}  // namespace kk
