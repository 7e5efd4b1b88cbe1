#include <algorithm>
#include <cstddef>
#include <iterator>
#include <stdexcept>

#include "snapshot/inventory_entry.h"
#include "support/application_identity.h"
#include "support/text_conversion.h"
#include "updatectl/command_options.h"
#include "updatectl/exclude_pattern.h"
#include "updatectl/file_access.h"
#include "updatectl/file_names.h"
#include "updatectl/file_replacement.h"
#include "updatectl/json_text.h"
#include "updatectl/output.h"
#include "updatectl/program_tree.h"
#include "updatectl/progress_line.h"
#include "updatectl/tool.h"

namespace updater {

namespace {

constexpr char kHelp[] =
    R"(Usage: <tool> inventory DIR [--exclude PATTERN]... [--json]

Writes DIR\program-files.tsv, the list of the program's files with their SHA-256 digests by which
the updater checks an installation. DIR holds the program as its setup program will install it.
Every file below DIR is listed except the list itself. An earlier list is replaced once the new
one is complete.

Nothing is written when DIR holds something that could not be verified on a user's machine:
links, files that cannot be read, names that Windows cannot hold or the list cannot tell apart
(with a tab or a line break; < > : " / \ | ? *; a dot or a space at the end; device names such
as NUL.txt; two names that differ only in letter case; names that are no valid Unicode text; a
byte-order mark at the start of a path), or no file at all. Each is named.

  --exclude PATTERN   leave out what the setup program does not install; may be repeated
  --json              print the result as JSON

A PATTERN is compared with paths relative to DIR, letter case aside; \ and / are the same.
  *         any characters within one name           ?   one character
  **        as a name of its own: any number of directories, also none
  *.pdb     without a separator: a file or directory of such a name at any depth
  data\tmp  with one: exactly this file or directory
A directory is left out with all that is in it. A pattern that matches nothing is reported.
)";

constexpr std::string_view kOperands[] = {"DIR"};
constexpr std::wstring_view kExcludeOption = L"--exclude";

struct Exclusion {
    std::wstring text;
    ExcludePattern pattern;
    bool matched = false;
};

std::vector<Exclusion> ReadExclusions(const CommandOptions& options) {
    const std::vector<std::wstring> texts = OptionValues(options, kExcludeOption);
    std::vector<Exclusion> exclusions;
    std::ranges::transform(texts, std::back_inserter(exclusions), [](const std::wstring& text) {
        return Exclusion{text, ParseExcludePattern(text)};
    });
    return exclusions;
}

bool IsExcluded(std::vector<Exclusion>& exclusions, const std::wstring& relativePath) {
    bool excluded = false;
    for (Exclusion& exclusion : exclusions) {
        if (MatchesPattern(exclusion.pattern, relativePath)) {
            exclusion.matched = true;
            excluded = true;
        }
    }
    return excluded;
}

void RefuseFaults(const std::filesystem::path& directory, const ProgramTree& tree) {
    std::string faults;
    for (const TreeFault& entry : tree.faults) {
        faults += "\n  " + PrintableText(entry.relativePath) + " " + entry.fault;
    }
    const std::string place = PrintableText(directory.native());
    if (!faults.empty()) {
        throw std::runtime_error("Cannot list the files in " + place + ":" + faults);
    }
    if (tree.files.empty()) {
        throw std::runtime_error("There is no file to list in " + place);
    }
}

std::string ComposeInventory(const std::filesystem::path& directory, const ProgramTree& tree,
                             ProgressLine& progress) {
    progress.total = tree.files.size();
    std::string content;
    for (const std::filesystem::path& file : tree.files) {
        // The updater's own rule has the last word.
        CheckInventoryPath(file.native());
        content += WideToUtf8(file.native()) + "\t" + DigestOf(directory / file) + "\n";
        ++progress.done;
    }
    return content;
}

void ReportIdleExclusions(const std::vector<Exclusion>& exclusions) {
    for (const Exclusion& exclusion : exclusions) {
        if (!exclusion.matched) {
            PrintError("Note: --exclude " + PrintableText(exclusion.text) + " matches nothing\n");
        }
    }
}

// Returns how many files are listed.
std::size_t WriteInventory(const std::filesystem::path& directory,
                           std::vector<Exclusion>& exclusions) {
    ProgressLine progress("Reading files");
    const ProgramTree tree =
        ListProgramTree(directory, [&exclusions](const std::wstring& relativePath) {
            return IsExcluded(exclusions, relativePath);
        });
    RefuseFaults(directory, tree);
    ReplaceContent(directory / kProgramInventory, ComposeInventory(directory, tree, progress));
    return tree.files.size();
}

int RunInventory(std::span<const std::wstring> tokens) {
    const CommandOptions options = ReadCommandOptions(tokens, {kJsonFlag}, {kExcludeOption});
    RequireOperands(options, kOperands);
    std::vector<Exclusion> exclusions = ReadExclusions(options);
    RefuseMangledNames();
    const std::filesystem::path directory = RequireDirectory(options.operands.front());

    const std::string count = std::to_string(WriteInventory(directory, exclusions));
    ReportIdleExclusions(exclusions);
    const std::wstring inventory = (directory / kProgramInventory).native();
    PrintOutput(options.values.contains(kJsonFlag)
                    ? JsonObject({{"inventory", JsonString(inventory)}, {"files", count}}) + "\n"
                    : PrintableText(inventory) + ", files: " + count + "\n");
    return kToolDone;
}

}  // namespace

const ToolCommand kInventoryCommand = {L"inventory", kHelp, RunInventory};

}  // namespace updater
