#include "support/application_identity.h"

#include <application_identity_values.h>

namespace updater {

const wchar_t kApplicationExecutable[] = L"" IDENTITY_EXECUTABLE;

const wchar_t kUpdaterExecutable[] = L"" IDENTITY_UPDATER;

const wchar_t kLocalDirectory[] = L"" IDENTITY_LOCAL_DIRECTORY;

const wchar_t kUninstallKey[] =
    L"SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\Uninstall\\" IDENTITY_APPLICATION_ID L"_is1";

const wchar_t kInstallMutex[] = L"Global\\" IDENTITY_BASE_NAME L"Install";

const wchar_t kHandshakePrefix[] = L"Local\\" IDENTITY_BASE_NAME L"-";

const wchar_t kStagingPrefix[] = L"" IDENTITY_BASE_NAME L"-";

const wchar_t kErrorBoxTitle[] = L"" IDENTITY_ERROR_TITLE;

const wchar_t kStatusHeading[] = L"" IDENTITY_ERROR_HEADING L"\n";

const char kReleaseTool[] = IDENTITY_RELEASE_TOOL_STEM;

const char kUpdaterDescription[] = IDENTITY_DESCRIPTION;

const char kExecutableWord[] = IDENTITY_EXECUTABLE_WORD;

}  // namespace updater
