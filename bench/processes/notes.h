#pragma once

#include <cstdint>
#include <memory>
#include <stdexcept>

#include "stopwatch.h"
#include "support/handle.h"

namespace bench {

// What the processes of a measured handshake note for the program that measures, in memory that
// they share: readings of the performance counter, 0 before.
struct Notes {
    volatile LONG64 applicationExit;
    volatile LONG64 commitSeen;
};

inline constexpr wchar_t kNotesName[] = L"Local\\UpdaterBenchNotes";

/// Set when the application shall exit.
inline constexpr wchar_t kExitEventName[] = L"Local\\UpdaterBenchExit";

struct ViewCloser {
    void operator()(Notes* notes) const noexcept { UnmapViewOfFile(notes); }
};

struct SharedNotes {
    updater::UniqueHandle section;
    std::unique_ptr<Notes, ViewCloser> notes;
};

/// Opens the notes, or makes them, with zeros, when nobody has them open.
inline SharedNotes OpenNotes() {
    SharedNotes shared;
    shared.section = updater::OwnHandle(CreateFileMappingW(
        INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE, 0, sizeof(Notes), kNotesName));
    if (shared.section) {
        shared.notes.reset(static_cast<Notes*>(
            MapViewOfFile(shared.section.get(), FILE_MAP_WRITE, 0, 0, sizeof(Notes))));
    }
    if (!shared.notes) {
        throw std::runtime_error("Cannot open the notes");
    }
    return shared;
}

/// Notes the present time, unless something has been noted already.
inline void NoteTime(volatile LONG64& note) {
    InterlockedCompareExchange64(&note, CounterNow(), 0);
}

}  // namespace bench
