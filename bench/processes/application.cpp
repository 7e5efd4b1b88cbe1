// Stands for the application in a measured handshake: exits when told, and notes when that was. The
// application that the broker starts afterwards has been told already.

#include "processes/notes.h"

int WINAPI wWinMain(HINSTANCE, HINSTANCE, PWSTR, int) {
    try {
        const bench::SharedNotes shared = bench::OpenNotes();
        const updater::UniqueHandle exitEvent =
            updater::OwnHandle(OpenEventW(SYNCHRONIZE, FALSE, bench::kExitEventName));
        if (exitEvent && WaitForSingleObject(exitEvent.get(), INFINITE) == WAIT_OBJECT_0) {
            bench::NoteTime(shared.notes->applicationExit);
        }
        return 0;
    } catch (const std::exception&) {
        return 1;
    }
}
