#include "worker/worker_options.h"

#include <gtest/gtest.h>

#include <utility>

#include "fixtures/directory_link.h"
#include "fixtures/raised_errors.h"
#include "fixtures/temporary_directory.h"
#include "support/canonical_path.h"
#include "support/file_system.h"

namespace updater {
namespace {

constexpr char kMissingArgument[] = "Missing update argument";

struct ReadOptions : testing::Test {
    TemporaryDirectory directory;
    UpdaterArguments arguments = {{L"--installer", L"relative\\..\\setup.exe"},
                                  {L"--install-dir", directory.path},
                                  {L"--job-dir", L"D:\\job\\.\\"},
                                  {L"--version", L"2.0 \u7248"},
                                  {L"--sha256", L"AB\u00E9\u7A0B"},
                                  {L"--size", L"18446744073709551615"},
                                  {L"--parent-pid", L"4294967295"}};
};

TEST_F(ReadOptions, AreTakenAsTheyStandButForTheInstallationDirectory) {
    const WorkerOptions options = ReadWorkerOptions(arguments);
    EXPECT_EQ(options.setupProgram.native(), L"relative\\..\\setup.exe");
    EXPECT_EQ(options.installDirectory, CanonicalPath(directory.path));
    EXPECT_EQ(options.jobDirectory.native(), L"D:\\job\\.\\");
    EXPECT_EQ(options.version, L"2.0 \u7248");
    EXPECT_EQ(options.sha256, "AB\xC3\xA9\xE7\xA8\x8B");
    EXPECT_EQ(options.size, 18446744073709551615U);
    EXPECT_EQ(options.parentProcessId, 4294967295U);
}

TEST_F(ReadOptions, BringTheInstallationDirectoryIntoItsCanonicalForm) {
    const std::wstring parent = directory.path.native();
    CreateDirectories(parent + L"\\\u7A0B\u5E8F App\\data");
    const std::wstring canonical = CanonicalPath(directory.path).native() + L"\\\u7A0B\u5E8F App";
    for (const wchar_t* spelling : {L"\\\u7A0B\u5E8F App", L"\\\u7A0B\u5E8F App\\",
                                    L"/\u7A0B\u5E8F app/", L"\\.\\\u7A0B\u5E8F APP\\data\\.."}) {
        SCOPED_TRACE(testing::PrintToString(std::wstring(spelling)));
        arguments[L"--install-dir"] = parent + spelling;
        EXPECT_EQ(ReadWorkerOptions(arguments).installDirectory.native(), canonical);
    }
}

TEST_F(ReadOptions, FollowALinkInTheInstallationDirectory) {
    const std::filesystem::path target = directory.path / L"target";
    CreateDirectories(target / L"app");
    const DirectoryLink link(directory.path / L"link", target);
    arguments[L"--install-dir"] = directory.path / L"link" / L"app";
    EXPECT_EQ(ReadWorkerOptions(arguments).installDirectory, CanonicalPath(target / L"app"));
    EXPECT_EQ(ReadWorkerOptions(arguments).installDirectory,
              CanonicalPath(directory.path) / L"target" / L"app");
}

TEST_F(ReadOptions, AreAllRequired) {
    const UpdaterArguments complete = arguments;
    for (const auto& [option, value] : complete) {
        SCOPED_TRACE(testing::PrintToString(option));
        arguments = complete;
        arguments.erase(option);
        EXPECT_THAT([&] { ReadWorkerOptions(arguments); }, RaisesError(kMissingArgument));
        arguments[option] = L"";
        EXPECT_THAT([&] { ReadWorkerOptions(arguments); }, RaisesError(kMissingArgument));
    }
}

TEST_F(ReadOptions, RefuseAnInstallationDirectoryThatDoesNotExist) {
    const std::filesystem::path missing = directory.path / L"\u7F3A missing";
    arguments[L"--install-dir"] = missing;
    EXPECT_THAT([&] { ReadWorkerOptions(arguments); }, RaisesFileSystemError("canonical", missing));
}

TEST_F(ReadOptions, RefuseASizeThatIsNone) {
    const struct {
        const wchar_t* text;
        const char* message;
    } cases[] = {
        {L"abc", "invalid stoull argument"},
        {L"-", "invalid stoull argument"},
        {L"+", "invalid stoull argument"},
        {L" ", "invalid stoull argument"},
        {L"18446744073709551616", "stoull argument out of range"},
        {L"-18446744073709551616", "stoull argument out of range"},
    };
    for (const auto& [text, message] : cases) {
        SCOPED_TRACE(testing::PrintToString(std::wstring(text)));
        arguments[L"--size"] = text;
        EXPECT_THAT([&] { ReadWorkerOptions(arguments); }, RaisesMessage(message));
    }
}

TEST_F(ReadOptions, AcceptWhatTheStandardConversionAcceptsAsSize) {
    const struct {
        const wchar_t* text;
        std::uint64_t size;
    } cases[] = {
        {L"123abc", 123},
        {L"123.9", 123},
        {L" \t123", 123},
        {L"+123", 123},
        {L"000123", 123},
        {L"0x10", 0},
        {L"4294967296", 4294967296},
        {L"-1", 18446744073709551615U},
    };
    for (const auto& [text, size] : cases) {
        SCOPED_TRACE(testing::PrintToString(std::wstring(text)));
        arguments[L"--size"] = text;
        EXPECT_EQ(ReadWorkerOptions(arguments).size, size);
    }
}

TEST_F(ReadOptions, RefuseAParentNumberThatIsNone) {
    const struct {
        const wchar_t* text;
        const char* message;
    } cases[] = {
        {L"abc", "invalid stoul argument"},
        {L"-", "invalid stoul argument"},
        {L"4294967296", "stoul argument out of range"},
    };
    for (const auto& [text, message] : cases) {
        SCOPED_TRACE(testing::PrintToString(std::wstring(text)));
        arguments[L"--parent-pid"] = text;
        EXPECT_THAT([&] { ReadWorkerOptions(arguments); }, RaisesMessage(message));
    }
}

TEST_F(ReadOptions, AcceptWhatTheStandardConversionAcceptsAsParentNumber) {
    arguments[L"--parent-pid"] = L" +4294967294 and more";
    EXPECT_EQ(ReadWorkerOptions(arguments).parentProcessId, 4294967294U);
}

// Of two wrong options, the one that is read first decides.
TEST_F(ReadOptions, AreReadInTheirOrder) {
    const std::filesystem::path missing = directory.path / L"missing";
    arguments[L"--parent-pid"] = L"abc";
    EXPECT_THAT([&] { ReadWorkerOptions(arguments); }, RaisesMessage("invalid stoul argument"));
    arguments[L"--size"] = L"abc";
    EXPECT_THAT([&] { ReadWorkerOptions(arguments); }, RaisesMessage("invalid stoull argument"));
    arguments[L"--parent-pid"] = L"";
    EXPECT_THAT([&] { ReadWorkerOptions(arguments); }, RaisesMessage("invalid stoull argument"));
    for (const wchar_t* option : {L"--sha256", L"--version", L"--job-dir"}) {
        const std::wstring value = std::exchange(arguments[option], L"");
        EXPECT_THAT([&] { ReadWorkerOptions(arguments); }, RaisesError(kMissingArgument));
        arguments[option] = value;
    }
    arguments[L"--job-dir"] = L"";
    arguments[L"--install-dir"] = missing;
    EXPECT_THAT([&] { ReadWorkerOptions(arguments); }, RaisesFileSystemError("canonical"));
    arguments[L"--installer"] = L"";
    EXPECT_THAT([&] { ReadWorkerOptions(arguments); }, RaisesError(kMissingArgument));
}

}  // namespace
}  // namespace updater
