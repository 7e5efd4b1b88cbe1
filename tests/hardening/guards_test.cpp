#include <gtest/gtest.h>

#include <filesystem>

#include "elevation/program_start.h"
#include "end_to_end/waiting.h"
#include "support/exit_code.h"
#include "support/process_utilities.h"
#include "support/text_conversion.h"

namespace updater {

namespace {

struct GuardsTest : testing::TestWithParam<const wchar_t*> {};

// That the released executable is compiled in the same way is checked by check_executable.
TEST_P(GuardsTest, EndTheProcessAtOnce) {
    const std::filesystem::path own = GetProcessImagePath(GetCurrentProcess());
    const StartedProgram started =
        StartProgram({own.parent_path() / L"overrunning-program.exe", GetParam()});
    EXPECT_EQ(AwaitEnd(started.process.get(), "the program's end"),
              static_cast<std::uint32_t>(kExitUnreported));
}

INSTANTIATE_TEST_SUITE_P(Of, GuardsTest, testing::Values(L"stack", L"library"),
                         [](const auto& guard) { return WideToUtf8(guard.param); });

}  // namespace

}  // namespace updater
