// Stands for the worker in a measured handshake: is ready at once, and notes when it sees the
// commit.

#include "app/command_line.h"
#include "processes/notes.h"
#include "support/handshake.h"
#include "support/updater_arguments.h"

namespace {

int AwaitCommit() {
    const bench::SharedNotes shared = bench::OpenNotes();
    const std::wstring baseName =
        updater::RequireArgument(updater::ParseUpdaterArguments(), updater::kEventOption);
    const updater::UniqueHandle ready = updater::OwnHandle(
        OpenEventW(EVENT_MODIFY_STATE, FALSE, updater::ReadyEventName(baseName).c_str()));
    const updater::UniqueHandle commit = updater::OwnHandle(
        OpenEventW(SYNCHRONIZE, FALSE, updater::CommitEventName(baseName).c_str()));
    if (!ready || !commit || SetEvent(ready.get()) == 0 ||
        WaitForSingleObject(commit.get(), updater::kHandshakeLimit) != WAIT_OBJECT_0) {
        return 1;
    }
    bench::NoteTime(shared.notes->commitSeen);
    return 0;
}

}  // namespace

int WINAPI wWinMain(HINSTANCE, HINSTANCE, PWSTR, int) {
    try {
        return AwaitCommit();
    } catch (const std::exception&) {
        return 1;
    }
}
