// Downloads from real servers, those that misbehave included.

#include "client/download.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <utility>
#include <vector>

#include "client/client_failures.h"
#include "client/download_fixture.h"
#include "support/file_system.h"
#include "support/json_text.h"
#include "support/text_conversion.h"
#include "support/windows_api.h"

namespace updater {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Pair;

constexpr std::size_t kSize = 1'000'000;

struct DownloadTest : DownloadFixture {
    DownloadTest() : DownloadFixture(kNginx, kSize) {
        servers->Publish(L"other.exe", std::string(kSize, 'o'));
    }

    DownloadedSetup Download() {
        return DownloadSetup(*transport, order, cancellation,
                             [this](std::uint64_t done, std::uint64_t total) {
                                 EXPECT_EQ(total, order.size);
                                 progress.push_back(done);
                                 if (onProgress) {
                                     onProgress(done);
                                 }
                             });
    }

    void ExpectDownload() {
        const DownloadedSetup setup = Download();
        EXPECT_EQ(setup.file, SetupPath(directory.path / L"downloads", order.sha256));
        EXPECT_TRUE(ReadFileContent(setup.file) == content);
        EXPECT_EQ(FileNames(), std::vector{setup.file.filename().native()});
        EXPECT_EQ(progress.back(), kSize);
    }

    void ExpectFailure(AppUpdateResult result, const std::string& text = "") {
        EXPECT_THAT([this] { Download(); }, RaisesResult(result, text));
    }

    [[nodiscard]] std::vector<std::wstring> FileNames() const {
        std::vector<std::wstring> names;
        for (const auto& [name, bytes] : ReadTreeContent(order.directory)) {
            names.push_back(name);
        }
        return names;
    }

    [[nodiscard]] std::filesystem::path Part(const wchar_t* extension = L".part") const {
        return SetupPath(order.directory, order.sha256).replace_extension(extension);
    }

    // What the unruly server was asked in this test: the status, and where the range began.
    [[nodiscard]] std::vector<std::string> Asked() const {
        std::vector<std::string> asked;
        for (const std::string& line : Requests()) {
            const std::size_t status = line.find(' ', line.find(' ') + 1) + 1;
            const std::size_t range = line.find("\"bytes=");
            asked.push_back(
                line.substr(status, line.find(' ', status) - status) +
                (range == std::string::npos
                     ? ""
                     : " from " + line.substr(range + 7, line.find('-', range) - range - 7)));
        }
        return asked;
    }

    // Leaves a part of the file as a broken download does.
    void LeavePart(const std::wstring& query = L"cut=600000&times=4") {
        OrderFrom(kUnruly, L"setup.exe?" + query + L"&in=" + std::to_wstring(GetTickCount64()) +
                               L"-" + std::to_wstring(++addresses));
        ExpectFailure(APP_UPDATE_NO_NETWORK);
        EXPECT_EQ(FileNames(),
                  (std::vector{Part(L".json").filename().native(), Part().filename().native()}));
        EXPECT_GT(FileSize(Part()), 0U);
        progress.clear();
        ForgetRequests();
    }

    // Lets the part that is there belong to another address of the unruly server.
    void GoOnFrom(const std::wstring& name) {
        const auto text = [this] { return JsonString(WideToUtf8(order.address)); };
        std::string origin = ReadFileContent(Part(L".json"));
        const std::size_t position = origin.find(text());
        const std::size_t length = text().size();
        OrderFrom(kUnruly, name + L"&in=" + std::to_wstring(++addresses));
        WriteFileContent(Part(L".json"), origin.replace(position, length, text()));
    }

