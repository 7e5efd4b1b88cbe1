// Each of Windows' functions that can refuse, refusing with every number that elsewhere is a reason
// to try again: it is called once, and the refusal is the end.

#include <gtest/gtest.h>

#include "fixtures/application_names.h"
#include "fixtures/doubles/windows_doubles.h"
#include "fixtures/expect_file_system_error.h"
#include "fixtures/file_content.h"
#include "fixtures/programs/running_program.h"
#include "fixtures/refusals.h"
#include "fixtures/temporary_directory.h"
#include "support/canonical_path.h"
#include "support/directory_listing.h"
#include "support/file_digest.h"
#include "support/file_system.h"
#include "support/process_utilities.h"
#include "support/stand_ins/version_program.h"
#include "support/status_file.h"
#include "support/version_information.h"

namespace updater {
namespace {

struct Refusal : testing::Test {
    Refusal() { WriteFileContent(file, "content"); }

    // The same for an operation that raises the filesystem library's error of this name.
    template <typename Result, typename... Arguments>
    static void ExpectFinalFileRefusal(Replacement<Result(Arguments...)>& function,
                                       std::type_identity_t<Result> refusal,
                                       const std::function<void()>& operation, const char* name,
                                       const std::filesystem::path& path) {
        ExpectFinalRefusal(function, refusal, [&](DWORD error) {
            ExpectFileSystemError(operation, name, error, path);
        });
    }

