#include "end_to_end/update_expectations.h"
#include "fixtures/application_names.h"

namespace updater {

TEST_F(UpdateTest, ReplacesReadOnlyFiles) {
    for (const wchar_t* file : {kExecutableName, L"engine.dll", L"program-files.tsv"}) {
        SetFileAttributesW((job.installDirectory / file).c_str(), FILE_ATTRIBUTE_READONLY);
    }
    OfferSetup(L"v2", L"2.0.0.0");
    CarryOutUpdate();
    ExpectQuietEnd(*this, RecordText("succeeded", "Installed version 2.0.0.0", 0), 0);
    ExpectVersion2(*this);
    ExpectRestart(job.installDirectory, "2.0.0.0");
}

}  // namespace updater
