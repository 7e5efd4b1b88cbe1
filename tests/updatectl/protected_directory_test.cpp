#include "updatectl/protected_directory.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <iterator>
#include <string>
#include <system_error>
#include <vector>

#include "fixtures/directory_link.h"
#include "fixtures/doubles/windows_doubles.h"
#include "fixtures/file_content.h"
#include "fixtures/held_file.h"
#include "fixtures/open_handles.h"
#include "fixtures/raised_errors.h"
#include "fixtures/temporary_directory.h"
#include "support/extended_length_path.h"
#include "support/file_system.h"
#include "support/text_conversion.h"
#include "updatectl/entry_times.h"
#include "updatectl/file_security.h"
#include "updatectl/security_double.h"

namespace updater {
namespace {

constexpr wchar_t kStranger[] = L"S-1-5-21-1-2-3-1001";

std::string ReasonAgainst(const std::filesystem::path& directory) {
    try {
        OpenProtectedDirectory(directory);
    } catch (const std::exception& failure) {
        const std::string message = failure.what();
        const std::string path = WideToUtf8(directory.native());
        return message.substr(message.starts_with(path) ? path.size() : 0);
    }
    return "";
}

// The number of the system's error; 0 when there is none.
int ErrorOf(const std::filesystem::path& directory) {
    try {
        OpenProtectedDirectory(directory);
    } catch (const std::system_error& failure) {
        return failure.code().value();
    }
    return 0;
}

constexpr char kForeign[] = " belongs neither to the administrators nor to the system";
constexpr char kWritable[] = " can be changed by others than administrators and the system";

TEST(ProtectedDirectory, BelongsToTheAdministratorsOrToTheSystem) {
    const TemporaryDirectory directory;
    const std::wstring list = L"D:P(A;OICI;FA;;;SY)(A;OICI;FA;;;BA)";
    for (const wchar_t* owner : {L"BA", L"SY"}) {
        const ReportedSecurity security(L"O:" + (owner + list));
        EXPECT_EQ(ReasonAgainst(directory.path), "") << WideToUtf8(owner);
    }
    // Users, everyone, anonymous, authenticated users, the local and the network service, the
    // domain's administrators, the creator, a user.
    for (const wchar_t* owner : {L"BU", L"WD", L"AN", L"AU", L"LS", L"NS", L"PU", L"BO", L"CO",
                                 kStranger, L"S-1-5-21-1-2-3-500", L"S-1-5-21-1-2-3-512"}) {
        const ReportedSecurity security(L"O:" + (owner + list));
        EXPECT_EQ(ReasonAgainst(directory.path), kForeign) << WideToUtf8(owner);
    }
    const ReportedSecurity nobody(list);
    EXPECT_EQ(ReasonAgainst(directory.path), kForeign);
}

TEST(ProtectedDirectory, LetsOthersReadAndNothingElse) {
    const TemporaryDirectory directory;
    const auto reason = [&directory](const std::wstring& entries) {
        const ReportedSecurity security(L"O:BAD:P" + entries);
        return ReasonAgainst(directory.path);
    };
    // No entry lets nobody in; a denial gives nothing; reading and executing, generic or not.
    for (const wchar_t* entries :
         {L"", L"(A;OICI;FA;;;SY)", L"(A;;FA;;;SY)(A;;GA;;;BA)", L"(D;;FA;;;WD)(A;OICI;FA;;;BA)",
          L"(A;OICI;0x1200a9;;;WD)", L"(A;;GRGX;;;BU)", L"(A;OICIID;FRFX;;;S-1-5-21-1-2-3-1001)"}) {
        EXPECT_EQ(reason(entries), "") << WideToUtf8(entries);
    }
    for (const wchar_t* account : {L"WD", L"BU", L"AU", L"CO", L"CG", L"LS", L"IU", kStranger}) {
        EXPECT_EQ(reason(std::wstring(L"(A;OICI;FA;;;BA)(A;;FA;;;") + account + L")"), kWritable)
            << WideToUtf8(account);
    }
    // Only for what is made in it, too; and a denial before does not count.
    EXPECT_EQ(reason(L"(A;OICIIO;GA;;;CO)"), kWritable);
    EXPECT_EQ(reason(L"(D;;FA;;;BU)(A;;FA;;;BU)"), kWritable);
}

// Every single right: those by which something can be changed are the other ones.
TEST(ProtectedDirectory, TakesEveryRightThatIsNotOneOfReadingForOneToWrite) {
    const TemporaryDirectory directory;
    // To list, to read extended and other attributes, to go through, to read the owner and the
    // list, to wait; and generic reading and executing.
    constexpr DWORD kHarmless =
        0x1 | 0x8 | 0x80 | 0x20 | 0x20000 | 0x100000 | 0x80000000 | 0x20000000;
    for (unsigned bit = 0; bit < 32; ++bit) {
        const DWORD right = DWORD{1} << bit;
        const ReportedSecurity security(L"O:BAD:P(A;;FR;;;BU)", [right](PACL accessList) {
            void* entry = nullptr;
            GetAce(accessList, 0, &entry);
            static_cast<ACCESS_ALLOWED_ACE*>(entry)->Mask = right;
        });
        EXPECT_EQ(ReasonAgainst(directory.path), (right & kHarmless) != 0 ? "" : kWritable)
            << "bit " << bit;
    }
}

TEST(ProtectedDirectory, HasAnAccessListOfKnownEntries) {
    const TemporaryDirectory directory;
    {
        // Windows answers so for a list that gives everybody everything, too.
        const ReportedSecurity withoutList(L"O:BA");
        EXPECT_EQ(ReasonAgainst(directory.path), kWritable);
    }
    for (unsigned type = 0; type <= ACCESS_MAX_MS_V5_ACE_TYPE + 3; ++type) {
        const ReportedSecurity security(kStagingDirectorySecurity, [type](PACL accessList) {
            void* entry = nullptr;
            GetAce(accessList, 1, &entry);
            static_cast<ACE_HEADER*>(entry)->AceType = static_cast<BYTE>(type);
        });
        const bool known = type == ACCESS_ALLOWED_ACE_TYPE || type == ACCESS_DENIED_ACE_TYPE;
        EXPECT_EQ(ReasonAgainst(directory.path), known ? "" : kWritable) << "type " << type;
    }
    const ReportedSecurity security(kStagingDirectorySecurity);
    const ScopedReplacement refusal(
        doubles::GetAce, [](PACL, DWORD, LPVOID*) { return FailWith(ERROR_INVALID_PARAMETER); });
    EXPECT_EQ(ReasonAgainst(directory.path), kWritable);
}

// With what Wine can keep: it knows one user, and whether others may write.
TEST(ProtectedDirectory, IsToldFromOneThatOthersCanWriteTo) {
    const TemporaryDirectory directory;
    const ReportedAdministrators administrators;
    LetAdministratorsWrite(directory.path);
    EXPECT_EQ(ReasonAgainst(directory.path), "");
    LetEverybodyWrite(directory.path);
    EXPECT_EQ(ReasonAgainst(directory.path), kWritable);
}

TEST(ProtectedDirectory, IsOpenedOnceWithoutFollowingALinkAndWithoutSharingItsDeletion) {
    const TemporaryDirectory directory;
    const ReportedSecurity security(kStagingDirectorySecurity);
    int calls = 0;
    const ScopedReplacement trace(
        doubles::CreateFileW,
        [&](LPCWSTR path, DWORD access, DWORD share, LPSECURITY_ATTRIBUTES attributes,
            DWORD disposition, DWORD flags, HANDLE file) {
            if (path == directory.path.native()) {
                ++calls;
                EXPECT_EQ(access, DWORD{FILE_LIST_DIRECTORY | FILE_READ_ATTRIBUTES | READ_CONTROL});
                EXPECT_EQ(share, DWORD{FILE_SHARE_READ | FILE_SHARE_WRITE});
                EXPECT_EQ(disposition, DWORD{OPEN_EXISTING});
                EXPECT_EQ(flags, DWORD{FILE_FLAG_OPEN_REPARSE_POINT | FILE_FLAG_BACKUP_SEMANTICS});
            }
            return CreateFileW(path, access, share, attributes, disposition, flags, file);
        });
    OpenProtectedDirectory(directory.path);
    EXPECT_EQ(calls, 1);
}

TEST(ProtectedDirectory, CanBeNeitherDeletedNorRenamedWhileItIsOpen) {
    const TemporaryDirectory directory;
    const std::filesystem::path staging = directory.path / L"staging";
    const std::filesystem::path other = directory.path / L"other";
    CreateDirectories(staging);
    const ReportedSecurity security(kStagingDirectorySecurity);
    {
        const ProtectedDirectory held = OpenProtectedDirectory(staging);
        EXPECT_EQ(RemoveDirectoryW(staging.c_str()), 0);
        EXPECT_EQ(GetLastError(), DWORD{ERROR_SHARING_VIOLATION});
        EXPECT_EQ(MoveFileExW(staging.c_str(), other.c_str(), 0), 0);
        EXPECT_EQ(GetLastError(), DWORD{ERROR_SHARING_VIOLATION});
        WriteFileContent(staging / L"file", "others may work in it");
    }
    EXPECT_NE(MoveFileExW(staging.c_str(), other.c_str(), 0), 0);
}

TEST(ProtectedDirectory, SaysWhenItWasMade) {
    const TemporaryDirectory directory;
    constexpr std::uint64_t kSomeTime = 130'000'000'123'456'700;
    SetTimes(directory.path, kSomeTime);
    const ReportedSecurity security(kStagingDirectorySecurity);
    EXPECT_EQ(OpenProtectedDirectory(directory.path).created, kSomeTime);
}

// Wine follows a link whatever it is asked, so what the handle is asked is answered by a double.
TEST(ProtectedDirectory, IsNeitherALinkNorAFile) {
    const TemporaryDirectory directory;
    WriteFileContent(directory.path / L"file", "x");
    const ReportedSecurity security(kStagingDirectorySecurity);
    EXPECT_EQ(ReasonAgainst(directory.path / L"file"), " is no directory");
    const ScopedReplacement link(
        doubles::GetFileInformationByHandleEx,
        [](HANDLE handle, FILE_INFO_BY_HANDLE_CLASS kind, LPVOID info, DWORD bytes) {
            const BOOL done = GetFileInformationByHandleEx(handle, kind, info, bytes);
            static_cast<FILE_BASIC_INFO*>(info)->FileAttributes |= FILE_ATTRIBUTE_REPARSE_POINT;
            return done;
        });
    EXPECT_EQ(ReasonAgainst(directory.path), " is a link");
}

TEST(ProtectedDirectory, IsNoneWhenWindowsRefusesACall) {
    const TemporaryDirectory directory;
    EXPECT_EQ(ErrorOf(directory.path / L"missing"), ERROR_FILE_NOT_FOUND);
    {
        const ScopedReplacement refusal(doubles::GetFileInformationByHandleEx,
                                        [](HANDLE, FILE_INFO_BY_HANDLE_CLASS, LPVOID, DWORD) {
                                            return FailWith(ERROR_NOT_SUPPORTED);
                                        });
        EXPECT_EQ(ErrorOf(directory.path), ERROR_NOT_SUPPORTED);
    }
    const ScopedReplacement refusal(
        doubles::GetSecurityInfo,
        [](HANDLE, SE_OBJECT_TYPE, SECURITY_INFORMATION, PSID*, PSID*, PACL*, PACL*,
           PSECURITY_DESCRIPTOR*) { return DWORD{ERROR_ACCESS_DENIED}; });
    EXPECT_EQ(ErrorOf(directory.path), ERROR_ACCESS_DENIED);
    EXPECT_THAT([&] { OpenProtectedDirectory(directory.path); },
                testing::ThrowsMessage<std::system_error>(
                    testing::StartsWith("Cannot read the owner and the access list of " +
                                        WideToUtf8(directory.path.native()) + ": ")));
}

TEST(ProtectedDirectory, LeavesNoHandleOpenHoweverItIsRefused) {
    const TemporaryDirectory directory;
    for (const wchar_t* text : {kStagingDirectorySecurity, L"O:BU", L"O:BA"}) {
        ExpectNoHandleLeft([&] {
            const ReportedSecurity security(text);
            ReasonAgainst(directory.path);
        });
    }
}

// What an update leaves, in small.
struct ProtectedTreeTest : testing::Test {
    ProtectedTreeTest() {
        for (const wchar_t* file : {L"install.log", L"backup\\a.exe", L"backup\\data\\\u4E2D\\b"}) {
            WriteFileContent(staging / file, "x");
            SetFileAttributesW((staging / file).c_str(),
                               FILE_ATTRIBUTE_READONLY | FILE_ATTRIBUTE_HIDDEN);
        }
        CreateDirectories(staging / L"backup\\empty");
    }

