/* Uses the library as an application in C does, without a server: prints what each function returns,
   and the report's sentence. The one argument is an empty directory. C99, and C++ as well. */

#include <corvellan_update.h>
#include <stdio.h>
#include <string.h>

static AppUpdateReport report;

static void Tell(const char* function, AppUpdateResult result) {
    printf("%s %d %ls\n", function, (int)result, report.sentence);
}

static void __cdecl TakeProgress(void* context, uint64_t done, uint64_t total) {
    *(int*)context += done <= total;
}

static AppUpdateSettings SettingsIn(const wchar_t* directory, const wchar_t* const* keys) {
    AppUpdateSettings settings;
    memset(&settings, 0, sizeof(settings));
    settings.size = sizeof(settings);
    settings.feedAddress = L"https://127.0.0.1:1/update-feed.json";
    settings.publicKeys = keys;
    settings.publicKeyCount = 1;
    settings.runningVersion = L"1.0.0.0";
    settings.dataDirectory = directory;
    return settings;
}

static void UseSession(AppUpdateSession* session) {
    AppUpdateOffer offer;
    AppUpdateOutcome outcome;
    AppUpdateState state = APP_UPDATE_STATE_STARTED;
    int calls = 0;
    memset(&offer, 0, sizeof(offer));
    memset(&outcome, 0, sizeof(outcome));
    offer.size = sizeof(offer);
    outcome.size = sizeof(outcome);
    Tell("Check", AppUpdateCheck(session, &offer, &report));
    AppUpdateCancel(session);
    Tell("Check", AppUpdateCheck(session, &offer, &report));
    Tell("Download", AppUpdateDownload(session, TakeProgress, &calls, &report));
    Tell("Start", AppUpdateStart(session, &report));
    Tell("Wait", AppUpdateWait(session, 0, &state, &report));
    Tell("TakeOutcome", AppUpdateTakeOutcome(session, &outcome, &report));
    Tell("TidyUp", AppUpdateTidyUp(session, &report));
    printf("calls %d\n", calls);
}

int wmain(int count, wchar_t** arguments) {
    const wchar_t* const key =
        L"MFkwEwYHKoZIzj0CAQYIKoZIzj0DAQcDQgAEaGRoFFpdpHX5HLGVVtQEGjYiPL13"
        L"KebqtLZp2PrP66HBTFdonwFDcCUydz+rXOWE38YbkkDnR9Hnc36zbQJ0NA==";
    AppUpdateSettings settings = SettingsIn(count == 2 ? arguments[1] : L"", &key);
    AppUpdateSession* session = NULL;
    memset(&report, 0, sizeof(report));
    report.size = sizeof(report);
    Tell("Open", AppUpdateOpen(NULL, &session, &report));
    Tell("Open", AppUpdateOpen(&settings, &session, &report));
    UseSession(session);
    AppUpdateClose(session);
    AppUpdateClose(NULL);
    printf("IsBeingInstalled %d\n", (int)AppUpdateIsBeingInstalled());
    return 0;
}