    static inline int addresses = 0;
    std::vector<std::uint64_t> progress;
    std::function<void(std::uint64_t done)> onProgress;
};

TEST_F(DownloadTest, PutsAFileUnderItsDigest) {
    ExpectDownload();
    EXPECT_EQ(progress.front(), 0U);
    EXPECT_TRUE(std::ranges::is_sorted(progress));
    EXPECT_GT(progress.size(), 5U);
}

TEST_F(DownloadTest, NeedsNoCallback) {
    EXPECT_NO_THROW(DownloadSetup(*transport, order, cancellation, {}));
}

TEST_F(DownloadTest, AsksForACompleteFileNoMore) {
    ExpectDownload();
    OrderFrom(kUnruly, L"setup.exe");
    ExpectDownload();
    EXPECT_THAT(Asked(), IsEmpty());
}

TEST_F(DownloadTest, LetsNobodyWriteToTheFile) {
    {
        const DownloadedSetup setup = Download();
        const auto open = [&](DWORD access) {
            return OwnHandle(CreateFileW(setup.file.c_str(), access,
                                         FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                                         nullptr, OPEN_EXISTING, 0, nullptr)) != nullptr;
        };
        EXPECT_FALSE(open(GENERIC_WRITE));
        EXPECT_FALSE(open(DELETE));
        EXPECT_TRUE(open(GENERIC_READ));
    }
    EXPECT_NO_THROW(RemoveFile(SetupPath(order.directory, order.sha256)));
}

TEST_F(DownloadTest, LetsNobodyWriteToThePart) {
    onProgress = [this](std::uint64_t) {
        const UniqueHandle writer = OwnHandle(CreateFileW(
            Part().c_str(), GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
            nullptr, OPEN_EXISTING, 0, nullptr));
        EXPECT_EQ(writer, nullptr);
    };
    ExpectDownload();
}

TEST_F(DownloadTest, ReplacesADamagedFile) {
    WriteFileContent(SetupPath(order.directory, order.sha256), "damaged");
    ExpectDownload();
}

TEST_F(DownloadTest, LeavesADamagedFileNeither) {
    WriteFileContent(SetupPath(order.directory, order.sha256), "damaged");
    OrderFrom(kUnruly, L"missing.exe");
    ExpectFailure(APP_UPDATE_SERVER_ERROR, "status 404");
    EXPECT_THAT(FileNames(), IsEmpty());
}

TEST_F(DownloadTest, GoesOnAfterACutInTheSameCall) {
    OrderFrom(kUnruly, L"setup.exe?cut=600000&times=1");
    ExpectDownload();
    ASSERT_EQ(Asked().size(), 2U);
    EXPECT_EQ(Asked()[0], "200");
    EXPECT_THAT(Asked()[1], testing::MatchesRegex("206 from .*"));
}

TEST_F(DownloadTest, GoesOnInAnotherCallWithExactlyTheRest) {
    LeavePart();
    const std::uint64_t there = FileSize(Part());
    EXPECT_TRUE(ReadFileContent(Part()) == content.substr(0, there));
    ExpectDownload();
    EXPECT_THAT(Asked(), ElementsAre("206 from " + std::to_string(there)));
    EXPECT_EQ(progress.front(), there);
}

TEST_F(DownloadTest, GoesOnByTheTimeOfTheLastChange) {
    LeavePart(L"cut=600000&times=4&tag=time");
    EXPECT_THAT(ReadFileContent(Part(L".json")), HasSubstr("2026 10:00:00 GMT"));
    // Now with an entity tag, which it had not.
    ExpectDownload();
    EXPECT_THAT(Asked(), ElementsAre(testing::StartsWith("206 from ")));
}

TEST_F(DownloadTest, NeverGoesOnByAWeakTag) {
    LeavePart(L"cut=600000&times=4&tag=W/%22a%22");
    EXPECT_THAT(ReadFileContent(Part(L".json")), HasSubstr("\"condition\":\"Sun, "));
    ExpectDownload();
}

TEST_F(DownloadTest, KeepsNothingThatItCannotGoOnWith) {
    OrderFrom(kUnruly, L"setup.exe?cut=600000&tag=none");
    ExpectFailure(APP_UPDATE_NO_NETWORK);
    EXPECT_THAT(Asked(), ElementsAre("200", "200", "200", "200"));
    EXPECT_THAT(FileNames(), IsEmpty());
}

TEST_F(DownloadTest, TakesAWholeFileInPlaceOfTheRest) {
    OrderFrom(kUnruly, L"setup.exe?cut=600000&ignore=range");
    ExpectFailure(APP_UPDATE_NO_NETWORK);
    EXPECT_THAT(Asked(),
                ElementsAre("200", testing::StartsWith("200 from "),
                            testing::StartsWith("200 from "), testing::StartsWith("200 from ")));
    EXPECT_TRUE(content.starts_with(ReadFileContent(Part())));
}

TEST_F(DownloadTest, StartsAfreshWhereTheFileHasChanged) {
    OrderFrom(kUnruly, L"setup.exe?file=other.exe&cut=600000&times=1");
    ExpectDownload();
    EXPECT_THAT(Asked(), ElementsAre("200", testing::StartsWith("200 from ")));
}

// The rest would fit: what the server says of it is all that tells.
TEST_F(DownloadTest, StartsAfreshWhereTheRestIsSaidToBeOfAnotherState) {
    for (const auto& [there, rest] : {
             std::pair(L"", L"tag=%22b%22"),
             std::pair(L"", L"tag=time"),
             std::pair(L"&tag=time", L"modified=Mon,%2002%20Mar%202026%2010:00:00%20GMT"),
             std::pair(L"&tag=time", L"tag=time&modified=Mon,%2002%20Mar%202026%2010:00:00%20GMT"),
         }) {
        SCOPED_TRACE(testing::PrintToString(rest));
        LeavePart(std::wstring(L"cut=600000&times=4") + there);
        GoOnFrom(std::wstring(L"setup.exe?ignore=condition&") + rest);
        ExpectDownload();
        EXPECT_THAT(Asked(), ElementsAre(testing::StartsWith("206 from "), "200"));
        RemoveFile(SetupPath(order.directory, order.sha256));
    }
}

TEST_F(DownloadTest, GoesOnWhereTheRestIsSaidToBeOfNoState) {
    LeavePart();
    GoOnFrom(L"setup.exe?ignore=condition&tag=none");
    ExpectDownload();
    EXPECT_THAT(Asked(), ElementsAre(testing::StartsWith("206 from ")));
}

// It says the same of both: the digest is what finds it out.
TEST_F(DownloadTest, StartsAfreshWhereTheRestIsOfAnotherFile) {
    LeavePart(L"file=other.exe&cut=600000&times=4&tag=%22a%22");
    GoOnFrom(L"setup.exe?tag=%22a%22");
    ExpectDownload();
    EXPECT_THAT(Asked(), ElementsAre(testing::StartsWith("206 from "), "200"));
}

TEST_F(DownloadTest, StartsAfreshOnceWhenTheDigestIsWrongAfterGoingOn) {
    LeavePart();
    std::string damaged = ReadFileContent(Part());
    damaged[1000] ^= 1;
    WriteFileContent(Part(), damaged);
    ExpectDownload();
    EXPECT_THAT(Asked(), ElementsAre(testing::StartsWith("206 from "), "200"));
}

TEST_F(DownloadTest, StartsAfreshOnceAlsoWhenItWentOnInTheSameCall) {
    OrderFrom(kUnruly, L"setup.exe?wrong=0&cut=600000&times=1");
    ExpectDownload();
    EXPECT_THAT(Asked(), ElementsAre("200", testing::StartsWith("206 from "), "200"));
}

TEST_F(DownloadTest, AsksNobodyForAPartThatIsComplete) {
    LeavePart();
    WriteFileContent(Part(), content);
    ExpectDownload();
    EXPECT_THAT(Asked(), IsEmpty());
}

TEST_F(DownloadTest, StartsAfreshWithAPartThatIsTooLong) {
    LeavePart();
    WriteFileContent(Part(), content + "x");
    ExpectDownload();
    EXPECT_THAT(Asked(), ElementsAre("200"));
}

TEST_F(DownloadTest, StartsAfreshWhenThePartIsOfSomethingElse) {
    for (
        const char* origin :
        {"", "damaged", "{}", R"({"address":"ADDRESS"})",
         R"({"address":"https://localhost/","condition":"\"a\"","size":1000000,"sha256":"DIGEST"})",
         R"({"address":"ADDRESS","condition":"\"a\"","size":1000001,"sha256":"DIGEST"})",
         R"({"address":"ADDRESS","condition":"\"a\"","size":1000000,"sha256":"0"})",
         R"({"address":"ADDRESS","condition":"a\r\nHost: b","size":1000000,"sha256":"DIGEST"})",
         R"({"address":"ADDRESS","condition":1,"size":1000000,"sha256":"DIGEST"})"}) {
        SCOPED_TRACE(origin);
        LeavePart();
        std::string text(origin);
        const auto fill = [&text](const std::string& word, const std::string& value) {
            if (const std::size_t position = text.find(word); position != std::string::npos) {
                text.replace(position, word.size(), value);
            }
        };
        fill("ADDRESS", WideToUtf8(order.address));
        fill("DIGEST", order.sha256);
        WriteFileContent(Part(L".json"), text);
        ExpectDownload();
        EXPECT_THAT(Asked(), ElementsAre("200"));
        RemoveFile(SetupPath(order.directory, order.sha256));
    }
}

