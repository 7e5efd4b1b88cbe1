#include "updatectl/file_access.h"

#include <gtest/gtest.h>

#include "fixtures/file_content.h"
#include "fixtures/held_file.h"
#include "fixtures/temporary_directory.h"
#include "support/handle.h"
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

}  // namespace
}  // namespace updater
