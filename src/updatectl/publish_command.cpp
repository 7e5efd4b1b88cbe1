#include <algorithm>
#include <filesystem>
#include <iterator>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "client/envelope.h"
#include "client/failure.h"
#include "client/feed.h"
#include "client/feed_judgement.h"
#include "client/signature.h"
#include "updatectl/command_options.h"
#include "updatectl/feed_options.h"
#include "updatectl/feed_text.h"
#include "updatectl/file_access.h"
#include "updatectl/file_replacement.h"
#include "updatectl/output.h"
#include "updatectl/progress_line.h"
#include "updatectl/signed_feed.h"
#include "updatectl/tool.h"

namespace updater {

namespace {

constexpr char kHelp[] =
    R"(Usage: <tool> publish SETUP --app <executable> --issue N --days N [OPTIONS]
       <tool> publish SETUP --signature FILE --key PUBLIC [--output DIR]

Makes the signed feed of a release in two steps. In between you sign, with whatever keeps your
private key: the tool never reads it.

The first step writes what the feed says to DIR\update-feed.payload, and the bytes that are to be
signed to DIR\update-feed.tbs. The signature is ECDSA on the curve P-256 with SHA-256, in DER:
  openssl dgst -sha256 -sign PRIVATE -out update-feed.sig update-feed.tbs

  --app <executable>   the executable that SETUP installs; its version is the release's
  --issue N            the feed's number: higher than that of all feeds of its channel before it
  --after FILE         instead: one more than that of this feed, which --key verifies
  --expires TIME       when applications cease to believe the feed, such as 2027-01-31T12:00:00Z
  --days N             instead: so many days after its publication
  --channel NAME       whom the feed is for; stable if not given
  --address URL        where SETUP is: absolute, or relative to the feed. If not given, SETUP's own
                       name, for a setup program that lies beside the feed
  --lowest VERSION     the lowest version that may update directly; if not given, any
  --share N            for how many percent of the machines the release is; 100 if not given
  --notes URL          the address of the release's notes
  --published TIME     when the feed is published; now if not given
  --output DIR         where to write; the current directory if not given

The second step makes DIR\update-feed.json of DIR\update-feed.payload and the signature. It writes
nothing unless the signature is the key's and fits, and SETUP is still as it was in the first step.

  --signature FILE     the signature
  --key PUBLIC         the public key, in PEM form

Publish SETUP first, then the feed.
)";

constexpr std::string_view kOperands[] = {"SETUP"};
constexpr std::wstring_view kSignatureOption = L"--signature";
constexpr std::wstring_view kOutputOption = L"--output";

constexpr wchar_t kPayloadFile[] = L"update-feed.payload";
constexpr wchar_t kToBeSignedFile[] = L"update-feed.tbs";
constexpr wchar_t kFeedFile[] = L"update-feed.json";

CommandOptions ReadPublishOptions(std::span<const std::wstring> tokens) {
    std::vector<std::wstring_view> names = {kSignatureOption, kKeyOption, kOutputOption};
    std::ranges::copy(FeedOptions(), std::back_inserter(names));
    CommandOptions options = ReadCommandOptions(tokens, {}, names);
    RequireOperands(options, kOperands);
    return options;
}

std::filesystem::path OutputDirectory(const CommandOptions& options) {
    return RequireDirectory(OptionalValue(options, kOutputOption).value_or(L"."));
}

void WritePayload(const CommandOptions& options) {
    if (options.values.contains(kKeyOption) && !options.values.contains(kAfterOption)) {
        throw UsageError("--key is for --signature or --after, and neither is given");
    }
    const Feed feed = FeedOf(options.operands.front(), options);
    const std::filesystem::path directory = OutputDirectory(options);
    const std::string payload = WriteFeed(feed);
    ReplaceContent(directory / kPayloadFile, payload);
    ReplaceContent(directory / kToBeSignedFile, PreAuthenticationEncoding(payload));
    PrintOutput(FeedText(feed, CurrentTime()) +
                "\nTo be signed: " + PrintableText((directory / kToBeSignedFile).native()) + "\n");
}

void RefuseFeedOptions(const CommandOptions& options) {
    const auto& names = FeedOptions();
    const auto given = std::ranges::find_if(
        names, [&](std::wstring_view name) { return options.values.contains(name); });
    if (given != names.end()) {
        throw UsageError(PrintableText(*given) +
                         " belongs to the first step, and --signature to the second");
    }
}

Feed ReadPayload(const std::filesystem::path& file, const std::string& payload) {
    try {
        Feed feed = ReadFeed(payload);
        if (HasExpired(feed, CurrentTime())) {
            RaiseUnusable(file, "the feed has expired at " + FeedTimeText(feed.expires));
        }
        return feed;
    } catch (const ClientFailure& failure) {
        RaiseUnusable(file, failure.what());
    }
}

void RequireSameSetup(const std::filesystem::path& setup, const Feed& feed) {
    [[maybe_unused]] const ProgressLine progress("Reading the setup program");
    const FileFacts facts = FactsOf(setup);
    if (facts.size != feed.size || facts.sha256 != feed.sha256) {
        RaiseUnusable(setup, "it is not the setup program of the first step, or has changed since");
    }
}

std::string SignedEnvelope(const std::string& payload, const std::filesystem::path& signatureFile,
                           const PublicKey& key) {
    constexpr std::size_t kLargestSignature = 4096;
    const std::string der = ContentOf(signatureFile, kLargestSignature);
    const std::optional<EcdsaSignature> signature = ReadEcdsaSignature(der);
    if (!signature) {
        RaiseUnusable(
            signatureFile,
            "it is no signature on the curve P-256 in DER, as 'openssl dgst -sha256 -sign' "
            "writes it");
    }
    if (!IsSignedBy(key, PreAuthenticationEncoding(payload), *signature)) {
        RaiseUnusable(signatureFile,
                      "the signature is of other bytes than update-feed.tbs of the first step, or "
                      "by another key than --key");
    }
    std::string envelope = MakeEnvelope(payload, key.id, der);
    // As applications will read it.
    if (OpenEnvelope(envelope, {&key, 1}) != payload) {
        throw std::logic_error("The feed does not hold what it was made of");
    }
    return envelope;
}

void WriteSignedFeed(const CommandOptions& options) {
    RefuseFeedOptions(options);
    const std::filesystem::path signature = OnlyValue(options, kSignatureOption);
    OnlyValue(options, kKeyOption);
    const PublicKey key = ReadKeys(options).front();
    const std::filesystem::path directory = OutputDirectory(options);
    const std::filesystem::path payloadFile = directory / kPayloadFile;
    const std::string payload = ContentOf(payloadFile, kLargestEnvelope);
    const Feed feed = ReadPayload(payloadFile, payload);
    RequireSameSetup(options.operands.front(), feed);
    ReplaceContent(directory / kFeedFile, SignedEnvelope(payload, signature, key));
    PrintOutput(FeedText(feed, CurrentTime()) +
                "\nFeed: " + PrintableText((directory / kFeedFile).native()) + "\n");
}

int RunPublish(std::span<const std::wstring> tokens) {
    const CommandOptions options = ReadPublishOptions(tokens);
    if (options.values.contains(kSignatureOption)) {
        WriteSignedFeed(options);
    } else {
        WritePayload(options);
    }
    return kToolDone;
}

}  // namespace

const ToolCommand kPublishCommand = {L"publish", kHelp, RunPublish};

}  // namespace updater
