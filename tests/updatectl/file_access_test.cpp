#include "updatectl/file_access.h"

#include <gmock/gmock.h>

#include <cstddef>
#include <stdexcept>
#include <string>

#include "fixtures/damaged_file.h"
#include "fixtures/file_content.h"
#include "fixtures/held_file.h"
#include "fixtures/temporary_directory.h"
#include "support/handle.h"
#include "support/text_conversion.h"
#include "support/windows_api.h"

namespace updater {
namespace {

TEST(OpenForReading, IsInNobodysWay) {
    const TemporaryDirectory directory;
    const std::filesystem::path file = directory.path / L"file";
    WriteFileContent(file, "x");
    constexpr DWORD kShareAll = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;
    const UniqueHandle others = HoldFile(file, GENERIC_READ | GENERIC_WRITE | DELETE, kShareAll);
    const UniqueHandle opened = OpenForReading(file);
    EXPECT_NO_THROW(HoldFile(file, GENERIC_READ | GENERIC_WRITE | DELETE, kShareAll));
}

struct ContentOfTest : testing::Test {
    void ExpectRefusal(std::size_t most, const std::string& reason) const {
        EXPECT_THAT([&] { ContentOf(file, most); },
                    testing::ThrowsMessage<std::runtime_error>(
                        testing::StrEq("Cannot use " + WideToUtf8(file.native()) + ": " + reason)));
    }

    TemporaryDirectory directory;
    std::filesystem::path file = directory.path / L"some.content";
};

TEST_F(ContentOfTest, IsTheWholeFileUpToTheLimit) {
    for (const std::size_t size : {0U, 1U, 65535U, 65536U, 65537U, 200000U}) {
        const std::string content = PatternOfSize(size);
        WriteFileContent(file, content);
        EXPECT_EQ(ContentOf(file, size), content);
        if (size > 0) {
            ExpectRefusal(size - 1, "it has more than " + std::to_string(size - 1) + " bytes");
        }
    }
}

TEST_F(ContentOfTest, IsNotABeginning) {
    WriteFileContent(file, PatternOfSize(100000));
    const DamagedFile damaged(L"some.content", 70000);
    ExpectRefusal(100000, "it cannot be read to its end");
}

TEST(FactsOf, AreTheFilesOwn) {
    const TemporaryDirectory directory;
    WriteFileContent(directory.path / L"file", "abc");
    const FileFacts facts = FactsOf(directory.path / L"file");
    EXPECT_EQ(facts.size, 3U);
    EXPECT_EQ(facts.sha256, "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
}

}  // namespace
}  // namespace updater
