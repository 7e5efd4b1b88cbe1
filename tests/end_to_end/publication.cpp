#include "end_to_end/publication.h"

#include <stdexcept>

#include "client/envelope.h"
#include "client/feed_judgement.h"
#include "fixtures/file_content.h"
#include "support/file_digest.h"
#include "support/file_system.h"
#include "support/text_conversion.h"

namespace updater {

namespace {

constexpr UnixTime kDay = 24LL * 60 * 60;

constexpr wchar_t kFeedFile[] = L"update-feed.json";

Feed DescribeRelease(const Publication& publication, const std::filesystem::path& setup,
                     const std::string& version, const std::string& query) {
    const std::wstring name = setup.filename().native() + Utf8ToWide(query);
    Feed feed;
    feed.version = ReadVersionNumber(version).value();
    feed.size = FileSize(setup);
    feed.sha256 = FileSha256Hex(setup);
    feed.address = WideToUtf8(publication.servers.Address(kUnruly, name));
    feed.issue = publication.issue;
    feed.published = CurrentTime();
    feed.expires = feed.published + kDay;
    feed.channel = "stable";
    return feed;
}

}  // namespace

void PublishRelease(Publication& publication, const std::filesystem::path& setup,
                    const std::string& version, const std::string& query) {
    ++publication.issue;
    const std::string payload = WriteFeed(DescribeRelease(publication, setup, version, query));
    const PublicKey key = ReadPublicKey(publication.key.publicText).value();
    publication.servers.Publish(setup.filename().native(), ReadFileContent(setup));
    publication.servers.Publish(
        kFeedFile, MakeEnvelope(payload, key.id,
                                SignMessage(publication.key, PreAuthenticationEncoding(payload))));
}

void TamperWithFeed(const Publication& publication) {
    std::string envelope = ReadFileContent(publication.servers.files / kFeedFile);
    constexpr std::string_view kPayload = "\"payload\":\"";
    const std::size_t payload = envelope.find(kPayload);
    if (payload == std::string::npos) {
        throw std::runtime_error("There is no payload in the feed");
    }
    // The base64 text of a letter or a digit within the payload, one bit of which changes.
    constexpr std::size_t kWithin = 40;
    char& changed = envelope[payload + kPayload.size() + kWithin];
    changed = changed == 'A' ? 'B' : 'A';
    publication.servers.Publish(kFeedFile, envelope);
}

FeedVariables::FeedVariables(const Publication& publication)
    : address(L"CORVELLAN_FEED_ADDRESS", publication.FeedAddress()),
      key(L"CORVELLAN_FEED_KEY", Utf8ToWide(publication.key.publicText)) {}

}  // namespace updater
