#include "faults/outcome.h"

#include <exception>
#include <regex>
#include <set>

#include "app/dispatch.h"
#include "fixtures/file_content.h"
#include "fixtures/status_record.h"
#include "support/directory_listing.h"
#include "support/file_system.h"
#include "support/handle.h"
#include "support/status_file.h"
#include "support/text_conversion.h"

namespace updater::faults {

namespace {

std::string WithoutPaths(const std::string& message) {
    static const std::regex paths(R"(( \[[^\]]*\])+)");
    return std::regex_replace(message, paths, "");
}

bool IsHeldOpen(const std::filesystem::path& file) {
    const UniqueHandle alone =
        OwnHandle(CreateFileW(file.c_str(), GENERIC_READ, 0, nullptr, OPEN_EXISTING, 0, nullptr));
    return !alone;
}

std::string SideOf(const Outcome& outcome, const std::string& name) {
    const auto side = outcome.find(name);
    return side == outcome.end() ? "(not told)" : side->second;
}

}  // namespace

std::string EndOfUpdater() {
    try {
        return "exit code " + std::to_string(RunUpdater());
    } catch (const std::exception& failure) {
        return "uncaught: " + WithoutPaths(failure.what());
    }
}

std::string StatusText(const std::string& state, const std::string& message, int exitCode) {
    return state + ", \"" + message + "\", " + std::to_string(exitCode);
}

std::string ReadStatus(const std::filesystem::path& jobDirectory) {
    if (!PathExists(jobDirectory / kStatusFile)) {
        return "none";
    }
    const std::string content = ReadFileContent(jobDirectory / kStatusFile);
    if (content.empty()) {
        return "empty";
    }
    try {
        const StatusRecord record = ParseStatusRecord(content);
        return StatusText(record.state, WithoutPaths(record.message), record.exitCode);
    } catch (const std::exception&) {
        return "not a record: " + content;
    }
}

std::string FilesHeldOpen(const std::filesystem::path& directory) {
    std::string names;
    VisitTree(directory, [&](const ListedEntry& entry) {
        if (entry.type == std::filesystem::file_type::regular &&
            IsHeldOpen(directory / entry.relativePath)) {
            names += WideToUtf8(entry.relativePath.native()) + ' ';
        }
    });
    return names;
}

std::string Differences(const Outcome& expected, const Outcome& actual) {
    std::set<std::string> names;
    for (const Outcome* outcome : {&expected, &actual}) {
        for (const auto& side : *outcome) {
            names.insert(side.first);
        }
    }
    std::string differences;
    for (const std::string& name : names) {
        const std::string wanted = SideOf(expected, name);
        const std::string found = SideOf(actual, name);
        if (wanted != found && wanted != kAnything) {
            differences.append("\n  ").append(name);
            differences.append(": ").append(found);
            differences.append("\n    instead of: ").append(wanted);
        }
    }
    return differences;
}

}  // namespace updater::faults