struct Ending {
    const wchar_t* name;
    AppUpdateResult result;
    const char* text;
    std::size_t requests;
};

TEST_F(DownloadTest, EndsAsItsCodeSaysAndLeavesNothing) {
    const std::vector<Ending> endings = {
        {L"setup.exe?more=1", APP_UPDATE_WRONG_SIZE, "1000001 instead of 1000000 bytes", 1},
        {L"setup.exe?less=1", APP_UPDATE_WRONG_SIZE, "999999 instead of 1000000 bytes", 1},
        {L"setup.exe?unannounced=1", APP_UPDATE_WRONG_SIZE, "more instead of 1000000 bytes", 1},
        {L"setup.exe?unannounced=5000000", APP_UPDATE_WRONG_SIZE, "more instead of 1000000 bytes",
         1},
        {L"setup.exe?wrong=0", APP_UPDATE_WRONG_DIGEST, "digest differs", 1},
        {L"setup.exe?wrong=999999", APP_UPDATE_WRONG_DIGEST, "digest differs", 1},
        {L"setup.exe?file=other.exe", APP_UPDATE_WRONG_DIGEST, "digest differs", 1},
        {L"missing.exe", APP_UPDATE_SERVER_ERROR, "missing.exe, status 404", 1},
        {L"setup.exe?status=206", APP_UPDATE_SERVER_ERROR, "status 206", 1},
        {L"setup.exe?status=416", APP_UPDATE_SERVER_ERROR, "status 416", 1},
        {L"setup.exe?status=403", APP_UPDATE_SERVER_ERROR, "status 403", 1},
        {L"setup.exe?status=407", APP_UPDATE_SERVER_ERROR, "proxy wants a login", 1},
        {L"setup.exe?status=302", APP_UPDATE_SERVER_ERROR, "status 302", 1},
        {L"setup.exe?status=408", APP_UPDATE_SERVER_ERROR, "status 408", 4},
        {L"setup.exe?status=429", APP_UPDATE_SERVER_ERROR, "status 429", 4},
        {L"setup.exe?status=500", APP_UPDATE_SERVER_ERROR, "status 500", 4},
        {L"setup.exe?status=503", APP_UPDATE_SERVER_ERROR, "status 503", 4},
        {L"setup.exe?cut=0", APP_UPDATE_NO_NETWORK, "it broke", 4},
        {L"setup.exe?redirect=http://localhost/", APP_UPDATE_REDIRECT_REFUSED, "", 1},
        {L"setup.exe?chain=9", APP_UPDATE_REDIRECT_REFUSED, "", 6},
    };
    for (const auto& [name, result, text, requests] : endings) {
        SCOPED_TRACE(testing::PrintToString(name));
        OrderFrom(kUnruly, name);
        ForgetRequests();
        ExpectFailure(result, text);
        EXPECT_EQ(Asked().size(), requests);
        EXPECT_THAT(FileNames(), IsEmpty());
    }
}

