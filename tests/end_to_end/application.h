#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "elevation/program_start.h"
#include "support/handle.h"

namespace updater {

/// A running process of the application.
struct Application {
    UniqueHandle process;
    std::uint32_t id = 0;
};

/// Starts the application of an installation directory, unelevated when the caller is elevated and
/// told to use the linked token, and waits until its window is open.
Application StartApplication(const std::filesystem::path& installDirectory,
                             StartToken token = StartToken::Limited);

/// The same although an update is being installed, at the user's word.
Application StartApplicationAnyway(const std::filesystem::path& installDirectory);

/// Waits until somebody else has started the application of an installation directory and its
/// window is open.
Application AwaitApplication(const std::filesystem::path& installDirectory);

/// Returns the process ids of the running instances of an installation directory's application.
std::vector<std::uint32_t> ListApplications(const std::filesystem::path& installDirectory);

/// Tells the application's windows to close, as a user does.
void AskToClose(const Application& application);

/// Closes the application's windows, as a user does, waits for its end and returns its exit code.
std::uint32_t CloseApplication(const Application& application);

/// What the application wrote about a start of its own.
struct Session {
    std::string version;
    std::uint32_t processId = 0;
    bool elevated = false;
    std::filesystem::path workingDirectory;
    std::string updateOutcome;
};

/// Returns what this run of the application wrote into its session log; nothing if it has no line
/// there.
std::optional<Session> FindSession(const std::filesystem::path& installDirectory,
                                   const Application& application);

/// The session log, in the installation directory.
inline constexpr wchar_t kSessionLog[] = L"sessions.log";

}  // namespace updater
