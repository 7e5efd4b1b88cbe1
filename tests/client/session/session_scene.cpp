#include "client/session/session_scene.h"

#include <algorithm>
#include <chrono>
#include <thread>

#include "client/last_update.h"
#include "client/text_digest.h"
#include "fixtures/built_path.h"
#include "fixtures/file_content.h"
#include "fixtures/held_file.h"
#include "fixtures/patience.h"
#include "support/application_identity.h"
#include "support/file_reading.h"
#include "support/file_system.h"
#include "support/sha256.h"
#include "support/text_conversion.h"

namespace updater {

namespace {

void Await(const std::filesystem::path& file) {
    const auto limit = std::chrono::steady_clock::now() + kPatience;
    // Who gives a file its name has it open for a moment longer, and lets nobody read it.
    while (!OpenFileToRead(file) && std::chrono::steady_clock::now() < limit) {
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    ASSERT_TRUE(OpenFileToRead(file)) << file;
}

}  // namespace

void Answer200(const HttpsReceiver& receiver, const std::string& entityTag,
               const std::string& body) {
    HttpsHead head;
    head.status = 200;
    head.length = body.size();
    head.entityTag = Utf8ToWide(entityTag);
    if (receiver.takeHead(head)) {
        // In two portions, as a network brings them.
        const std::size_t half = body.size() / 2;
        receiver.takeBytes({body.data(), half});
        receiver.takeBytes({body.data() + half, body.size() - half});
    }
}

SessionScene::SessionScene() {
    CreateDirectories(installDirectory);
    CopyToNewFile(BuiltPath(CORVELLAN_STAND_IN_UPDATER), installDirectory / kUpdaterExecutable);
    keys = {key.publicText.c_str()};
    settings.size = sizeof(settings);
    settings.feedAddress = L"https://example.com/app/update-feed.json";
    settings.publicKeys = keys.data();
    settings.publicKeyCount = 1;
    settings.runningVersion = L"1.0.0.0";
    settings.installDirectory = installText.c_str();
    settings.dataDirectory = dataText.c_str();
    report.size = sizeof(report);
    offer.size = sizeof(offer);
    outcome.size = sizeof(outcome);

    feed.version = {{2, 0, 0, 0}};
    feed.size = setup.size();
    feed.sha256 = Sha256Text(DigestOfText(setup));
    feed.address = "setup-2.exe";
    feed.issue = 7;
    feed.published = ReadFeedTime("2020-01-01T00:00:00Z", "published");
    feed.expires = ReadFeedTime("2099-01-01T00:00:00Z", "expires");
    feed.channel = "stable";
    feed.notes = "https://example.com/notes";
    TheServer() = {};
    TheServer().download = [this](const DownloadOrder& order, const Cancellation& /*cancellation*/,
                                  const DownloadProgress& progress) {
        const std::filesystem::path file = order.directory / (Utf8ToWide(order.sha256) + L".exe");
        WriteFileContent(file, setup);
        progress(order.size, order.size);
        return DownloadedSetup{file, HoldFile(file, GENERIC_READ, FILE_SHARE_READ)};
    };
}

SessionScene::~SessionScene() {
    session.reset();
    TheServer() = {};
}

void SessionScene::Open() {
    AppUpdateSession* opened = nullptr;
    ASSERT_EQ(AppUpdateOpen(&settings, &opened, &report), APP_UPDATE_OK) << Sentence();
    session.reset(opened);
}

void SessionScene::Publish(const Feed& published) {
    TheServer().fetch = [this, envelope = key.Envelope(WriteFeed(published))](
                            const HttpsRequest& request, const HttpsReceiver& receiver) {
        requests.push_back(request);
        if (std::ranges::find(request.headers, L"If-None-Match: \"first\"") !=
            request.headers.end()) {
            HttpsHead head;
            head.status = 304;
            EXPECT_FALSE(receiver.takeHead(head));
            return;
        }
        Answer200(receiver, "\"first\"", envelope);
    };
}

void SessionScene::OpenAndDownload() {
    Publish(feed);
    ASSERT_NO_FATAL_FAILURE(Open());
    ASSERT_EQ(Check(), APP_UPDATE_OK) << Sentence();
    ASSERT_EQ(AppUpdateDownload(session.get(), nullptr, nullptr, &report), APP_UPDATE_OK)
        << Sentence();
}

void SessionScene::StartUpdate() {
    ASSERT_NO_FATAL_FAILURE(OpenAndDownload());
    ASSERT_EQ(AppUpdateStart(session.get(), &report), APP_UPDATE_OK) << Sentence();
    Await(JobDirectory() / L"started");
}

void SessionScene::Step(const std::string& lines) {
    const std::wstring number = std::to_wstring(++steps);
    const std::filesystem::path draft = JobDirectory() / L"draft";
    WriteFileContent(draft, lines);
    std::filesystem::rename(draft, JobDirectory() / (L"step-" + number));
    Await(JobDirectory() / (L"done-" + number));
}

void SessionScene::EndUpdater(int exitCode) {
    Step("exit\n" + std::to_string(exitCode));
    steps = 0;
}

std::filesystem::path SessionScene::JobDirectory() const {
    return dataDirectory / L"updates" / ReadLastUpdate(dataDirectory).value().job;
}

AppUpdateResult SessionScene::Check() {
    return AppUpdateCheck(session.get(), &offer, &report);
}

AppUpdateResult SessionScene::Wait(std::uint32_t milliseconds) {
    return AppUpdateWait(session.get(), milliseconds, &state, &report);
}

AppUpdateResult SessionScene::TakeOutcome() {
    return AppUpdateTakeOutcome(session.get(), &outcome, &report);
}

std::string SessionScene::Sentence() const {
    return WideToUtf8(report.sentence);
}

}  // namespace updater
