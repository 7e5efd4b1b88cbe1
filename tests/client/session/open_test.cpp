#include <functional>

#include "client/session/session_scene.h"
#include "fixtures/scoped_variable.h"
#include "support/application_identity.h"
#include "support/file_system.h"

namespace updater {
namespace {

using OpenedSession = SessionScene;

TEST_F(OpenedSession, HasItsDataDirectoryAndAsksNobody) {
    Open();
    EXPECT_TRUE(PathExists(dataDirectory));
    EXPECT_EQ(TheServer().openTransports, 1);
    EXPECT_EQ(TheServer().limits.connect, 30000U);
    EXPECT_EQ(TheServer().limits.silence, 30000U);
    session.reset();
    EXPECT_EQ(TheServer().openTransports, 0);
}

TEST_F(OpenedSession, TakesTheLimitsOfTheSettings) {
    settings.connectLimit = 1234;
    settings.silenceLimit = 5678;
    Open();
    EXPECT_EQ(TheServer().limits.connect, 1234U);
    EXPECT_EQ(TheServer().limits.silence, 5678U);
}

TEST_F(OpenedSession, KeepsItsDataWithTheUsersLocalDataUnlessToldOtherwise) {
    const ScopedVariable localData(L"LOCALAPPDATA", workspace.path.native());
    settings.dataDirectory = nullptr;
    Open();
    EXPECT_TRUE(PathExists(workspace.path / kLocalDirectory));
}

TEST_F(OpenedSession, NeedsTheUsersLocalData) {
    const ScopedVariable localData(L"LOCALAPPDATA", L"");
    settings.dataDirectory = nullptr;
    AppUpdateSession* opened = nullptr;
    EXPECT_EQ(AppUpdateOpen(&settings, &opened, &report), APP_UPDATE_SYSTEM_ERROR);
    EXPECT_EQ(Sentence(), "The environment variable LOCALAPPDATA is not set");
    EXPECT_EQ(report.systemError, static_cast<std::uint32_t>(ERROR_ENVVAR_NOT_FOUND));
}

TEST_F(OpenedSession, LooksForTheUpdaterBesideTheRunningExecutableUnlessToldOtherwise) {
    Publish(feed);
    settings.installDirectory = nullptr;
    Open();
    ASSERT_EQ(Check(), APP_UPDATE_OK);
    ASSERT_EQ(AppUpdateDownload(session.get(), nullptr, nullptr, &report), APP_UPDATE_OK);
    EXPECT_EQ(AppUpdateStart(session.get(), &report), APP_UPDATE_UPDATER_MISSING);
}

TEST_F(OpenedSession, TakesTheStandardChannel) {
    feed.channel = "beta";
    Publish(feed);
    Open();
    EXPECT_EQ(Check(), APP_UPDATE_WRONG_CHANNEL);
    settings.channel = L"beta";
    Open();
    EXPECT_EQ(Check(), APP_UPDATE_OK);
}

TEST_F(OpenedSession, TakesSixteenKeysAndBelievesEach) {
    std::vector<SigningKey> others(15);
    for (const SigningKey& other : others) {
        keys.insert(keys.begin(), other.publicText.c_str());
    }
    settings.publicKeys = keys.data();
    settings.publicKeyCount = 16;
    Publish(feed);
    Open();
    EXPECT_EQ(Check(), APP_UPDATE_OK) << Sentence();
}

struct WrongSetting {
    std::function<void(AppUpdateSettings& settings)> change;
    std::string sentence;
};

TEST_F(OpenedSession, NamesEachWrongSetting) {
    const wchar_t* const noKey = L"no key";
    const wchar_t* const keysWithNull[] = {keys[0], nullptr};
    const std::string address =
        "The feed's address must begin with https:// and hold only what may stand in a URL";
    const std::string count = "Between 1 and 16 public keys are wanted";
    const std::string version = "The running version must be four numbers with dots between them";
    const std::string channel =
        "The channel must be 1 to 32 lower-case letters, digits and hyphens";
    const std::vector<WrongSetting> wrong = {
        {[](auto& s) { s.size = 0; }, "The settings have a size of no version of the header"},
        {[](auto& s) { s.size += 8; }, "The settings have a size of no version of the header"},
        {[](auto& s) { s.flags = 2; }, "The settings have an unknown flag"},
        {[](auto& s) { s.feedAddress = nullptr; }, address},
        {[](auto& s) { s.feedAddress = L""; }, address},
        {[](auto& s) { s.feedAddress = L"http://example.com/feed"; }, address},
        {[](auto& s) { s.feedAddress = L"https://"; }, address},
        {[](auto& s) { s.feedAddress = L"https://example.com/a b"; }, address},
        {[](auto& s) { s.publicKeys = nullptr; }, count},
        {[](auto& s) { s.publicKeyCount = 0; }, count},
        {[](auto& s) { s.publicKeyCount = 17; }, count},
        {[&](auto& s) { s.publicKeys = &noKey; }, "Public key 1 of 1 is no P-256 key in PEM form"},
        {[&](auto& s) {
             s.publicKeys = keysWithNull;
             s.publicKeyCount = 2;
         },
         "Public key 2 of 2 is no P-256 key in PEM form"},
        {[](auto& s) { s.runningVersion = nullptr; }, version},
        {[](auto& s) { s.runningVersion = L"1.0.0"; }, version},
        {[](auto& s) { s.channel = L""; }, channel},
        {[](auto& s) { s.channel = L"Beta"; }, channel},
        {[](auto& s) { s.installDirectory = L"app"; },
         "The installation directory must be an absolute path"},
        {[](auto& s) { s.dataDirectory = L"\\data"; },
         "The data directory must be an absolute path"},
    };
    for (const WrongSetting& setting : wrong) {
        AppUpdateSettings changed = settings;
        setting.change(changed);
        auto* opened = reinterpret_cast<AppUpdateSession*>(&changed);
        EXPECT_EQ(AppUpdateOpen(&changed, &opened, &report), APP_UPDATE_INVALID_ARGUMENT);
        EXPECT_EQ(opened, nullptr);
        EXPECT_EQ(Sentence(), setting.sentence);
    }
    EXPECT_FALSE(PathExists(dataDirectory));
}

TEST_F(OpenedSession, IsRefusedWithoutSettingsOrAPlace) {
    AppUpdateSession* opened = nullptr;
    EXPECT_EQ(AppUpdateOpen(nullptr, &opened, &report), APP_UPDATE_INVALID_ARGUMENT);
    EXPECT_EQ(Sentence(), "There are no settings");
    EXPECT_EQ(AppUpdateOpen(&settings, nullptr, &report), APP_UPDATE_INVALID_ARGUMENT);
    EXPECT_EQ(Sentence(), "There is no place for the session");
}

TEST_F(OpenedSession, EndsWhereItsDirectoryCannotBe) {
    settings.dataDirectory = L"C:\\windows\\win.ini\\data";
    AppUpdateSession* opened = nullptr;
    EXPECT_EQ(AppUpdateOpen(&settings, &opened, &report), APP_UPDATE_FILE_ERROR);
    EXPECT_EQ(report.result, APP_UPDATE_FILE_ERROR);
    EXPECT_NE(report.systemError, 0U);
    EXPECT_THAT(Sentence(), testing::StartsWith("A file operation failed: C:\\windows\\win.ini"));
}

}  // namespace
}  // namespace updater
