#include "snapshot/program_verification.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "fixtures/application_names.h"
#include "fixtures/file_content.h"
#include "fixtures/held_file.h"
#include "fixtures/raised_errors.h"
#include "fixtures/temporary_directory.h"
#include "support/file_system.h"
#include "support/text_conversion.h"
#include "support/windows_api.h"

namespace updater {
namespace {

using namespace std::string_literals;

constexpr char kContent[] = "program";
const std::string kDigest = "1310ca2c8932dbd118668bd97442558a3e1f546b5e15c69699dfbd6024f548d8";
const std::string kUpperCaseDigest =
    "1310CA2C8932DBD118668BD97442558A3E1F546B5E15C69699DFBD6024F548D8";
const std::string kOtherDigest = "d9298a10d1b0735837dc4bd85dac641b0f3cef27a47e5d53a54f2f3f5b2fcffa";

constexpr char kMismatch[] = "Installed program checksum mismatch: ";

// An installation directory whose listed files all hold the same content.
struct ProgramVerification : testing::Test {
    void Install(const std::filesystem::path& file, std::string_view content = kContent) const {
        WriteFileContent(directory.path / file, content);
    }

    void WriteInventory(std::string_view content) const {
        WriteFileContent(directory.path / L"program-files.tsv", content);
    }

    void ExpectAccepted(std::string_view inventory) const {
        SCOPED_TRACE(testing::PrintToString(std::string(inventory.substr(0, 100))));
        WriteInventory(inventory);
        EXPECT_NO_THROW(VerifyInstalledProgram(directory.path));
    }

    void ExpectRefused(std::string_view inventory, const std::string& message) const {
        SCOPED_TRACE(testing::PrintToString(std::string(inventory.substr(0, 100))));
        WriteInventory(inventory);
        EXPECT_THAT([this] { VerifyInstalledProgram(directory.path); }, RaisesError(message));
    }

