#include "end_to_end/publisher.h"

#include <sstream>
#include <stdexcept>
#include <string_view>
#include <vector>

#include "end_to_end/build_outputs.h"
#include "fixtures/file_content.h"
#include "fixtures/host_script.h"
#include "fixtures/release_tool.h"
#include "support/argument_quoting.h"
#include "support/file_system.h"
#include "support/text_conversion.h"

namespace updater {

namespace {

constexpr wchar_t kFeedFile[] = L"update-feed.json";
constexpr wchar_t kSignatureFile[] = L"update-feed.sig";
constexpr wchar_t kPublicKeyFile[] = L"update-key.pub.pem";

constexpr char kMakeKeys[] =
    "openssl ecparam -name prime256v1 -genkey -noout -out update-key.pem\n"
    "openssl pkey -in update-key.pem -pubout -out update-key.pub.pem\n";
constexpr char kSign[] =
    "openssl dgst -sha256 -sign update-key.pem -out update-feed.sig update-feed.tbs";

void Announce(const Publisher& publisher, const std::string& command) {
    if (publisher.onCommand) {
        publisher.onCommand(command);
    }
}

// Plain words stand as one would type them.
std::wstring TypedArgument(const std::wstring& argument) {
    return argument.find_first_of(L" &") == std::wstring::npos ? argument : QuoteArgument(argument);
}

void RunTool(const Publisher& publisher, const std::vector<std::wstring>& arguments) {
    std::wstring command = ReleaseTool().stem();
    for (const std::wstring& argument : arguments) {
        command += L' ' + TypedArgument(argument);
    }
    Announce(publisher, WideToUtf8(command));
    const ToolResult result = CallToolAt(ReleaseTool(), arguments, publisher.desk);
    if (result.exitCode != 0) {
        throw std::runtime_error("Nothing is published: " + result.error);
    }
}

void Sign(const Publisher& publisher) {
    Announce(publisher, kSign);
    RunHostScript(publisher.desk, kSign);
}

}  // namespace

Publisher::Publisher() {
    CreateDirectories(desk);
    RunHostScript(desk, kMakeKeys);
}

std::string Publisher::PublicKeyText() const {
    std::istringstream lines(ReadFileContent(desk / kPublicKeyFile));
    std::string text;
    for (std::string line; std::getline(lines, line);) {
        text += line.starts_with("-----") ? "" : line;
    }
    return text;
}

void PublishRelease(Publisher& publisher, const std::wstring& setup, const std::wstring& program,
                    const std::wstring& query) {
    const std::wstring setupFile = setup + L".exe";
    CopyOverFile(SetupProgram(setup), publisher.desk / setupFile);
    const std::wstring executable = ExecutableName();
    CopyOverFile(ProgramDirectory(program) / executable, publisher.desk / executable);
    ++publisher.issue;
    RunTool(publisher, {L"publish", setupFile, L"--app", executable, L"--issue",
                        std::to_wstring(publisher.issue), L"--days", L"30", L"--address",
                        publisher.servers.Address(kUnruly, setupFile + query)});
    Sign(publisher);
    RunTool(publisher,
            {L"publish", setupFile, L"--signature", kSignatureFile, L"--key", kPublicKeyFile});
    // The feed last: whoever reads it finds what it offers.
    for (const std::wstring& file : {setupFile, std::wstring(kFeedFile)}) {
        publisher.servers.Publish(file, ReadFileContent(publisher.desk / file));
    }
}

void TamperWithFeed(const Publisher& publisher) {
    std::string envelope = ReadFileContent(publisher.servers.files / kFeedFile);
    constexpr std::string_view kPayload = "\"payload\":\"";
    const std::size_t payload = envelope.find(kPayload);
    if (payload == std::string::npos) {
        throw std::runtime_error("There is no payload in the feed");
    }
    // The base64 text of a letter or a digit within the payload, one bit of which changes.
    constexpr std::size_t kWithin = 40;
    char& changed = envelope[payload + kPayload.size() + kWithin];
    changed = changed == 'A' ? 'B' : 'A';
    publisher.servers.Publish(kFeedFile, envelope);
}

FeedVariables::FeedVariables(const Publisher& publisher)
    : address(L"CORVELLAN_FEED_ADDRESS", publisher.FeedAddress()),
      key(L"CORVELLAN_FEED_KEY", Utf8ToWide(publisher.PublicKeyText())) {}

}  // namespace updater
