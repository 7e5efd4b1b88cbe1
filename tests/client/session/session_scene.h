#pragma once

#include <gmock/gmock.h>

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "client/corvellan_update.h"
#include "client/feed.h"
#include "client/session/server_double.h"
#include "client/session/signing_key.h"
#include "fixtures/temporary_directory.h"

namespace updater {

struct SessionCloser {
    void operator()(AppUpdateSession* session) const noexcept { AppUpdateClose(session); }
};
using UniqueSession = std::unique_ptr<AppUpdateSession, SessionCloser>;

/// An application in version 1.0.0.0, its data directory, its publisher's key, and a server whose
/// feed offers version 2.0.0.0. The updater in the installation directory is a stand-in.
struct SessionScene : testing::Test {
    SessionScene();
    ~SessionScene() override;
    SessionScene(const SessionScene&) = delete;
    SessionScene& operator=(const SessionScene&) = delete;

    /// Opens `session` with `settings`, and expects that this works.
    void Open();
    /// Lets the server have this feed, signed, under the entity tag "first".
    void Publish(const Feed& feed);
    /// Opens the session, checks and downloads; expects that all of it works.
    void OpenAndDownload();
    /// The same, and starts the stand-in, and waits until it says how it was started.
    void StartUpdate();
    /// Lets the stand-in take its next step and waits until it has.
    void Step(const std::string& lines);
    /// Lets the stand-in end and waits for its end.
    void EndUpdater(int exitCode);
    /// The job directory of the update that was started last.
    std::filesystem::path JobDirectory() const;

    AppUpdateResult Check();
    AppUpdateResult Wait(std::uint32_t milliseconds);
    AppUpdateResult TakeOutcome();
    /// The report's sentence, in UTF-8.
    std::string Sentence() const;

    TemporaryDirectory workspace;
    std::filesystem::path installDirectory = workspace.path / L"install";
    std::filesystem::path dataDirectory = workspace.path / L"data";
    SigningKey key;
    std::vector<const wchar_t*> keys;
    std::wstring installText = installDirectory.native();
    std::wstring dataText = dataDirectory.native();
    AppUpdateSettings settings{};
    UniqueSession session;
    AppUpdateReport report{};
    AppUpdateOffer offer{};
    AppUpdateOutcome outcome{};
    AppUpdateState state = APP_UPDATE_STATE_STARTED;
    Feed feed;
    std::string setup = "The new setup program";
    std::vector<HttpsRequest> requests;
    int steps = 0;
};

/// Answers a request with a status, an entity tag and a body.
void Answer200(const HttpsReceiver& receiver, const std::string& entityTag,
               const std::string& body);

}  // namespace updater