    TemporaryDirectory directory;
};

std::string Entry(const std::string& path, const std::string& digest = kDigest) {
    return path + '\t' + digest + '\n';
}

TEST_F(ProgramVerification, AcceptsFilesThatMatchWhateverTheirOrderAndSeparators) {
    Install(kExecutableName);
    Install(L"data\\app.so");
    Install(L"data\\fonts\\deep\\ui.ttf", "other");
    Install(L"data\\empty.bin", "");
    Install(L"not listed.dll", "other");
    ExpectAccepted(Entry("data\\fonts/deep\\ui.ttf", kOtherDigest) + Entry("data/app.so") +
                   Entry(IDENTITY_EXECUTABLE) + Entry("data\\app.so") + Entry(IDENTITY_EXECUTABLE) +
                   Entry("data\\empty.bin",
                         "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855"));
}

TEST_F(ProgramVerification, FailsWithoutAnInventory) {
    Install(kExecutableName);
    EXPECT_THAT([this] { VerifyInstalledProgram(directory.path); },
                RaisesError("Installed program inventory is missing"));
    EXPECT_THAT([this] { VerifyInstalledProgram(directory.path / L"missing"); },
                RaisesError("Installed program inventory is missing"));
}

TEST_F(ProgramVerification, FailsWithADirectoryForAnInventory) {
    CreateDirectories(directory.path / L"program-files.tsv");
    EXPECT_THAT([this] { VerifyInstalledProgram(directory.path); },
                RaisesError("Installed program inventory is missing"));
}

TEST_F(ProgramVerification, FailsWithAnInventoryThatAnotherProcessHoldsLocked) {
    WriteInventory(Entry(IDENTITY_EXECUTABLE));
    const UniqueHandle lock = HoldFile(directory.path / L"program-files.tsv");
    EXPECT_THAT([this] { VerifyInstalledProgram(directory.path); },
                RaisesError("Installed program inventory is missing"));
}

TEST_F(ProgramVerification, CallsAnInventoryOfNoBytesEmpty) {
    ExpectRefused("", "Installed program inventory is empty");
}

TEST_F(ProgramVerification, CallsAnInventoryOfOneLineFeedInvalid) {
    ExpectRefused("\n", "Invalid program inventory");
}

TEST_F(ProgramVerification, RefusesABlankLineAnywhere) {
    Install(kExecutableName);
    const std::string entry = Entry(IDENTITY_EXECUTABLE);
    for (const std::string& inventory :
         {"\r\n"s, "\r"s, "\n" + entry, "\r\n" + entry, entry + "\n", entry + "\n\n",
          entry + "\r\n", entry + "\r", entry + "\n" + entry, entry + " \n"}) {
        ExpectRefused(inventory, "Invalid program inventory");
    }
}

TEST_F(ProgramVerification, RefusesALineWithoutATab) {
    Install(kExecutableName);
    for (const std::string& line :
         {IDENTITY_EXECUTABLE " " + kDigest, kDigest, "# comment"s, IDENTITY_EXECUTABLE ""s,
          "C:\\x"s, "..\\x"s, "\0"s, std::string(1'000'000, 'x')}) {
        ExpectRefused(line + '\n', "Invalid program inventory");
        ExpectRefused(Entry(IDENTITY_EXECUTABLE) + line, "Invalid program inventory");
    }
}

TEST_F(ProgramVerification, AcceptsCarriageReturnsBeforeLineFeeds) {
    Install(kExecutableName);
    Install(L"data\\app.so");
    ExpectAccepted(IDENTITY_EXECUTABLE "\t" + kDigest + "\r\ndata\\app.so\t" + kDigest + "\r\n");
    ExpectAccepted(IDENTITY_EXECUTABLE "\t" + kDigest + "\r\ndata\\app.so\t" + kDigest + "\n");
}

TEST_F(ProgramVerification, AcceptsALastLineWithoutALineFeed) {
    Install(kExecutableName);
    Install(L"data\\app.so");
    ExpectAccepted(IDENTITY_EXECUTABLE "\t" + kDigest);
    ExpectAccepted(Entry(IDENTITY_EXECUTABLE) + "data\\app.so\t" + kDigest);
    ExpectRefused(Entry(IDENTITY_EXECUTABLE) + "data\\app.so\t" + kOtherDigest,
                  kMismatch + "data\\app.so"s);
}

TEST_F(ProgramVerification, AcceptsACarriageReturnAfterTheDigest) {
    Install(kExecutableName);
    ExpectAccepted(IDENTITY_EXECUTABLE "\t" + kDigest + "\r\n");
    ExpectAccepted(IDENTITY_EXECUTABLE "\t" + kDigest + "\r");
}

// The inventory is read in portions of 64 KiB.
TEST_F(ProgramVerification, FindsTheLinesWhereverAPortionEnds) {
    for (const std::string& ending : {"\n"s, "\r\n"s}) {
        for (std::size_t firstLine = 65536 - 8; firstLine <= 65536 + 1; ++firstLine) {
            SCOPED_TRACE(firstLine);
            const std::string first(firstLine - ending.size(), 'x');
            const std::string zero("b\0c", 3);
            const std::string third(200000, 'z');
            for (const std::string& end : {""s, ending}) {
                WriteInventory(first + ending + zero + ending + third + end);
                std::vector<std::string> lines;
                VisitInventory(directory.path,
                               [&lines](const std::string& line) { lines.push_back(line); });
                const std::string carriageReturn = ending.substr(0, ending.size() - 1);
                const std::vector<std::string> expected = {
                    first + carriageReturn, zero + carriageReturn,
                    third + (end.empty() ? "" : carriageReturn)};
                EXPECT_TRUE(lines == expected) << "too long to be shown";
            }
        }
    }
}

TEST_F(ProgramVerification, FindsNoLineBehindAPortionThatEndsWithALineFeed) {
    for (const std::size_t size : {65536, 131072}) {
        WriteInventory(std::string(size - 1, 'x') + '\n');
        int lines = 0;
        VisitInventory(directory.path, [&lines](const std::string&) { ++lines; });
        EXPECT_EQ(lines, 1);
        WriteInventory(std::string(size - 1, 'x') + "\n\n");
        VisitInventory(directory.path, [&lines](const std::string&) { ++lines; });
        EXPECT_EQ(lines, 3) << "a blank line is one";
    }
}

TEST_F(ProgramVerification, RefusesAnUpperCaseDigest) {
    Install(kExecutableName);
    ExpectRefused(Entry(IDENTITY_EXECUTABLE, kUpperCaseDigest),
                  kMismatch + IDENTITY_EXECUTABLE ""s);
}

TEST_F(ProgramVerification, RefusesADigestThatIsNotExactlyTheFilesOwn) {
    Install(kExecutableName);
    for (const std::string& digest :
         {kDigest + " ", " " + kDigest, kDigest + "\t", "\t" + kDigest, kDigest + "\tcolumn",
          kDigest + "\r\r", kDigest + "\r ", kDigest + "\0"s, kDigest.substr(0, 63), kDigest + "0",
          ""s, kOtherDigest, "0x" + kDigest, std::string(1'000'000, 'd')}) {
        ExpectRefused(Entry(IDENTITY_EXECUTABLE, digest), kMismatch + IDENTITY_EXECUTABLE ""s);
    }
}

TEST_F(ProgramVerification, FindsAFileWithChineseCharactersAndSpacesInItsPath) {
    Install(L"data\\\u4E2D\u6587 path\\\u6570\u636E file.bin");
    ExpectAccepted(Entry("data/\u4E2D\u6587 path/\u6570\u636E file.bin"));
    ExpectRefused(Entry("data/\u4E2D\u6587 path/\u6570\u636E file.bin", kOtherDigest),
                  kMismatch + "data/\u4E2D\u6587 path/\u6570\u636E file.bin"s);
}

TEST_F(ProgramVerification, NamesAMismatchingFileAsItsInventoryDoes) {
    Install(L"data\\sub\\app.so", "other");
    for (const std::string path : {"data/sub/app.so", "data\\sub/app.so", "data\\\\sub//app.so",
                                   "./data/.\\sub\\app.so", "DATA/Sub/APP.so"}) {
        ExpectRefused(Entry(path), kMismatch + path);
    }
}

// What is no UTF-8 becomes replacement characters, in the file's name as in the message.
TEST_F(ProgramVerification, NamesAMismatchingFileInUtf8WhateverItsInventoryHolds) {
    Install(L"data\\a\uFFFDb.bin");
    for (const std::string invalid : {"\xFF", "\xC3", "\x80", "\xF8"}) {
        ExpectAccepted(Entry("data/a" + invalid + "b.bin"));
        ExpectRefused(Entry("data/a" + invalid + "b.bin", kOtherDigest), kMismatch +
                                                                             "data/a\xEF\xBF\xBD"
                                                                             "b.bin"s);
    }
}

TEST_F(ProgramVerification, RefusesTraversal) {
    Install(L"x");
    Install(L"app\\x");
    for (const std::string path : {"app/../../x", "..\\x", "..", "app/../x", "app\\..\\app\\x",
                                   "app/..", "./../x", "\\..\\x", "\u4E2D\u6587/../x"}) {
        ExpectRefused(Entry(path), "Invalid program inventory traversal");
    }
}

TEST_F(ProgramVerification, RefusesARootedPath) {
    Install(L"x");
    for (const std::string path :
         {"C:\\x", "C:x", "c:/x", "\\\\server\\share\\x", "//server/share/x", "//?/C:/x",
          "\\\\?\\C:\\x", "\\\\.\\pipe\\x", "\\?\?\\C:\\x", "C:..\\x"}) {
        ExpectRefused(Entry(path), "Invalid program inventory path");
    }
    // Even when the file is the very one in the installation.
    ExpectRefused(Entry(WideToUtf8((directory.path / L"x").native())),
                  "Invalid program inventory path");
}

TEST_F(ProgramVerification, TakesAPathWithALeadingSeparatorFromTheRootOfTheDrive) {
    Install(L"data\\app.so");
    const std::filesystem::path file = directory.path / L"data\\app.so";
    const std::string path = WideToUtf8(file.native().substr(file.root_name().native().size()));
    ASSERT_EQ(path.front(), '\\');
    ExpectAccepted(Entry(path));
    ExpectRefused(Entry("\\data\\app.so"), "SHA256 verification failed");
}

TEST_F(ProgramVerification, AcceptsElementsOfOneDotButFindsNoneOfThree) {
    Install(L"data\\app.so");
    ExpectAccepted(Entry("./data/./app.so"));
    ExpectRefused(Entry("data/.../missing.so"), "SHA256 verification failed");
}

TEST_F(ProgramVerification, TakesAByteOrderMarkForPartOfTheFirstPath) {
    Install(kExecutableName);
    ExpectRefused("\xEF\xBB\xBF" + Entry(IDENTITY_EXECUTABLE), "SHA256 verification failed");
    Install(L"\uFEFF" IDENTITY_EXECUTABLE);
    ExpectAccepted("\xEF\xBB\xBF" + Entry(IDENTITY_EXECUTABLE));
}

TEST_F(ProgramVerification, FailsForAListedFileThatIsMissingOrNoFile) {
    Install(kExecutableName);
    CreateDirectories(directory.path / L"directory");
    for (const std::string path :
         {"missing.dll", "missing/app.so", IDENTITY_EXECUTABLE "/app.so", "directory", "directory/",
          "", ".", "\xFF.dll", IDENTITY_EXECUTABLE "\xC3", "a<b", IDENTITY_EXECUTABLE "|"}) {
        ExpectRefused(Entry(path), "SHA256 verification failed");
    }
    ExpectRefused(Entry(std::string(1'000'000, 'x')), "SHA256 verification failed");
}

TEST_F(ProgramVerification, FailsForAListedFileThatAnotherProcessHoldsLocked) {
    Install(kExecutableName);
    WriteInventory(Entry(IDENTITY_EXECUTABLE));
    const UniqueHandle lock = HoldFile(directory.path / kExecutableName);
    EXPECT_THAT([this] { VerifyInstalledProgram(directory.path); },
                RaisesError("SHA256 verification failed"));
}

TEST_F(ProgramVerification, StopsAtTheFirstLineThatFails) {
    Install(kExecutableName);
    const std::string mismatch = Entry(IDENTITY_EXECUTABLE, kOtherDigest);
    ExpectRefused(mismatch + "no tab\n" + Entry("C:\\x"), kMismatch + IDENTITY_EXECUTABLE ""s);
    ExpectRefused("no tab\n" + mismatch, "Invalid program inventory");
    ExpectRefused(Entry("C:\\x") + Entry("..\\x"), "Invalid program inventory path");
    ExpectRefused(Entry("..\\x") + Entry("C:\\x"), "Invalid program inventory traversal");
    ExpectRefused(Entry("missing") + "\n", "SHA256 verification failed");
    ExpectRefused(Entry(IDENTITY_EXECUTABLE) + Entry("missing") + mismatch,
                  "SHA256 verification failed");
}

TEST_F(ProgramVerification, ChecksALineForItsTabThenRootThenTraversalThenDigest) {
    ExpectRefused("C:\\..\\missing " + kDigest, "Invalid program inventory");
    ExpectRefused(Entry("C:\\..\\missing"), "Invalid program inventory path");
    ExpectRefused(Entry("a\\..\\missing"), "Invalid program inventory traversal");
    ExpectRefused(Entry("a\\missing", kUpperCaseDigest), "SHA256 verification failed");
}

TEST_F(ProgramVerification, TakesTheInstallationDirectoryWithAnySeparatorAtItsEnd) {
    Install(L"data\\app.so");
    WriteInventory(Entry("data/app.so"));
    EXPECT_NO_THROW(VerifyInstalledProgram(directory.path.native() + L"\\"));
    EXPECT_NO_THROW(VerifyInstalledProgram(directory.path.native() + L"/"));
}

TEST_F(ProgramVerification, ChangesNothingAndLeavesNoFileOpen) {
    Install(kExecutableName);
    const std::filesystem::path inventory = directory.path / L"program-files.tsv";
    const std::pair<std::string, std::string> cases[] = {
        {Entry(IDENTITY_EXECUTABLE), ""},
        {Entry(IDENTITY_EXECUTABLE, kOtherDigest) + "more", kMismatch + IDENTITY_EXECUTABLE ""s},
        {"no tab", "Invalid program inventory"},
        {"", "Installed program inventory is empty"},
    };
    for (const auto& [content, message] : cases) {
        WriteInventory(content);
        const auto before = ReadTreeContent(directory.path);
        if (message.empty()) {
            ExpectAccepted(content);
        } else {
            ExpectRefused(content, message);
        }
        EXPECT_EQ(ReadTreeContent(directory.path), before);
        // An open stream would share its file for reading and writing, not for deletion.
        EXPECT_TRUE(DeleteFileW(inventory.c_str()));
        EXPECT_TRUE(MoveFileExW((directory.path / kExecutableName).c_str(),
                                (directory.path / L"moved.exe").c_str(), 0));
        EXPECT_TRUE(MoveFileExW((directory.path / L"moved.exe").c_str(),
                                (directory.path / kExecutableName).c_str(), 0));
    }
}

}  // namespace
}  // namespace updater
