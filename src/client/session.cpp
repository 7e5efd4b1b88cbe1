#include "client/session.h"

#include <utility>

#include "client/failure.h"
#include "client/installation_notice.h"
#include "client/job.h"
#include "client/removal.h"
#include "support/file_system.h"
#include "support/process_utilities.h"
#include "support/text_conversion.h"

namespace updater {

namespace {

const Feed& RequireOffer(const Session& session) {
    if (!session.offer) {
        throw ClientFailure(APP_UPDATE_WRONG_ORDER, "No check has found an offer");
    }
    return session.offer->feed;
}

bool IsDownloaded(const Session& session, const Feed& feed) {
    return session.setup && session.setup->sha256 == feed.sha256;
}

// What cannot be written down is told twice; nothing worse.
void MarkTold(const Session& session, LastUpdate kept) {
    kept.told = true;
    try {
        WriteLastUpdate(session.settings.dataDirectory, kept);
    } catch (const ClientFailure&) {
        return;
    }
}

RunningUpdate StartJob(const Session& session, const Feed& feed, const std::wstring& identity,
                       const std::filesystem::path& jobDirectory) {
    const ClientSettings& settings = session.settings;
    RunningUpdate update;
    update.jobDirectory = jobDirectory;
    update.kept = {identity, feed.version, false};
    // First: an update that nobody knows of would end without anybody being told.
    WriteLastUpdate(settings.dataDirectory, update.kept);
    try {
        update.broker = StartUpdater({settings.installDirectory, session.setup->downloaded.file,
                                      feed.size, feed.sha256, feed.version},
                                     jobDirectory);
    } catch (...) {
        MarkTold(session, update.kept);
        throw;
    }
    return update;
}

}  // namespace

void OpenSession(Session& session, const AppUpdateSettings& settings) {
    session.settings = ReadSettings(settings);
    CreateDirectories(session.settings.dataDirectory);
    session.cancellation = CreateCancellation();
    session.transport = OpenTransport(session.settings.limits, session.cancellation);
}

std::filesystem::path DownloadsDirectory(const std::filesystem::path& dataDirectory) {
    return dataDirectory / L"downloads";
}

void DownloadOffer(Session& session, const DownloadProgress& progress) {
    const Feed& feed = RequireOffer(session);
    RaiseIfCancelled(session.cancellation);
    if (IsDownloaded(session, feed)) {
        progress(feed.size, feed.size);
        return;
    }
    const ClientSettings& settings = session.settings;
    const DownloadOrder order{
        .address = ResolveAddress(settings.feedAddress, Utf8ToWide(feed.address)),
        .size = feed.size,
        .sha256 = feed.sha256,
        .directory = DownloadsDirectory(settings.dataDirectory),
        .firstPause = settings.firstPause};
    session.setup = SessionSetup{
        feed.sha256, DownloadSetup(*session.transport, order, session.cancellation, progress)};
}

void StartUpdate(Session& session) {
    const Feed& feed = RequireOffer(session);
    if (!IsDownloaded(session, feed)) {
        throw ClientFailure(APP_UPDATE_WRONG_ORDER, "The offer has not been downloaded");
    }
    if (session.update) {
        throw ClientFailure(APP_UPDATE_WRONG_ORDER, "An update has been started already");
    }
    const std::wstring identity = CreateJobIdentity();
    const std::filesystem::path jobDirectory = CreateJobDirectory(
        session.settings.dataDirectory, identity, session.settings.installDirectory);
    try {
        // A cancellation comes either before the start or after it, and then finds the job.
        const std::scoped_lock locked(session.lock);
        RaiseIfCancelled(session.cancellation);
        session.update = StartJob(session, feed, identity, jobDirectory);
    } catch (...) {
        RemoveUnlessInUse(jobDirectory);
        throw;
    }
    session.startedJob = identity;
}

WaitResult WaitForUpdate(Session& session, std::uint32_t milliseconds) {
    if (!session.update) {
        throw ClientFailure(APP_UPDATE_WRONG_ORDER, "No update has been started");
    }
    WaitResult result = AwaitUpdate(*session.update, session.lock, milliseconds);
    if (result.end) {
        MarkTold(session, session.update->kept);
        const std::scoped_lock locked(session.lock);
        session.update.reset();
    }
    return result;
}

void CancelSession(Session& session) {
    const std::scoped_lock locked(session.lock);
    if (session.update) {
        session.update->cancelRequested = true;
        RequestGivingUp(session.update->jobDirectory);
    } else {
        RequestCancellation(session.cancellation);
    }
}

std::optional<LastOutcome> TakeOutcome(const Session& session) {
    const auto kept = ReadLastUpdate(session.settings.dataDirectory);
    if (!kept || kept->told || session.update) {
        return std::nullopt;
    }
    const std::filesystem::path jobDirectory =
        JobsDirectory(session.settings.dataDirectory) / kept->job;
    const bool mayGoOn = IsUpdaterRunning(jobDirectory) || IsBeingInstalled();
    const std::optional<UpdateRecord> record = ReadUpdateRecord(jobDirectory);
    if (mayGoOn && !(record && IsOutcome(*record))) {
        return std::nullopt;
    }
    const bool cancelRequested = WasGivingUpRequested(jobDirectory);
    MarkTold(session, *kept);
    return LastOutcome{EndOfUpdate(record, {kept->job == session.startedJob, cancelRequested}),
                       kept->version};
}

}  // namespace updater
