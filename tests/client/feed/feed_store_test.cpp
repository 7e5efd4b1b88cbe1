#include "client/feed_store.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <map>
#include <regex>
#include <string>
#include <vector>

#include "client/client_failures.h"
#include "client/whole_file.h"
#include "fixtures/file_content.h"
#include "fixtures/held_file.h"
#include "fixtures/temporary_directory.h"

namespace updater {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::Key;

constexpr wchar_t kState[] = L"update-state.json";
constexpr wchar_t kEnvelope[] = L"update-feed.json";

FeedStore SampleStore() {
    return {.installation = "{6E2D1C4A-0000-4000-8000-00000000003E}",
            .issues = {{"beta", 4294967295}, {"stable", 7}},
            .feedAddress = "https://updates.example.com/update-feed.json",
            .entityTag = "W/\"5f-\\x\"",
            .envelope = "{\"payload\":\"\"}"};
}

// printf '{"payload":""}' | sha256sum
const std::string kSampleState =
    R"({"installation":"{6E2D1C4A-0000-4000-8000-00000000003E}",)"
    R"("issues":{"beta":4294967295,"stable":7},)"
    R"("feedAddress":"https://updates.example.com/update-feed.json",)"
    R"("entityTag":"W/\"5f-\\x\"",)"
    R"("feedSha256":"22faa0df107beb5ba68a18c480ec75066cbd8af74238e2dafaeeae3e5d4c272f"})";

void ExpectSame(const FeedStore& store, const FeedStore& other) {
    EXPECT_EQ(store.installation, other.installation);
    EXPECT_EQ(store.issues, other.issues);
    EXPECT_EQ(store.feedAddress, other.feedAddress);
    EXPECT_EQ(store.entityTag, other.entityTag);
    EXPECT_EQ(store.envelope, other.envelope);
    EXPECT_EQ(store.wasDamaged, other.wasDamaged);
}

void ExpectNew(const FeedStore& store, const std::string& envelope = "") {
    const std::regex identity("\\{[0-9A-F]{8}(-[0-9A-F]{4}){3}-[0-9A-F]{12}\\}");
    EXPECT_TRUE(std::regex_match(store.installation, identity)) << store.installation;
    EXPECT_NE(store.installation, SampleStore().installation);
    EXPECT_THAT(store.issues, IsEmpty());
    EXPECT_EQ(store.feedAddress + store.entityTag, "");
    EXPECT_EQ(store.envelope, envelope);
}

struct FeedStoreFiles : testing::Test {
    void WriteState(std::string_view content) const {
        WriteFileContent(data.path / kState, content);
    }

    // What is read when the state is damaged is as good as new, and says so; the envelope has its
    // signature.
    void ExpectDamagedState(std::string_view content) const {
        WriteState(content);
        const FeedStore store = ReadFeedStore(data.path);
        SCOPED_TRACE(content);
        ExpectNew(store, SampleStore().envelope);
        EXPECT_TRUE(store.wasDamaged);
    }

    TemporaryDirectory data;
};

std::string Replaced(std::string text, std::string_view part, std::string_view replacement) {
    const std::size_t place = text.find(part);
    EXPECT_NE(place, std::string::npos) << part;
    return text.replace(place, part.size(), replacement);
}

TEST_F(FeedStoreFiles, AnEmptyDirectoryHasANewStoreWithItsOwnNumber) {
    const FeedStore store = ReadFeedStore(data.path);
    ExpectNew(store);
    EXPECT_FALSE(store.wasDamaged);
    EXPECT_NE(ReadFeedStore(data.path).installation, store.installation);
    EXPECT_THAT(ReadTreeContent(data.path), IsEmpty()) << "reading writes nothing";
    ExpectNew(ReadFeedStore(data.path / L"missing"));
}

TEST_F(FeedStoreFiles, WhatIsWrittenIsRead) {
    WriteFeedStore(data.path, SampleStore());
    EXPECT_THAT(ReadTreeContent(data.path), ElementsAre(Key(kEnvelope), Key(kState)));
    EXPECT_EQ(ReadFileContent(data.path / kState), kSampleState);
    EXPECT_EQ(ReadFileContent(data.path / kEnvelope), SampleStore().envelope);
    ExpectSame(ReadFeedStore(data.path), SampleStore());
}

TEST_F(FeedStoreFiles, ANewStoreGoesThroughItsFiles) {
    const FeedStore store = ReadFeedStore(data.path);
    WriteFeedStore(data.path, store);
    ExpectSame(ReadFeedStore(data.path), store);
}

