// Updates of another application than the one of the build's identity. The program is started by
// two-applications-test, at moments of its choice.

#include "end_to_end/error_box.h"
#include "end_to_end/update_expectations.h"
#include "fixtures/application_names.h"
#include "support/application_identity.h"
#include "support/file_system.h"
#include "worker/install_mutex.h"

namespace updater {
namespace {

struct OtherUpdate : UpdateTest {};

TEST_F(OtherUpdate, Succeeds) {
    CarryOutUpdate();
    ExpectQuietEnd(*this, RecordText("succeeded", "Installed version 2.0.0.0", 0), 0);
    ExpectVersion2(*this);
    EXPECT_EQ(NewStagingDirectories().size(), 1U);
    ExpectRestart(job.installDirectory, "2.0.0.0");
}

TEST_F(OtherUpdate, IsRolledBack) {
    OfferSetup(L"v2", L"9.9.9.9");
    CarryOutUpdate();
    ExpectErrorBox(*this, RecordText("failed",
                                     "Installed executable version mismatch; previous program "
                                     "restored",
                                     1));
    ExpectNothingChanged(*this);
    ExpectRestart(job.installDirectory, "1.0.0.0");
}

// The names are those of its own identity, whatever the other programs of the build have.
TEST_F(OtherUpdate, HasItsOwnNames) {
    EXPECT_EQ(job.updater.filename(), L"" IDENTITY_UPDATER);
    EXPECT_TRUE(PathExists(job.installDirectory / kExecutableName));
    EXPECT_EQ(kInstallMutex, std::wstring(L"Global\\" IDENTITY_BASE_NAME L"Install"));
    const UniqueHandle mutex = AcquireInstallMutex();
}

}  // namespace
}  // namespace updater
