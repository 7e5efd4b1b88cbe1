#include "app/dispatch.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <functional>
#include <limits>
#include <new>
#include <stdexcept>
#include <string>
#include <system_error>
#include <vector>

#include "app/command_line.h"
#include "fixtures/current_directory.h"
#include "fixtures/doubles/scoped_command_line.h"
#include "fixtures/doubles/updater_doubles.h"
#include "fixtures/file_content.h"
#include "fixtures/raised_errors.h"
#include "fixtures/temporary_directory.h"
#include "support/file_system.h"
#include "support/status_text.h"
#include "support/text_conversion.h"

namespace updater {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;

constexpr char kUnknownMode[] =
    R"({"state":"failed","message":"Unknown updater mode","exitCode":1})";
constexpr char kMissingArgument[] =
    R"({"state":"failed","message":"Missing update argument","exitCode":1})";

// Stands in for all three modes: notes which one is called and with what, then does as `result`
// says.
struct ModeDoubles {
    std::vector<std::string> called;
    UpdaterArguments arguments;
    std::filesystem::path jobDirectory;
    std::function<int()> result = [] { return 0; };

    ScopedReplacement<decltype(RunSelfTest)> selfTest{
        doubles::RunSelfTest, [this](const std::filesystem::path& directory) {
            called.emplace_back("self-test");
            jobDirectory = directory;
            return result();
        }};
    ScopedReplacement<decltype(RunWorker)> worker{doubles::RunWorker,
                                                  [this](const UpdaterArguments& given) {
                                                      called.emplace_back("worker");
                                                      arguments = given;
                                                      return result();
                                                  }};
    ScopedReplacement<decltype(RunBroker)> broker{doubles::RunBroker,
                                                  [this](const UpdaterArguments& given) {
                                                      called.emplace_back("broker");
                                                      arguments = given;
                                                      return result();
                                                  }};
};

struct Dispatch : testing::Test {
    // The arguments, in which D stands for the job directory and E for another one.
    int Run(std::wstring arguments) const {
        Insert(arguments, L" D", job);
        Insert(arguments, L" E", otherJob);
        [[maybe_unused]] const ScopedCommandLine commandLine(L"updater.exe" + arguments);
        return RunUpdater();
    }

    void ExpectRaised(const std::wstring& arguments, const std::string& message) const {
        SCOPED_TRACE(WideToUtf8(arguments));
        EXPECT_THAT([&] { Run(arguments); }, RaisesError(message));
        EXPECT_THAT(ReadTreeContent(job), IsEmpty());
    }

    std::string Status() const { return ReadFileContent(job / L"status.json"); }

    Dispatch() {
        CreateDirectories(job);
        CreateDirectories(otherJob);
    }

