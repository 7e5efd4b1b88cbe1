#include "support/file_digest.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <string_view>
#include <vector>

#include "fixtures/directory_link.h"
#include "fixtures/file_content.h"
#include "fixtures/held_file.h"
#include "fixtures/open_handles.h"
#include "fixtures/raised_errors.h"
#include "fixtures/temporary_directory.h"
#include "support/text_conversion.h"
#include "support/windows_api.h"

namespace updater {

namespace {

struct DigestCase {
    std::size_t size;
    std::string_view digest;
};

// Made with another implementation from the whole content at once.
constexpr DigestCase kPatternDigests[] = {
    {0, "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855"},
    {1, "6e340b9cffb37a989ca544e6bb780a2c78901d3fb33738768511a30617afa01d"},
    {63, "29af2686fd53374a36b0846694cc342177e428d1647515f078784d69cdb9e488"},
    {64, "fdeab9acf3710362bd2658cdc9a29e8f9c757fcf9811603a8c447cd1d9151108"},
    {511, "96781741ba50e7280e4d5eab7cf2cfed6b0eeb98d27d235611e689322b6b6d0f"},
    {512, "d86e386278a71782a283f96aae4f4e7437471abef71136bd2811f98245488d89"},
    {513, "c2525d534358baf2020a2560015aa2adbd23d94eeec6455c24092aafdd8cf1b5"},
    {65535, "dda402a2c028f0cbbdbc5c6ebae965eed9c75f71236e7022b0386d3455d5ae2f"},
    {65536, "4b640d85ab3ba30fd02c9fc9db4a8928f416322ad27022ea58a65aaee68a4df2"},
    {65537, "237356e18b503616912abb8ffaed3a72591e397d4ac294c4637917d48a3f529d"},
    {131071, "de222739d6ef744c5fce51179ad6536d9d81e4f36c9694b4750336481f2a2b59"},
    {131072, "feb1e4409d009e0ec502eaabe321f86b5197a881e9b765252ec8a75d6957596d"},
    {131073, "dd84db969f4ff2abb79c8c2fbc06e8d8e02c46d6481c958e057f7ad7a24c58a7"},
    {200000, "e24bc62381f1224fbbb74688663f8f9743b9680b193edd666835e97b06e730eb"},
    {1048576, "631b84027d6b9e52b539c4e8373622d23032dfadc64d60af87339c9037e4f769"},
};

constexpr char kDigestOfAbc[] = "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad";

void ExpectNoDigest(const std::filesystem::path& file) {
    EXPECT_THAT([&] { FileSha256Hex(file); }, RaisesError("SHA256 verification failed"))
        << WideToUtf8(file.native());
}

TEST(FileSha256Hex, AnEmptyFileHasTheDigestOfNoBytes) {
    const TemporaryDirectory directory;
    WriteFileContent(directory.path / L"file", "");
    EXPECT_EQ(FileSha256Hex(directory.path / L"file"),
              "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855");
}

TEST(FileSha256Hex, ChunkBoundariesLeaveNoTrace) {
    const TemporaryDirectory directory;
    for (const DigestCase& pattern : kPatternDigests) {
        WriteFileContent(directory.path / L"file", PatternOfSize(pattern.size));
        EXPECT_EQ(FileSha256Hex(directory.path / L"file"), pattern.digest) << pattern.size;
    }
}

TEST(FileSha256Hex, EveryByteCountsAsItIs) {
    const TemporaryDirectory directory;
    WriteFileContent(directory.path / L"file", "abc");
    EXPECT_EQ(FileSha256Hex(directory.path / L"file"), kDigestOfAbc);

    std::vector<std::string> digests;
    for (const char* content : {"a\n", "a\r\n", "a\x1A", "a", "a\n\n",
                                "\xEF\xBB\xBF"
                                "a"}) {
        WriteFileContent(directory.path / L"file", content);
        digests.push_back(FileSha256Hex(directory.path / L"file"));
    }
    std::sort(digests.begin(), digests.end());
    EXPECT_EQ(std::unique(digests.begin(), digests.end()), digests.end());
}

TEST(FileSha256Hex, IsInLowerCase) {
    const TemporaryDirectory directory;
    WriteFileContent(directory.path / L"file", "abc");
    const std::string digest = FileSha256Hex(directory.path / L"file");
    EXPECT_NE(digest, "BA7816BF8F01CFEA414140DE5DAE2223B00361A396177A9CB410FF61F20015AD");
    EXPECT_EQ(digest.find_first_of("ABCDEF"), std::string::npos);
}

TEST(FileSha256Hex, AMissingFileHasNone) {
    const TemporaryDirectory directory;
    ExpectNoDigest(directory.path / L"missing");
    ExpectNoDigest(directory.path / L"missing" / L"file");
    ExpectNoDigest(L"");
}

TEST(FileSha256Hex, ADirectoryHasNone) {
    const TemporaryDirectory directory;
    ExpectNoDigest(directory.path);
}

TEST(FileSha256Hex, AFileThatMayNotBeReadHasNone) {
    const TemporaryDirectory directory;
    WriteFileContent(directory.path / L"file", "abc");
    const UniqueHandle exclusive = HoldFile(directory.path / L"file");
    ExpectNoDigest(directory.path / L"file");
}

TEST(FileSha256Hex, PathsWithChineseCharactersSpacesAndLinksAreOpened) {
    const TemporaryDirectory directory;
    const std::filesystem::path folder = directory.path / L"\u7A0B\u5E8F \u6587\u4EF6";
    WriteFileContent(folder / L"\u5347 \u7EA7 \U0001F600.exe", "abc");
    EXPECT_EQ(FileSha256Hex(folder / L"\u5347 \u7EA7 \U0001F600.exe"), kDigestOfAbc);

    const DirectoryLink link(directory.path / L"link", folder);
    EXPECT_EQ(FileSha256Hex(link.link / L"\u5347 \u7EA7 \U0001F600.exe"), kDigestOfAbc);
}

TEST(FileSha256Hex, AReadOnlyFileIsRead) {
    const TemporaryDirectory directory;
    WriteFileContent(directory.path / L"file", "abc");
    SetFileAttributesW((directory.path / L"file").c_str(), FILE_ATTRIBUTE_READONLY);
    EXPECT_EQ(FileSha256Hex(directory.path / L"file"), kDigestOfAbc);
}

TEST(FileSha256Hex, OtherProcessesMayHaveTheFileOpenForReadingAndWriting) {
    const TemporaryDirectory directory;
    WriteFileContent(directory.path / L"file", "abc");
    const UniqueHandle writer = HoldFile(directory.path / L"file", GENERIC_READ | GENERIC_WRITE,
                                         FILE_SHARE_READ | FILE_SHARE_WRITE);
    EXPECT_EQ(FileSha256Hex(directory.path / L"file"), kDigestOfAbc);
}

TEST(FileSha256Hex, NoHandleStaysOpen) {
    const TemporaryDirectory directory;
    WriteFileContent(directory.path / L"file", PatternOfSize(100000));
    const auto digestAll = [&] {
        FileSha256Hex(directory.path / L"file");
        ExpectNoDigest(directory.path / L"missing");
        ExpectNoDigest(directory.path);
    };
    ExpectNoHandleLeft(digestAll);
}

}  // namespace

}  // namespace updater