    TemporaryDirectory directory;
    std::filesystem::path file = directory.path / L"file";
    std::filesystem::path other = directory.path / L"other";
};

TEST_F(Refusal, OfTheTokenIsFinal) {
    ExpectFinalRefusal(doubles::OpenProcessToken, FALSE, IsProcessElevated,
                       "Cannot inspect process token");
    ExpectFinalRefusal(doubles::GetTokenInformation, FALSE, IsProcessElevated,
                       "Cannot inspect elevation");
}

TEST_F(Refusal, OfAnIdentityIsFinal) {
    for (const HRESULT refusal : {E_FAIL, E_ACCESSDENIED, E_OUTOFMEMORY, E_PENDING}) {
        ExpectFinalRefusal(doubles::CoCreateGuid, refusal, CreateJobIdentity,
                           "Cannot create update job identity");
    }
}

TEST_F(Refusal, OfAnImagePathIsFinal) {
    ExpectFinalRefusal(
        doubles::QueryFullProcessImageNameW, FALSE,
        [] { GetProcessImagePath(GetCurrentProcess()); }, "Cannot inspect application process");
}

TEST_F(Refusal, OfTheParentIsFinal) {
    ExpectFinalRefusal(
        doubles::OpenProcess, nullptr,
        [this] { OpenProcessOf(file, GetCurrentProcessId(), "not the parent"); }, "not the parent");
}

TEST_F(Refusal, OfTheProcessListIsFinal) {
    const auto scan = [this] { EnsureNoOtherInstance(file, 0); };
    ExpectFinalRefusal(doubles::CreateToolhelp32Snapshot, INVALID_HANDLE_VALUE, scan,
                       "Cannot enumerate running applications");
    ExpectFinalRefusal(doubles::Process32FirstW, FALSE, scan,
                       "Cannot enumerate running applications");
}

// Also with the number for a process that is no more: only one that can be opened has ended.
TEST_F(Refusal, OfAnInstanceIsFinalWhateverTheNumber) {
    const RunningProgram program(directory.path / kExecutableName);
    ExpectFinalRefusal(
        doubles::OpenProcess, nullptr, [this] { EnsureNoOtherInstance(file, 0); },
        "Another application instance is inaccessible; close it first");
    ExpectFinalRefusal(
        doubles::QueryFullProcessImageNameW, FALSE, [this] { EnsureNoOtherInstance(file, 0); },
        "Cannot inspect application process");
}

TEST_F(Refusal, OfAStartIsFinal) {
    ExpectFinalRefusal(doubles::CreateProcessW, FALSE, [this](DWORD error) {
        EXPECT_THAT([this] { LaunchProcess(file, L"", directory.path, LaunchWait::None); },
                    RaisesError("Process launch failed: " + std::to_string(error)));
    });
}

TEST_F(Refusal, OfAnExitCodeIsOne) {
    ExpectFinalRefusal(doubles::GetExitCodeProcess, FALSE, [this](DWORD) {
        const RunningProgram program(directory.path / L"ended.exe");
        program.End();
        EXPECT_EQ(AwaitExitCode(program.process.get()), 1U);
    });
}

TEST_F(Refusal, OfTheStatusRecordsMoveIsFinal) {
    ExpectFinalRefusal(
        doubles::MoveFileExW, FALSE,
        [this] { WriteUpdateStatus(directory.path, kStateReady, "m", 0); },
        "Cannot write update status");
}

TEST_F(Refusal, OfTheStatusRecordsTemporaryFileIsFinal) {
    ExpectFinalRefusal(
        doubles::CreateFileW, INVALID_HANDLE_VALUE,
        [this] { WriteUpdateStatus(directory.path, kStateReady, "m", 0); },
        "Cannot write update status");
}

TEST_F(Refusal, OfTheStatusRecordsWriteIsFinal) {
    ExpectFinalRefusal(doubles::WriteFile, FALSE,
                       [this](DWORD) { WriteUpdateStatus(directory.path, kStateReady, "m", 0); });
}

TEST_F(Refusal, OfTheStatusReportIsFinal) {
    const std::wstring empty = ReadStatusReport(directory.path);
    WriteUpdateStatus(directory.path, kStateReady, "m", 0);
    const auto expectEmpty = [&](DWORD) { EXPECT_EQ(ReadStatusReport(directory.path), empty); };
    ExpectFinalRefusal(doubles::CreateFileW, INVALID_HANDLE_VALUE, expectEmpty);
    ExpectFinalRefusal(doubles::ReadFile, FALSE, expectEmpty);
}

TEST_F(Refusal, OfADigestsFileIsFinal) {
    ExpectFinalRefusal(
        doubles::CreateFileW, INVALID_HANDLE_VALUE, [this] { FileSha256Hex(file); },
        "SHA256 verification failed");
    ExpectFinalRefusal(
        doubles::ReadFile, FALSE, [this] { FileSha256Hex(file); }, "SHA256 verification failed");
}

TEST_F(Refusal, OfACopyIsFinal) {
    ExpectFinalFileRefusal(
        doubles::CopyFileW, FALSE, [this] { CopyToNewFile(file, other); }, "copy_file", file);
    WriteFileContent(other, "old");
    ExpectFinalFileRefusal(
        doubles::CopyFileW, FALSE, [this] { CopyOverFile(file, other); }, "copy_file", file);
}

// An attribute that is in the way is taken off after a denial alone.
TEST_F(Refusal, OfAProtectedFileIsFinalUnlessAccessIsDenied) {
    WriteFileContent(other, "old");
    SetFileAttributesW(other.c_str(), FILE_ATTRIBUTE_READONLY);
    for (const DWORD error : kRefusals) {
        if (error == ERROR_ACCESS_DENIED) {
            continue;
        }
        ExpectFinalRefusal(doubles::CopyFileW, FALSE,
                           [&](DWORD) {
                               ExpectFileSystemError([&] { CopyOverFile(file, other); },
                                                     "copy_file", error, file, other);
                           },
                           {error});
        ExpectFinalRefusal(doubles::DeleteFileW, FALSE,
                           [&](DWORD) {
                               ExpectFileSystemError([&] { RemoveFile(other); }, "remove", error,
                                                     other);
                           },
                           {error});
        EXPECT_NE(GetFileAttributesW(other.c_str()) & FILE_ATTRIBUTE_READONLY, 0U);
    }
    SetFileAttributesW(other.c_str(), FILE_ATTRIBUTE_NORMAL);
}

TEST_F(Refusal, OfADeletionIsFinal) {
    ExpectFinalFileRefusal(
        doubles::DeleteFileW, FALSE, [this] { RemoveFile(file); }, "remove", file);
    const std::filesystem::path tree = directory.path / L"tree";
    CreateDirectories(tree);
    ExpectFinalFileRefusal(
        doubles::RemoveDirectoryW, FALSE, [&] { RemoveTree(tree); }, "remove_all", tree);
}

TEST_F(Refusal, OfADirectoryIsFinal) {
    ExpectFinalFileRefusal(
        doubles::CreateDirectoryW, FALSE, [this] { CreateDirectories(other); },
        "create_directories", other);
}

TEST_F(Refusal, OfAQueryIsFinal) {
    ExpectFinalFileRefusal(
        doubles::GetFileAttributesExW, FALSE, [this] { PathExists(file); }, "exists", file);
    ExpectFinalFileRefusal(
        doubles::GetFileAttributesExW, FALSE, [this] { FileSize(file); }, "file_size", file);
    ExpectFinalFileRefusal(
        doubles::CreateFileW, INVALID_HANDLE_VALUE, [this] { CanonicalPath(file); }, "canonical",
        file);
    ExpectFinalFileRefusal(
        doubles::CreateFileW, INVALID_HANDLE_VALUE, [this] { WeaklyCanonicalPath(file); },
        "weakly_canonical", file);
}

TEST_F(Refusal, OfAListingIsFinal) {
    const auto visit = [this] { VisitDirectory(directory.path, [](const ListedEntry&) {}); };
    ExpectFinalFileRefusal(doubles::FindFirstFileExW, INVALID_HANDLE_VALUE, visit,
                           "directory_iterator::directory_iterator", directory.path);
    ExpectFinalRefusal(doubles::FindNextFileW, FALSE, [&](DWORD) {
        EXPECT_THAT(visit, RaisesFileSystemError("directory_iterator::operator++"));
    });
}

TEST_F(Refusal, OfAVersionIsFinal) {
    const auto read = [] { ReadExecutableVersion(VersionProgram(L"1.2.0.0")); };
    constexpr char kUnreadable[] = "Cannot read installed executable version";
    ExpectFinalRefusal(doubles::GetFileVersionInfoSizeW, 0, read, kUnreadable);
    ExpectFinalRefusal(doubles::GetFileVersionInfoW, FALSE, read, kUnreadable);
    ExpectFinalRefusal(doubles::VerQueryValueW, FALSE, read, "Executable version is missing");
}

TEST_F(Refusal, OfTheRegisteredVersionIsFinal) {
    for (const DWORD error : kRefusals) {
        const auto status = static_cast<LSTATUS>(error);
        ExpectFinalRefusal(doubles::RegGetValueW, status,
                           [](DWORD) { EXPECT_EQ(ReadRegisteredVersion(), L""); }, {error});
        ExpectFinalRefusal(doubles::RegOpenKeyExW, status,
                           [](DWORD) {
                               EXPECT_THAT([] { RestoreRegisteredVersion(L"1.0"); },
                                           RaisesError("Cannot restore registered version"));
                           },
                           {error});
    }
}

}  // namespace
}  // namespace updater
