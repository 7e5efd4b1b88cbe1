#include <algorithm>
#include <cstddef>
#include <exception>
#include <iterator>
#include <set>
#include <system_error>

#include "snapshot/inventory_entry.h"
#include "snapshot/program_verification.h"
#include "support/text_conversion.h"
#include "updatectl/command_options.h"
#include "updatectl/file_access.h"
#include "updatectl/file_names.h"
#include "updatectl/json_text.h"
#include "updatectl/output.h"
#include "updatectl/program_tree.h"
#include "updatectl/progress_line.h"
#include "updatectl/tool.h"

namespace updater {

namespace {

constexpr char kHelp[] =
    R"(Usage: <tool> verify DIR [--json]

Checks the program in DIR against the list DIR\program-files.tsv as the updater does after an
installation, by the same rules and with the same messages, but to the end: every difference is
shown with its line in the list. Files that the list does not name (the user's own, for example)
are no difference; they are shown for information.

  --json   print the result as JSON: "matches", "listed" (how many), "differences" (each with its
           "message", its "line" and "path", and for a file that cannot be read the "reason"; line 0
           is the list as a whole) and "notListed"

The exit code is 0 only if there is no difference.
)";

constexpr std::string_view kOperands[] = {"DIR"};

struct Difference {
    /// 0 when it is the list as a whole.
    std::size_t line = 0;
    std::wstring path;
    /// The updater's.
    std::string message;
    /// Why the file cannot be read, in the system's words; empty if it can.
    std::string reason;
};

struct Verification {
    std::size_t lines = 0;
    std::vector<Difference> differences;
    // What the list names, in a form to compare by.
    std::set<std::wstring> listed;
    std::vector<std::wstring> notListed;
};

// The spelling that all paths to the same file share.
std::wstring ComparedPath(const std::wstring& path) {
    return FoldCase(std::filesystem::path(path).lexically_normal().make_preferred().native());
}

std::string ReasonUnreadable(const std::filesystem::path& directory, const std::wstring& path) {
    if (path.empty()) {
        return {};
    }
    try {
        CheckInventoryPath(path);
        OpenForReading(AppendInventoryPath(directory.native(), path));
        return {};
    } catch (const std::system_error& failure) {
        return failure.code().message();
    } catch (const std::exception&) {
        // A path that the updater does not follow.
        return {};
    }
}

void CheckLine(const std::filesystem::path& directory, const std::string& line,
               Verification& verification) {
    ++verification.lines;
    const std::size_t tab = line.find('\t');
    const std::wstring path =
        tab == std::string::npos ? std::wstring() : Utf8ToWide(line.substr(0, tab));
    verification.listed.insert(ComparedPath(path));
    try {
        VerifyInventoryLine(directory, line);
    } catch (const std::exception& failure) {
        verification.differences.push_back(
            {verification.lines, path, failure.what(), ReasonUnreadable(directory, path)});
    }
}

void FindFilesNotListed(const std::filesystem::path& directory, Verification& verification) {
    const ProgramTree tree = ListProgramTree(directory, [](const std::wstring&) { return false; });
    const auto note = [&verification](const std::wstring& path) {
        if (!verification.listed.contains(FoldCase(path))) {
            verification.notListed.push_back(path);
        }
    };
    for (const std::filesystem::path& file : tree.files) {
        note(file.native());
    }
    for (const TreeFault& entry : tree.faults) {
        note(entry.relativePath);
    }
    std::ranges::sort(verification.notListed);
}

Verification VerifyToTheEnd(const std::filesystem::path& directory) {
    Verification verification;
    const ProgressLine progress("Checking the program");
    try {
        VisitInventory(directory,
                       [&](const std::string& line) { CheckLine(directory, line, verification); });
    } catch (const std::exception& failure) {
        verification.differences.push_back({0, {}, failure.what(), {}});
    }
    // Without a list every file would be one that it does not name.
    if (verification.lines > 0) {
        FindFilesNotListed(directory, verification);
    }
    return verification;
}

std::string TextOf(const Difference& difference) {
    std::wstring text = Utf8ToWide(difference.message);
    if (!difference.path.empty() && !text.ends_with(L": " + difference.path)) {
        text = difference.path + L": " + text;
    }
    if (difference.line > 0) {
        text = L"line " + std::to_wstring(difference.line) + L": " + text;
    }
    if (!difference.reason.empty()) {
        text += L" (" + Utf8ToWide(difference.reason) + L")";
    }
    return PrintableText(text) + "\n";
}

std::string TextOf(const Verification& verification) {
    std::string text;
    for (const Difference& difference : verification.differences) {
        text += TextOf(difference);
    }
    for (const std::wstring& path : verification.notListed) {
        text += "not listed: " + PrintableText(path) + "\n";
    }
    return text + "listed: " + std::to_string(verification.lines) +
           ", different: " + std::to_string(verification.differences.size()) +
           ", not listed: " + std::to_string(verification.notListed.size()) + "\n";
}

std::string JsonOf(const Difference& difference) {
    return JsonObject({{"line", std::to_string(difference.line)},
                       {"path", JsonString(difference.path)},
                       {"message", JsonString(difference.message)},
                       {"reason", JsonString(difference.reason)}});
}

std::string JsonOf(const Verification& verification) {
    std::vector<std::string> differences;
    std::ranges::transform(verification.differences, std::back_inserter(differences),
                           [](const Difference& difference) { return JsonOf(difference); });
    std::vector<std::string> notListed;
    std::ranges::transform(verification.notListed, std::back_inserter(notListed),
                           [](const std::wstring& path) { return JsonString(path); });
    return JsonObject({{"matches", verification.differences.empty() ? "true" : "false"},
                       {"listed", std::to_string(verification.lines)},
                       {"differences", JsonArray(differences)},
                       {"notListed", JsonArray(notListed)}}) +
           "\n";
}

int RunVerify(std::span<const std::wstring> tokens) {
    const CommandOptions options = ReadCommandOptions(tokens, {kJsonFlag}, {});
    RequireOperands(options, kOperands);
    const std::filesystem::path directory = RequireDirectory(options.operands.front());
    const Verification verification = VerifyToTheEnd(directory);
    PrintOutput(options.values.contains(kJsonFlag) ? JsonOf(verification) : TextOf(verification));
    return verification.differences.empty() ? kToolDone : kToolFailed;
}

}  // namespace

const ToolCommand kVerifyCommand = {L"verify", kHelp, RunVerify};

}  // namespace updater