TEST_F(DownloadTest, EndsAtOnceAtARefusedCertificate) {
    for (const char* server : {kForeign, kExpired, kMisnamed}) {
        OrderFrom(server, L"setup.exe");
        ExpectFailure(APP_UPDATE_CERTIFICATE_REFUSED);
        EXPECT_THAT(FileNames(), IsEmpty());
    }
}

TEST_F(DownloadTest, TakesTheFileFromAServerThatHasRecovered) {
    for (const wchar_t* name : {L"setup.exe?status=500&times=1", L"setup.exe?status=503&times=3",
                                L"setup.exe?cut=0&times=3", L"setup.exe?status=429&times=2"}) {
        SCOPED_TRACE(testing::PrintToString(name));
        OrderFrom(kUnruly, name);
        ExpectDownload();
        RemoveFile(SetupPath(order.directory, order.sha256));
        progress.clear();
    }
}

// What there is by then counts for the bytes, not for the tries.
TEST_F(DownloadTest, TriesNoMoreThanFourTimesHoweverFarItGets) {
    OrderFrom(kUnruly, L"setup.exe?advance=200000");
    ExpectFailure(APP_UPDATE_NO_NETWORK);
    ASSERT_EQ(Asked().size(), 4U);
    EXPECT_GT(FileSize(Part()), 600'000U);
}

TEST_F(DownloadTest, TakesOneFreshStartForARestThatIsNone) {
    for (const wchar_t* query : {L"status=416", L"status=206", L"shift=1", L"shift=-1"}) {
        SCOPED_TRACE(testing::PrintToString(query));
        LeavePart();
        GoOnFrom(std::wstring(L"setup.exe?") + query + L"&times=1");
        ExpectDownload();
        ASSERT_EQ(Asked().size(), 2U);
        EXPECT_THAT(Asked()[0], HasSubstr(" from "));
        EXPECT_EQ(Asked()[1], "200");
        RemoveFile(SetupPath(order.directory, order.sha256));
    }
}

TEST_F(DownloadTest, KeepsAPartWhenItIsCancelledAndGoesOnLater) {
    OrderFrom(kUnruly, L"setup.exe");
    onProgress = [this](std::uint64_t done) {
        if (done > 300'000) {
            RequestCancellation(cancellation);
        }
    };
    ExpectFailure(APP_UPDATE_CANCELLED);
    const std::uint64_t there = FileSize(Part());
    EXPECT_GT(there, 300'000U);
    EXPECT_LT(there, kSize);
    onProgress = nullptr;
    progress.clear();
    ExpectDownload();
    EXPECT_THAT(Asked(), ElementsAre("200", "206 from " + std::to_string(there)));
}

TEST_F(DownloadTest, EndsBeforeItAsksAndWhileItVerifiesWhenItIsCancelled) {
    RequestCancellation(cancellation);
    OrderFrom(kUnruly, L"setup.exe");
    ExpectFailure(APP_UPDATE_CANCELLED);
    EXPECT_FALSE(PathExists(order.directory));
    LeavePart();
    WriteFileContent(Part(), content);
    onProgress = [this](std::uint64_t) { RequestCancellation(cancellation); };
    ExpectFailure(APP_UPDATE_CANCELLED);
    EXPECT_EQ(FileSize(Part()), kSize);
    EXPECT_THAT(Asked(), IsEmpty());
}

TEST_F(DownloadTest, SaysWhichFileItCannotWrite) {
    WriteFileContent(order.directory, "no directory");
    ExpectFailure(APP_UPDATE_FILE_ERROR, "Cannot write ");
    RemoveFile(order.directory);
    const UniqueHandle other =
        (CreateDirectories(order.directory),
         OwnHandle(CreateFileW(Part().c_str(), GENERIC_WRITE, FILE_SHARE_READ, nullptr, CREATE_NEW,
                               0, nullptr)));
    ExpectFailure(APP_UPDATE_FILE_ERROR, "Cannot write ");
}

TEST_F(DownloadTest, SaysWhenThereIsNoSpace) {
    order.size = std::uint64_t{1} << 60U;
    ExpectFailure(APP_UPDATE_DISK_FULL, "1152921504606846976 bytes are needed, ");
    EXPECT_THAT(FileNames(), IsEmpty());
}

}  // namespace
}  // namespace updater
