#include "updatectl/program_tree.h"

#include <algorithm>
#include <map>
#include <system_error>
#include <utility>

#include "support/application_identity.h"
#include "support/directory_listing.h"
#include "support/windows_api.h"
#include "updatectl/file_names.h"
#include "updatectl/output.h"

namespace updater {

namespace {

constexpr wchar_t kByteOrderMark = 0xFEFF;

struct Walk {
    std::filesystem::path directory;
    const TreeFilter& isLeftOut;
    ProgramTree tree;
    std::vector<std::wstring> pending;
    // Every path in capitals, with its own spelling.
    std::map<std::wstring, std::wstring> spellings;
};

std::string FaultOfAttributes(DWORD attributes, DWORD error) {
    if (attributes == INVALID_FILE_ATTRIBUTES) {
        return "cannot be read: " + std::system_category().message(static_cast<int>(error));
    }
    if ((attributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0) {
        return "is a link or another reparse point";
    }
    return {};
}

// A fault that lies in the path alone.
std::string FaultOfPath(Walk& walk, const std::wstring& relativePath, const std::wstring& name) {
    if (const std::string_view fault = FaultOfName(name); !fault.empty()) {
        return std::string(fault);
    }
    if (relativePath.front() == kByteOrderMark) {
        return "begins with a byte-order mark";
    }
    const auto [other, isNew] = walk.spellings.try_emplace(FoldCase(relativePath), relativePath);
    if (!isNew) {
        return "differs from " + PrintableText(other->second) + " only in letter case";
    }
    return {};
}

void ExamineEntry(Walk& walk, const std::wstring& parent, const std::wstring& name) {
    const std::wstring relativePath = parent.empty() ? name : parent + L'\\' + name;
    if (relativePath == kProgramInventory || relativePath == kTemporaryInventory ||
        walk.isLeftOut(relativePath)) {
        return;
    }
    // The system might take a faulty name for another file's, so nothing is asked about that.
    if (std::string fault = FaultOfPath(walk, relativePath, name); !fault.empty()) {
        walk.tree.faults.push_back({relativePath, std::move(fault)});
        return;
    }
    const DWORD attributes = GetFileAttributesW((walk.directory / relativePath).c_str());
    if (std::string fault = FaultOfAttributes(attributes, GetLastError()); !fault.empty()) {
        walk.tree.faults.push_back({relativePath, std::move(fault)});
    } else if ((attributes & FILE_ATTRIBUTE_DIRECTORY) != 0) {
        walk.pending.push_back(relativePath);
    } else {
        walk.tree.files.emplace_back(relativePath);
    }
}

// Sorted, so that of two names that differ in letter case it is always the same that is at fault.
std::vector<std::wstring> ListNames(Walk& walk, const std::wstring& parent) {
    std::vector<std::wstring> names;
    const auto note = [&names](const ListedEntry& entry) {
        names.push_back(entry.relativePath.native());
    };
    if (parent.empty()) {
        VisitDirectory(walk.directory, note);
    } else {
        try {
            VisitDirectory(walk.directory / parent, note);
        } catch (const std::filesystem::filesystem_error& failure) {
            walk.tree.faults.push_back({parent, "cannot be listed: " + failure.code().message()});
        }
    }
    std::ranges::sort(names);
    return names;
}

}  // namespace

ProgramTree ListProgramTree(const std::filesystem::path& directory, const TreeFilter& isLeftOut) {
    Walk walk{directory, isLeftOut, {}, {L""}, {}};
    walk.spellings[FoldCase(kProgramInventory)] = kProgramInventory;
    while (!walk.pending.empty()) {
        const std::wstring parent = walk.pending.back();
        walk.pending.pop_back();
        for (const std::wstring& name : ListNames(walk, parent)) {
            ExamineEntry(walk, parent, name);
        }
    }
    std::ranges::sort(walk.tree.files);
    std::ranges::sort(walk.tree.faults, {}, &TreeFault::relativePath);
    return std::move(walk.tree);
}

}  // namespace updater
