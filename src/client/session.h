#pragma once

#include <filesystem>
#include <mutex>
#include <optional>
#include <string>

#include "client/cancellation.h"
#include "client/download.h"
#include "client/feed.h"
#include "client/running_update.h"
#include "client/settings.h"
#include "client/transport.h"

namespace updater {

/// The feed that the last check found to be for this machine, and the texts of it that the
/// application is handed.
struct SessionOffer {
    Feed feed;
    std::wstring version;
    std::wstring notes;
};

/// A downloaded setup program and whose it is.
struct SessionSetup {
    std::string sha256;
    DownloadedSetup downloaded;
};

/// What an application does about its updates. One thread at a time may use it, except for what
/// says otherwise.
struct Session {
    ClientSettings settings;
    // Before the transport, which must not outlive it.
    Cancellation cancellation;
    UniqueTransport transport;
    std::optional<SessionOffer> offer;
    std::optional<SessionSetup> setup;
    // Guards whether there is an update, and whether it is to be cancelled; see `CancelSession`.
    std::mutex lock;
    std::optional<RunningUpdate> update;
    /// The job of the last update that this session has started.
    std::wstring startedJob;
};

/// Prepares a session and creates its data directory. Raises what `ReadSettings`, `OpenTransport`
/// and `CreateDirectories` do.
void OpenSession(Session& session, const AppUpdateSettings& settings);

/// Returns where the downloads are.
std::filesystem::path DownloadsDirectory(const std::filesystem::path& dataDirectory);

/// Downloads what is offered. Raises `ClientFailure` APP_UPDATE_WRONG_ORDER without an offer, and
/// what `DownloadSetup` does.
void DownloadOffer(Session& session, const DownloadProgress& progress);

/// Starts the updater on the downloaded setup program. Raises `ClientFailure`
/// APP_UPDATE_WRONG_ORDER without one, or while an update runs, APP_UPDATE_CANCELLED, and what the
/// functions of job.h and `WriteLastUpdate` do. After a failure there is no job directory.
void StartUpdate(Session& session);

/// Waits for the started update as `AwaitUpdate` does. The end is told once: it lets another update
/// be started, and `TakeOutcome` does not tell it again. Raises `ClientFailure`
/// APP_UPDATE_WRONG_ORDER when no update runs.
WaitResult WaitForUpdate(Session& session, std::uint32_t milliseconds);

/// Cancels the call that runs or comes next, or the update that has been started; from any thread.
/// Raises what `RequestGivingUp` does.
void CancelSession(Session& session);

/// How the last update has ended, and what it was to install.
struct LastOutcome {
    UpdateEnd end;
    VersionNumber version;
};

/// Returns how the last update has ended, once; nothing when there is nothing to tell (yet).
std::optional<LastOutcome> TakeOutcome(const Session& session);

}  // namespace updater