TEST_F(FeedStoreFiles, WhatIsWrittenReplacesWhatWasThere) {
    WriteFeedStore(data.path, SampleStore());
    FeedStore store = SampleStore();
    store.issues["stable"] = 8;
    store.envelope.clear();
    store.entityTag.clear();
    WriteFeedStore(data.path, store);
    ExpectSame(ReadFeedStore(data.path), store);
}

TEST_F(FeedStoreFiles, TheMarkOfDamageIsNotKept) {
    FeedStore store = SampleStore();
    store.wasDamaged = true;
    WriteFeedStore(data.path, store);
    EXPECT_FALSE(ReadFeedStore(data.path).wasDamaged);
}

TEST_F(FeedStoreFiles, AnEntityTagThatIsNoneForARequestIsNotKept) {
    for (const std::string& tag :
         {std::string("\"a\"\r\nHost: b"), std::string("\x7F"), std::string("\xC3\xA9"),
          std::string("\xFF"), std::string(1025, 'x')}) {
        FeedStore store = SampleStore();
        store.entityTag = tag;
        WriteFeedStore(data.path, store);
        store.entityTag.clear();
        ExpectSame(ReadFeedStore(data.path), store);
    }
    FeedStore store = SampleStore();
    store.entityTag = std::string(1024, '~');
    WriteFeedStore(data.path, store);
    ExpectSame(ReadFeedStore(data.path), store);
}

TEST_F(FeedStoreFiles, ADamagedStateIsMadeAnew) {
    WriteFeedStore(data.path, SampleStore());
    for (const std::string& content :
         {std::string(),
          std::string(kSampleState.size(), '\0'),
          std::string("\xFF\xFE"),
          std::string("[]"),
          std::string("{}"),
          kSampleState.substr(1),
          kSampleState.substr(0, kSampleState.size() - 1),
          kSampleState + "x",
          kSampleState + kSampleState,
          "\xEF\xBB\xBF" + kSampleState,
          kSampleState + std::string(1024UL * 1024UL, ' '),
          Replaced(kSampleState, "installation", "x"),
          Replaced(kSampleState, "{6E2D", "{6e2d"),
          Replaced(kSampleState, "{6E2D", "6E2D"),
          Replaced(kSampleState, "3E}", "3G}"),
          Replaced(kSampleState, "3E}\"", "3E} \""),
          Replaced(kSampleState, "\"{6E2D1C4A-0000-4000-8000-00000000003E}\"", "0"),
          Replaced(kSampleState, "issues", "x"),
          Replaced(kSampleState, "{\"beta\":4294967295,\"stable\":7}", "[]"),
          Replaced(kSampleState, ":7}", ":0}"),
          Replaced(kSampleState, ":7}", ":-7}"),
          Replaced(kSampleState, ":7}", ":7.0}"),
          Replaced(kSampleState, ":7}", ":\"7\"}"),
          Replaced(kSampleState, "4294967295", "4294967296"),
          Replaced(kSampleState, "beta", "Beta"),
          Replaced(kSampleState, "beta", "stable")}) {
        ExpectDamagedState(content);
    }
}

// The number of the installation and the issues are worth keeping.
TEST_F(FeedStoreFiles, WhereTheEnvelopeDoesNotFitOnlyThatIsDropped) {
    FeedStore expected = SampleStore();
    expected.feedAddress.clear();
    expected.entityTag.clear();
    expected.envelope.clear();
    expected.wasDamaged = true;
    WriteFeedStore(data.path, SampleStore());
    for (const std::string& envelope :
         {std::string(), std::string("{\"payload\":\" \"}"), SampleStore().envelope + '\n',
          std::string(3UL * 1024UL * 1024UL, ' ')}) {
        WriteFileContent(data.path / kEnvelope, envelope);
        ExpectSame(ReadFeedStore(data.path), expected);
    }
    std::filesystem::remove(data.path / kEnvelope);
    ExpectSame(ReadFeedStore(data.path), expected);
    WriteFileContent(data.path / kEnvelope, SampleStore().envelope);
    for (const std::string& state :
         {Replaced(kSampleState, "feedAddress", "x"), Replaced(kSampleState, "entityTag", "x"),
          Replaced(kSampleState, "feedSha256", "x"), Replaced(kSampleState, "W/", "W\\n"),
          Replaced(kSampleState, "\"W/\\\"5f-\\\\x\\\"\"", "1"),
          Replaced(kSampleState, "22faa0df107beb5ba68a18c480ec75066cbd8af74238e2dafaeeae3e5d4c272f",
                   std::string(64, '0'))}) {
        WriteState(state);
        ExpectSame(ReadFeedStore(data.path), expected);
    }
}

