// The input is, separated by zero bytes, the base name of the handshake events and then the names
// and values of the broker's options in turn.

#include <string>

#include "broker/worker_parameters.h"
#include "fuzz/fuzz_input.h"
#include "fuzz/oracle/command_line_splitting.h"
#include "fuzz/property.h"
#include "support/updater_arguments.h"

namespace updater {
namespace {

// A name is forwarded as it stands, so only such a one reaches the worker as itself.
bool IsForwardable(const std::wstring& name) {
    return !name.empty() && name.find_first_of(L" \t\"") == std::wstring::npos &&
           name != kWorkerFlag && name != kSelfTestFlag;
}

UpdaterArguments BrokerArguments(const std::vector<std::wstring>& pieces) {
    UpdaterArguments arguments = {{kBrokerFlag, L"1"}};
    for (std::size_t i = 1; i + 1 < pieces.size(); i += 2) {
        if (IsForwardable(pieces[i]) && pieces[i] != kBrokerFlag) {
            arguments[pieces[i]] = pieces[i + 1];
        }
    }
    return arguments;
}

std::vector<std::wstring> SplitWorkerCommandLine(const UpdaterArguments& arguments,
                                                 const std::wstring& eventBaseName) {
    return SplitArguments(L"updater.exe " + BuildWorkerParameters(arguments, eventBaseName));
}

// Whatever the names are, mode and events stand first.
void CheckHostileNames(const std::vector<std::wstring>& pieces, const std::wstring& eventBaseName) {
    UpdaterArguments arguments = BrokerArguments(pieces);
    for (std::size_t i = 1; i + 1 < pieces.size(); i += 2) {
        arguments[pieces[i]] = pieces[i + 1];
    }
    const std::vector<std::wstring> tokens = SplitWorkerCommandLine(arguments, eventBaseName);
    Require(tokens.size() >= 4 && tokens[1] == kWorkerFlag && tokens[2] == kEventOption &&
                tokens[3] == eventBaseName,
            "the command line begins with the mode and the events");
}

}  // namespace
}  // namespace updater

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using updater::Require;
    const std::vector<std::wstring> pieces =
        updater::PiecesOfText(updater::TextOfInput(data, size));
    const std::wstring eventBaseName = pieces.empty() ? std::wstring() : pieces.front();
    updater::UpdaterArguments expected = updater::BrokerArguments(pieces);

    const std::vector<std::wstring> tokens =
        updater::SplitWorkerCommandLine(expected, eventBaseName);
    Require(tokens.size() == 4 + 2 * (expected.size() - 1),
            "each option is one name and one value");

    const std::vector<std::wstring_view> views(tokens.begin(), tokens.end());
    expected.erase(updater::kBrokerFlag);
    expected[updater::kWorkerFlag] = L"1";
    // An option of this name that the broker was given itself stands later and wins.
    expected.try_emplace(updater::kEventOption, eventBaseName);
    Require(updater::ArgumentsFromTokens(views) == expected, "the worker reads the broker's map");

    updater::CheckHostileNames(pieces, eventBaseName);
    return 0;
}
