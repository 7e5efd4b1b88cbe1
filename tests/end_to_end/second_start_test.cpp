// The user starts the application again while it is being updated.

#include <gtest/gtest.h>

#include <vector>

#include "controls.h"
#include "elevation/program_start.h"
#include "end_to_end/running_processes.h"
#include "end_to_end/setup_gate.h"
#include "end_to_end/update_expectations.h"
#include "end_to_end/update_notice.h"
#include "end_to_end/waiting.h"
#include "end_to_end/window_text.h"
#include "fixtures/application_names.h"
#include "fixtures/install_mutex.h"

// After the Windows types that it needs.
#include <sddl.h>

namespace updater {
namespace {

// Starts the application as a user does; it ends by itself.
void StartAgain(const std::filesystem::path& installDirectory) {
    const StartedProgram second =
        StartProgram({.program = installDirectory / kExecutableName, .token = StartToken::Limited});
    EXPECT_EQ(AwaitEnd(second.process.get(), "the second instance's end"), 0U);
}

struct SecondStart : UpdateTest {};

TEST_F(SecondStart, SaysThatTheApplicationIsBeingUpdatedAndKeepsOutOfTheWay) {
    OfferSetup(L"v2-adding", L"2.0.0.0");
    const SetupGate gate(*this);
    CarryOutUpdate();
    Await("the setup program at its gate", [&] { return gate.IsReached(); });

    StartAgain(job.installDirectory);
    const Notice notice = AwaitNotice();
    EXPECT_EQ(WindowText(notice.window), L"" IDENTITY_LOCAL_DIRECTORY L" is being updated");
    // A third click finds the notice there already.
    StartAgain(job.installDirectory);
    EXPECT_EQ(ListProcessesOf(NoticeProgram()).size(), 1U);

    gate.Open();
    ExpectQuietEnd(*this, RecordText("succeeded", "Installed version 2.0.0.0", 0), 0);
    EXPECT_EQ(AwaitEnd(notice.process.get(), "the notice's end"), 0U);
    ExpectRestart(job.installDirectory, "2.0.0.0");
}

TEST_F(SecondStart, GoesOnAtTheUsersWordWhenSomethingElseHoldsTheMutex) {
    UniqueHandle mutex = OwnHandle(CreateMutexW(nullptr, TRUE, kInstallMutexName));
    StartAgain(job.installDirectory);
    const Notice notice = AwaitNotice();
    PostMessageW(notice.window, WM_COMMAND, ID_START_ANYWAY, 0);
    const Application resumed = AwaitApplication(job.installDirectory);
    EXPECT_EQ(AwaitEnd(notice.process.get(), "the notice's end"), 0U);
    CloseApplication(resumed);
}

TEST_F(SecondStart, IsLeftAloneWhenItsUserClosesTheNotice) {
    const UniqueHandle mutex = OwnHandle(CreateMutexW(nullptr, TRUE, kInstallMutexName));
    StartAgain(job.installDirectory);
    const Notice notice = AwaitNotice();
    PostMessageW(notice.window, WM_COMMAND, IDCANCEL, 0);
    EXPECT_EQ(AwaitEnd(notice.process.get(), "the notice's end"), 0U);
    EXPECT_EQ(ListApplications(job.installDirectory), std::vector<std::uint32_t>());
}

// So it is for a standard user, whose update another account carries out. Wine lets the owner in
// whatever the list says, so this mutex is the system's.
TEST_F(SecondStart, SaysSoWhereTheMutexMayNotBeOpened) {
    PSECURITY_DESCRIPTOR descriptor = nullptr;
    ASSERT_NE(ConvertStringSecurityDescriptorToSecurityDescriptorW(L"O:SYG:SYD:", SDDL_REVISION_1,
                                                                   &descriptor, nullptr),
              0);
    const UniqueLocalMemory owned(descriptor);
    SECURITY_ATTRIBUTES security{sizeof(security), descriptor, FALSE};
    UniqueHandle mutex = OwnHandle(CreateMutexW(&security, TRUE, kInstallMutexName));
    ASSERT_NE(mutex, nullptr);
    const UniqueHandle opened = OwnHandle(OpenMutexW(SYNCHRONIZE, FALSE, kInstallMutexName));
    ASSERT_EQ(GetLastError(), DWORD{ERROR_ACCESS_DENIED});
    StartAgain(job.installDirectory);
    const Notice notice = AwaitNotice();
    EXPECT_EQ(WindowText(notice.window), L"" IDENTITY_LOCAL_DIRECTORY L" is being updated");
    mutex.reset();
    EXPECT_EQ(AwaitEnd(notice.process.get(), "the notice's end"), 0U);
}

}  // namespace
}  // namespace updater