    [[nodiscard]] ProtectedTree Open() const {
        return OpenProtectedTree(OpenProtectedDirectory(staging));
    }

    TemporaryDirectory temporary;
    std::filesystem::path staging = temporary.path / L"staging";
    // As the tree is named, however long its paths are.
    std::filesystem::path root = ExtendedLengthPath(staging);
    ReportedAdministrators administrators;
};

TEST_F(ProtectedTreeTest, HoldsEveryDirectoryAndKnowsEveryFile) {
    const ProtectedTree tree = Open();
    std::vector<std::filesystem::path> directories;
    std::ranges::transform(tree.directories, std::back_inserter(directories),
                           &ProtectedDirectory::path);
    EXPECT_EQ(directories.front(), root);
    EXPECT_THAT(directories, testing::UnorderedElementsAre(
                                 root, root / L"backup", root / L"backup\\data",
                                 root / L"backup\\data\\\u4E2D", root / L"backup\\empty"));
    EXPECT_THAT(tree.files,
                testing::UnorderedElementsAre(root / L"install.log", root / L"backup\\a.exe",
                                              root / L"backup\\data\\\u4E2D\\b"));
    for (const std::filesystem::path& directory : directories) {
        EXPECT_EQ(MoveFileExW(directory.c_str(), (temporary.path / L"moved").c_str(), 0), 0);
        EXPECT_EQ(GetLastError(), DWORD{ERROR_SHARING_VIOLATION});
    }
}

TEST_F(ProtectedTreeTest, IsRemovedWithEverythingInIt) {
    RemoveProtectedTree(Open());
    EXPECT_FALSE(PathExists(staging));
}

// As long as something is to be deleted in a directory, nothing can come in its place, nor in the
// place of one above it.
TEST_F(ProtectedTreeTest, IsHeldWhileItIsRemoved) {
    std::vector<std::filesystem::path> deleted;
    const ScopedReplacement trace(doubles::DeleteFileW, [&](LPCWSTR file) {
        deleted.emplace_back(file);
        for (std::filesystem::path above = deleted.back().parent_path();
             above != root.parent_path(); above = above.parent_path()) {
            EXPECT_EQ(MoveFileExW(above.c_str(), (temporary.path / L"moved").c_str(), 0), 0);
            EXPECT_EQ(GetLastError(), DWORD{ERROR_SHARING_VIOLATION});
        }
        return DeleteFileW(file);
    });
    RemoveProtectedTree(Open());
    EXPECT_THAT(deleted, testing::Contains(root / L"backup\\a.exe"));
    EXPECT_FALSE(PathExists(staging));
}

TEST_F(ProtectedTreeTest, IsNoneWithALinkInIt) {
    const TemporaryDirectory elsewhere;
    WriteFileContent(elsewhere.path / L"precious", "x");
    const DirectoryLink link(staging / L"backup\\data\\link", elsewhere.path);
    EXPECT_THAT([this] { (void)Open(); },
                RaisesError(WideToUtf8((staging / L"backup\\data\\link").native()) + " is a link"));
    EXPECT_TRUE(PathExists(elsewhere.path / L"precious"));
    EXPECT_TRUE(PathExists(staging / L"backup\\a.exe"));
}

TEST_F(ProtectedTreeTest, IsNoneWhenOthersCanWriteToADirectoryInIt) {
    LetEverybodyWrite(staging / L"backup\\data\\\u4E2D");
    EXPECT_THAT([this] { (void)Open(); },
                RaisesError(WideToUtf8((staging / L"backup\\data\\\u4E2D").native()) + kWritable));
}

TEST_F(ProtectedTreeTest, SaysWhatCannotBeDeleted) {
    const UniqueHandle held = HoldFile(staging / L"backup\\a.exe", GENERIC_READ, FILE_SHARE_READ);
    EXPECT_THAT([this] { RemoveProtectedTree(Open()); },
                RaisesFileSystemError("remove", staging / L"backup\\a.exe"));
    EXPECT_TRUE(PathExists(staging / L"backup\\a.exe"));
}

TEST_F(ProtectedTreeTest, LeavesNoHandleOpen) {
    ExpectNoHandleLeft([this] { (void)Open(); });
    RemoveProtectedTree(Open());
    EXPECT_NE(CreateDirectoryW(staging.c_str(), nullptr), 0);
}

TEST(LinksOfUsers, AreNotFollowedIfWindowsCanTell) {
    int calls = 0;
    const ScopedReplacement refusal(
        doubles::SetProcessMitigationPolicy,
        [&calls](PROCESS_MITIGATION_POLICY policy, PVOID buffer, SIZE_T bytes) {
            ++calls;
            // ProcessRedirectionTrustPolicy, one word of flags, EnforceRedirectionTrust.
            EXPECT_EQ(static_cast<int>(policy), 16);
            EXPECT_EQ(bytes, sizeof(DWORD));
            EXPECT_EQ(*static_cast<DWORD*>(buffer), 1U);
            return FailWith(ERROR_INVALID_PARAMETER);
        });
    DistrustLinksOfUsers();
    EXPECT_EQ(calls, 1);
}

}  // namespace
}  // namespace updater
