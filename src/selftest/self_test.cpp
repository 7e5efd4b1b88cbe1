#include "selftest/self_test.h"

#include <stdexcept>
#include <string>
#include <string_view>

#include "snapshot/program_backup.h"
#include "snapshot/program_restore.h"
#include "support/application_identity.h"
#include "support/argument_quoting.h"
#include "support/exit_code.h"
#include "support/file_digest.h"
#include "support/file_system.h"
#include "support/file_writing.h"
#include "support/status_file.h"

namespace updater {

namespace {

// A write that fails is not noticed here; a later step then fails over the missing content.
void WriteFixtureFile(const std::filesystem::path& file, std::string_view content) {
    static_cast<void>(OverwriteFile(file, content));
}

bool QuotingHolds() {
    return QuoteArgument(L"C:\\\u4E2D\u6587 path\\") == L"\"C:\\\u4E2D\u6587 path\\\\\"";
}

}  // namespace

int RunSelfTest(const std::filesystem::path& jobDirectory) {
    CreateDirectories(jobDirectory);
    const std::filesystem::path fixture = jobDirectory / L"\u4E2D\u6587 path with spaces";
    const std::filesystem::path backup = jobDirectory / L"backup";
    const std::filesystem::path application = ApplicationPath(fixture);
    const std::filesystem::path addedLibrary = fixture / L"added.dll";
    const std::filesystem::path userFile = fixture / L"account.db";

    CreateDirectories(fixture / L"data");
    WriteFixtureFile(application, "old application");
    WriteFixtureFile(fixture / L"data" / L"app.so", "old assets");
    WriteFixtureFile(userFile, "account retained");
    const ProgramAssets backupRecord = BackupProgram(fixture, backup);
    const std::string previousDigest = FileSha256Hex(application);

    WriteFixtureFile(application, "partial failed install");
    WriteFixtureFile(addedLibrary, "new library");
    RestoreProgram(fixture, backup, backupRecord);

    const bool restored = FileSha256Hex(application) == previousDigest &&
                          !PathExists(addedLibrary) && PathExists(userFile);
    if (!restored || !QuotingHolds()) {
        throw std::runtime_error("Rollback fixture validation failed");
    }
    WriteUpdateStatus(
        jobDirectory, kStateSucceeded,
        "PASS: SHA256, Chinese/space paths, install failure rollback, account preservation",
        kExitSucceeded);
    return kExitSucceeded;
}

}  // namespace updater