TEST_F(FeedStoreFiles, AnEnvelopeWithoutAStateIsHalfAStore) {
    WriteFeedStore(data.path, SampleStore());
    std::filesystem::remove(data.path / kState);
    const FeedStore store = ReadFeedStore(data.path);
    ExpectNew(store, SampleStore().envelope);
    EXPECT_TRUE(store.wasDamaged);
}

TEST_F(FeedStoreFiles, AnyDamageOfTheStateIsSurvived) {
    WriteFeedStore(data.path, SampleStore());
    for (std::size_t place = 0; place < kSampleState.size(); ++place) {
        for (const char value : {'\0', '"', '}', '9', '\x80'}) {
            std::string content = kSampleState;
            content[place] = value;
            WriteState(content);
            const FeedStore store = ReadFeedStore(data.path);
            ASSERT_EQ(store.installation.size(), SampleStore().installation.size());
            ASSERT_TRUE(store.envelope.empty() || store.envelope == SampleStore().envelope);
        }
    }
}

TEST_F(FeedStoreFiles, AStoreThatCannotBeReadIsNotReplaced) {
    WriteFeedStore(data.path, SampleStore());
    for (const wchar_t* name : {kState, kEnvelope}) {
        const UniqueHandle hold = HoldFile(data.path / name);
        EXPECT_THAT([this] { ReadFeedStore(data.path); },
                    RaisesResult(APP_UPDATE_FILE_ERROR, "Cannot read ", ERROR_SHARING_VIOLATION));
    }
    std::filesystem::remove(data.path / kState);
    std::filesystem::create_directory(data.path / kState);
    EXPECT_THAT([this] { ReadFeedStore(data.path); }, RaisesResult(APP_UPDATE_FILE_ERROR));
}

TEST_F(FeedStoreFiles, AMissingDirectoryIsNotMade) {
    EXPECT_THAT(
        [this] { WriteFeedStore(data.path / L"missing", SampleStore()); },
        RaisesResult(APP_UPDATE_FILE_ERROR, "missing\\update-state.json", ERROR_PATH_NOT_FOUND));
}

TEST(ReadFileUpTo, GivesLittleMoreThanItsLimit) {
    const TemporaryDirectory directory;
    const std::filesystem::path file = directory.path / L"file";
    EXPECT_EQ(ReadFileUpTo(file, 10), std::nullopt);
    EXPECT_EQ(ReadFileUpTo(directory.path / L"missing" / L"file", 10), std::nullopt);
    for (const std::size_t size : {0, 9, 10, 65536, 65537, 200000}) {
        const std::string content = PatternOfSize(size);
        WriteFileContent(file, content);
        EXPECT_EQ(ReadFileUpTo(file, size), content);
    }
    EXPECT_EQ(ReadFileUpTo(file, 10)->size(), 65536U);
}

TEST(ReplaceWholeFile, LeavesNothingBesideTheFile) {
    const TemporaryDirectory directory;
    for (const std::string& content :
         {std::string("first"), std::string(), PatternOfSize(200000)}) {
        ReplaceWholeFile(directory.path / L"file", content);
        EXPECT_EQ(ReadTreeContent(directory.path),
                  (std::map<std::wstring, std::string>{{L"file", content}}));
    }
}

TEST(ReplaceWholeFile, NamesItsDraftsSoThatTheyAreKnown) {
    for (const wchar_t* name : {L"file.1-2.tmp", L"file.0123456789-9876543210.tmp"}) {
        EXPECT_TRUE(IsDraftOf(L"file", name)) << testing::PrintToString(name);
    }
    for (const wchar_t* name :
         {L"", L"file", L"file.tmp", L"file.1.tmp", L"file.1-.tmp", L"file.-2.tmp", L"file1-2.tmp",
          L"file.1-2", L"file.1-2.tmp2", L"file.1-2.3.tmp", L"file.1-a.tmp", L"file.:-2.tmp",
          L"file.1-2.TMP", L"file.1-2-3.tmp", L"a.1-2.tmp", L"a file.1-2.tmp"}) {
        EXPECT_FALSE(IsDraftOf(L"file", name)) << testing::PrintToString(name);
    }
}

TEST(TakeLockFile, GivesTheFileToOneAtATimeAndLeavesNothing) {
    const TemporaryDirectory directory;
    for (int round = 0; round < 2; ++round) {
        const UniqueHandle lock = TakeLockFile(directory.path / L"lock");
        EXPECT_NE(lock, nullptr);
        EXPECT_THAT([&] { HoldFile(directory.path / L"lock", GENERIC_READ, 7); },
                    testing::Throws<std::runtime_error>());
    }
    EXPECT_THAT(ReadTreeContent(directory.path), IsEmpty());
    EXPECT_EQ(TakeLockFile(directory.path / L"missing" / L"lock"), nullptr);
}

}  // namespace
}  // namespace updater