    TemporaryDirectory directory;
    std::filesystem::path job = directory.path / L"job \u76EE\u5F55";
    std::filesystem::path otherJob = directory.path / L"other job";

private:
    static void Insert(std::wstring& text, const std::wstring& placeholder,
                       const std::filesystem::path& path) {
        for (std::size_t at = text.find(placeholder); at != std::wstring::npos;
             at = text.find(placeholder, at + 1)) {
            const std::size_t end = at + placeholder.size();
            if (end == text.size() || text[end] == L' ') {
                text.replace(at, placeholder.size(), L" \"" + path.native() + L"\"");
            }
        }
    }
};

TEST_F(Dispatch, PrefersSelfTestToWorkerAndWorkerToBroker) {
    const std::pair<const wchar_t*, const char*> cases[] = {
        {L" --broker --job-dir D", "broker"},
        {L" --worker --job-dir D", "worker"},
        {L" --self-test --job-dir D", "self-test"},
        {L" --broker --worker --job-dir D", "worker"},
        {L" --worker --job-dir D --broker", "worker"},
        {L" --self-test --worker --job-dir D", "self-test"},
        {L" --worker --self-test --job-dir D", "self-test"},
        {L" --broker --job-dir D --self-test", "self-test"},
        {L" --broker --worker --job-dir D --self-test", "self-test"},
    };
    for (const auto& [arguments, mode] : cases) {
        SCOPED_TRACE(WideToUtf8(arguments));
        const ModeDoubles modes;
        EXPECT_EQ(Run(arguments), 0);
        EXPECT_THAT(modes.called, ElementsAre(mode));
    }
    EXPECT_THAT(ReadTreeContent(job), IsEmpty());
}

TEST_F(Dispatch, ReturnsTheModesResult) {
    for (const wchar_t* arguments : {L" --broker", L" --worker", L" --self-test --job-dir D"}) {
        for (const int result : {0, 1, 2, 3, -1, 259, std::numeric_limits<int>::max(),
                                 std::numeric_limits<int>::min()}) {
            ModeDoubles modes;
            modes.result = [result] { return result; };
            EXPECT_EQ(Run(arguments), result);
        }
    }
}

TEST_F(Dispatch, GivesBrokerAndWorkerEveryOption) {
    for (const wchar_t* flag : {L"--broker", L"--worker"}) {
        const ModeDoubles modes;
        Run(std::wstring(L" --x y ") + flag + L" --version 2.0.0.0 --job-dir \"\" stray --size");
        EXPECT_EQ(modes.arguments, (UpdaterArguments{{L"--x", L"y"},
                                                     {flag, L"1"},
                                                     {L"--version", L"2.0.0.0"},
                                                     {L"--job-dir", L""},
                                                     {L"stray", L"--size"}}));
    }
}

TEST_F(Dispatch, GivesTheSelfTestTheJobDirectoryAsItStands) {
    const ModeDoubles modes;
    for (const wchar_t* jobDirectory : {L"relative\\..\\dir", L"C:/\u4E2D\u6587/", L"--worker"}) {
        Run(std::wstring(L" --self-test --job-dir ") + jobDirectory);
        EXPECT_EQ(modes.jobDirectory.native(), jobDirectory);
    }
}

TEST_F(Dispatch, RaisesAMissingJobDirectoryOfTheSelfTest) {
    const ModeDoubles modes;
    for (const wchar_t* arguments :
         {L" --self-test", L" --self-test --job-dir", L" --self-test --job-dir \"\"",
          L" --job-dir \"\" --self-test --worker", L" --self-test --job-dir D --job-dir \"\"",
          L" --self-test --Job-Dir D"}) {
        ExpectRaised(arguments, "Missing update argument");
    }
    EXPECT_THAT(modes.called, IsEmpty());
}

TEST_F(Dispatch, ReportsAnUnknownMode) {
    const ModeDoubles modes;
    for (const wchar_t* arguments :
         {L" --job-dir D", L" --job-dir D stray --worker", L" --job-dir D --WORKER",
          L" --job-dir D --Broker x", L" --job-dir D --selftest x"}) {
        SCOPED_TRACE(WideToUtf8(arguments));
        EXPECT_EQ(Run(arguments), 1);
        EXPECT_THAT(ReadTreeContent(job), ElementsAre(Pair(L"status.json", kUnknownMode)));
        RemoveFile(job / L"status.json");
    }
    EXPECT_THAT(modes.called, IsEmpty());
}

TEST_F(Dispatch, RaisesAnUnknownModeWithoutAJobDirectory) {
    for (const wchar_t* arguments :
         {L"", L" stray", L" --job-dir", L" --job-dir \"\"", L" --job-dir D --job-dir \"\"",
          L" --WORKER --job-dir D", L" --Broker"}) {
        ExpectRaised(arguments, "Missing update argument");
    }
}

TEST_F(Dispatch, SelectsNoModeByAFlagInAnotherLetterCase) {
    const ModeDoubles modes;
    EXPECT_EQ(Run(L" --Worker x --BROKER x --Self-Test x --job-dir D"), 1);
    EXPECT_EQ(Status(), kUnknownMode);
    EXPECT_THAT(modes.called, IsEmpty());
}

[[noreturn]] void RaiseFileSystemFailure() {
    throw std::filesystem::filesystem_error("copy_file", L"C:\\a\\\u4E2D\u6587", L"C:\\b",
                                            std::make_error_code(std::errc::permission_denied));
}

std::string MessageOf(const std::function<int()>& failing) {
    try {
        failing();
        return {};
    } catch (const std::exception& failure) {
        return failure.what();
    }
}

TEST_F(Dispatch, ReportsWhateverFailureEscapesAMode) {
    const std::function<int()> failures[] = {
        []() -> int { throw std::runtime_error("Another update installation is running"); },
        []() -> int { throw std::invalid_argument("invalid stoul argument"); },
        []() -> int { throw std::out_of_range("stoull argument out of range"); },
        []() -> int { throw std::length_error("map/set too long"); },
        []() -> int { throw std::bad_alloc(); },
        []() -> int { RaiseFileSystemFailure(); },
        []() -> int { throw std::runtime_error(""); },
        []() -> int { throw std::runtime_error("a \"quoted\" C:\\path \xE4\xB8\xAD\xE6\x96\x87"); },
    };
    for (const wchar_t* arguments :
         {L" --broker --job-dir D", L" --worker --job-dir D", L" --self-test --job-dir D"}) {
        for (const std::function<int()>& failure : failures) {
            const std::string message = MessageOf(failure);
            SCOPED_TRACE(message);
            WriteFileContent(job / L"status.json", "the record of an earlier step");
            ModeDoubles modes;
            modes.result = failure;
            EXPECT_EQ(Run(arguments), 1);
            EXPECT_EQ(Status(), FormatStatusRecord("failed", message, 1));
        }
    }
}

TEST_F(Dispatch, RaisesTheMissingJobDirectoryInsteadOfAModesFailure) {
    ModeDoubles modes;
    modes.result = []() -> int {
        throw std::runtime_error("Administrator authorization is required");
    };
    for (const wchar_t* arguments : {L" --worker", L" --broker --job-dir \"\"", L" --worker x D"}) {
        ExpectRaised(arguments, "Missing update argument");
    }
}

TEST_F(Dispatch, RaisesAStatusThatCannotBeWritten) {
    const std::filesystem::path missing = job / L"missing";
    EXPECT_THAT([&] { Run(L" --job-dir \"" + missing.native() + L"\""); },
                RaisesError("Cannot write update status"));
    EXPECT_FALSE(PathExists(missing));

    CreateDirectories(job / L"status.json");
    EXPECT_THAT([this] { Run(L" --job-dir D"); }, RaisesError("Cannot write update status"));
}

TEST_F(Dispatch, ReportsIntoTheLastJobDirectoryGiven) {
    ModeDoubles modes;
    modes.result = []() -> int { throw std::runtime_error("failure"); };
    EXPECT_EQ(Run(L" --worker --job-dir D --job-dir E"), 1);
    EXPECT_THAT(ReadTreeContent(job), IsEmpty());
    EXPECT_TRUE(PathExists(otherJob / L"status.json"));
}

TEST_F(Dispatch, TakesAFlagAfterJobDirForARelativeDirectory) {
    const ModeDoubles modes;
    const ScopedCurrentDirectory current(job);
    ExpectRaised(L" --job-dir --self-test", "Cannot write update status");

    CreateDirectories(job / L"--self-test");
    EXPECT_EQ(Run(L" --job-dir --self-test"), 1);
    EXPECT_EQ(ReadFileContent(job / L"--self-test\\status.json"), kUnknownMode);
    EXPECT_THAT(modes.called, IsEmpty());
}

// From here on the modes are the real ones; whether this process is elevated is made up.
struct RealModes : Dispatch {
    bool elevated = true;
    ScopedReplacement<decltype(IsProcessElevated)> elevation{doubles::IsProcessElevated,
                                                             [this] { return elevated; }};
};

TEST_F(RealModes, FailInTheBrokerWhenJobDirStandsLast) {
    elevated = false;
    const ScopedCommandLine commandLine(L"updater.exe --broker --job-dir");
    EXPECT_THAT([] { RunBroker(ParseUpdaterArguments()); }, RaisesError("Missing update argument"));
    ExpectRaised(L" --broker --job-dir", "Missing update argument");
}

TEST_F(RealModes, ReportTheWorkersFailureIntoTheLastJobDirectory) {
    EXPECT_EQ(Run(L" --worker --job-dir D --job-dir E"), 1);
    EXPECT_THAT(ReadTreeContent(job), IsEmpty());
    EXPECT_EQ(ReadFileContent(otherJob / L"status.json"), kMissingArgument);
}

TEST_F(RealModes, FailInTheWorkerForWantOfAJobDirectory) {
    const std::wstring others =
        L" --installer x --install-dir D --version 1 --sha256 x --size 1 "
        L"--parent-pid 4";
    ExpectRaised(L" --job-dir \"\" --worker" + others, "Missing update argument");
    ExpectRaised(L" --worker" + others, "Missing update argument");
}

TEST_F(RealModes, RunTheSelfTestEvenWhenTheWorkerIsAskedForToo) {
    EXPECT_EQ(Run(L" --self-test --worker --job-dir D"), 0);
    EXPECT_EQ(Status(), FormatStatusRecord("succeeded",
                                           "PASS: SHA256, Chinese/space paths, install failure "
                                           "rollback, account preservation",
                                           0));
}

}  // namespace
}  // namespace updater
