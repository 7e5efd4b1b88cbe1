#include <gmock/gmock.h>

#include "fixtures/file_content.h"
#include "fixtures/temporary_directory.h"
#include "support/argument_quoting.h"
#include "support/file_system.h"
#include "support/handle.h"
#include "support/process_utilities.h"
#include "support/text_conversion.h"
#include "support/windows_api.h"
#include "updatectl/tool_call.h"

namespace updater {
namespace {

using testing::HasSubstr;
using testing::Not;

// A console of the test's own, in which the tool runs, and what a person sees in it.
struct ConsoleTest : testing::Test {
    ConsoleTest() {
        FreeConsole();
        AllocConsole();
        // A code page that has none of the characters that the tests print.
        SetConsoleOutputCP(437);
        SECURITY_ATTRIBUTES inheritable{sizeof(inheritable), nullptr, TRUE};
        screen = OwnHandle(CreateFileW(L"CONOUT$", GENERIC_READ | GENERIC_WRITE,
                                       FILE_SHARE_READ | FILE_SHARE_WRITE, &inheritable,
                                       OPEN_EXISTING, 0, nullptr));
        SetConsoleScreenBufferSize(screen.get(), {200, 50});
    }
    ~ConsoleTest() override { FreeConsole(); }

    UniqueHandle Start(const std::wstring& arguments) const {
        std::wstring commandLine = QuoteArgument(ToolPath().native()) + L' ' + arguments;
        STARTUPINFOW startup{};
        startup.cb = sizeof(startup);
        startup.dwFlags = STARTF_USESTDHANDLES;
        startup.hStdOutput = screen.get();
        startup.hStdError = screen.get();
        PROCESS_INFORMATION started{};
        if (CreateProcessW(nullptr, commandLine.data(), nullptr, nullptr, TRUE, 0, nullptr, nullptr,
                           &startup, &started) == 0) {
            throw std::runtime_error("Cannot start the tool");
        }
        const UniqueHandle thread = OwnHandle(started.hThread);
        return OwnHandle(started.hProcess);
    }

    std::string Text() const {
        std::wstring text;
        for (SHORT row = 0; row < 10; ++row) {
            std::wstring line(200, L' ');
            DWORD count = 0;
            ReadConsoleOutputCharacterW(screen.get(), line.data(), static_cast<DWORD>(line.size()),
                                        {0, row}, &count);
            line.resize(line.find_last_not_of(L' ') + 1);
            text += line + L'\n';
        }
        return WideToUtf8(text);
    }

    UniqueHandle screen;
};

TEST_F(ConsoleTest, ShowsTextWhateverTheCodePage) {
    const TemporaryDirectory directory;
    const std::wstring cyrillic = L"\u041F\u0440\u0438\u0432\u0435\u0442";
    WriteFileContent(directory.path / L"program-files.tsv", WideToUtf8(cyrillic) + "\tx\n");
    const UniqueHandle tool = Start(L"verify " + QuoteArgument(directory.path.native()));
    EXPECT_EQ(AwaitTool(tool.get()), 1U);
    EXPECT_THAT(Text(), HasSubstr("line 1: " + WideToUtf8(cyrillic) + ": SHA256"));

    const UniqueHandle failing = Start(L"verify \"C:\\no " + cyrillic + L"\"");
    EXPECT_EQ(AwaitTool(failing.get()), 1U);
    EXPECT_THAT(Text(), HasSubstr("C:\\no " + WideToUtf8(cyrillic) + ": "));
}

TEST_F(ConsoleTest, ShowsTheProgressOfLongWorkAndClearsIt) {
    const TemporaryDirectory directory;
    {
        // No bytes on the disk, but long to read.
        constexpr LONG kGigabyte = 1 << 30;
        const UniqueHandle file =
            OwnHandle(CreateFileW((directory.path / L"large").c_str(), GENERIC_WRITE, 0, nullptr,
                                  CREATE_NEW, 0, nullptr));
        SetFilePointer(file.get(), kGigabyte, nullptr, FILE_BEGIN);
        ASSERT_NE(SetEndOfFile(file.get()), 0);
    }
    const UniqueHandle tool = Start(L"inventory " + QuoteArgument(directory.path.native()));
    bool seen = false;
    while (!IsSignalledWithin(tool.get(), 50)) {
        // Which second it tells depends on what else the machine has to do.
        seen = seen || Text().find("Reading files: 0 of 1, ") != std::string::npos;
    }
    EXPECT_TRUE(seen);
    EXPECT_EQ(AwaitTool(tool.get()), 0U);
    EXPECT_THAT(Text(), Not(HasSubstr("Reading files")));
    EXPECT_THAT(Text(), HasSubstr("program-files.tsv, files: 1\n"));
}

}  // namespace
}  // namespace updater
