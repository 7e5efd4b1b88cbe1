#include "updatectl/file_access.h"

#include <span>
#include <stdexcept>

#include "support/canonical_path.h"
#include "support/file_digest.h"
#include "support/file_reading.h"
#include "support/file_system.h"
#include "support/version_information.h"
#include "support/windows_api.h"
#include "updatectl/output.h"
#include "updatectl/windows_error.h"

namespace updater {

namespace {

template <typename Answer>
Answer AskAboutFile(const std::filesystem::path& file,
                    Answer (*question)(const std::filesystem::path&)) {
    const UniqueHandle readable = OpenForReading(file);
    try {
        return question(file);
    } catch (const std::runtime_error& failure) {
        RaiseUnusable(file, failure.what());
    }
}

}  // namespace

std::filesystem::path RequireDirectory(const std::filesystem::path& path) {
    const DWORD attributes = GetFileAttributesW(path.c_str());
    const DWORD error = attributes == INVALID_FILE_ATTRIBUTES ? GetLastError() : ERROR_DIRECTORY;
    // A failed query has every bit set.
    if (error != ERROR_DIRECTORY || (attributes & FILE_ATTRIBUTE_DIRECTORY) == 0) {
        RaiseWindowsError("Cannot open the directory " + PrintableText(path.native()), error);
    }
    return CanonicalPath(path);
}

UniqueHandle OpenForReading(const std::filesystem::path& file) {
    constexpr DWORD kShareAll = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;
    UniqueHandle handle = OwnHandle(
        CreateFileW(file.c_str(), GENERIC_READ, kShareAll, nullptr, OPEN_EXISTING, 0, nullptr));
    if (!handle) {
        const DWORD error = GetLastError();
        RaiseWindowsError("Cannot read " + PrintableText(file.native()), error);
    }
    return handle;
}

void RaiseUnusable(const std::filesystem::path& file, const std::string& reason) {
    throw std::runtime_error("Cannot use " + PrintableText(file.native()) + ": " + reason);
}

std::string ContentOf(const std::filesystem::path& file, std::size_t most) {
    const UniqueHandle readable = OpenForReading(file);
    std::string content;
    const bool whole = VisitPortions(readable.get(), [&](std::span<char> portion) {
        content.append(portion.data(), portion.size());
        return content.size() <= most;
    });
    if (content.size() > most) {
        RaiseUnusable(file, "it has more than " + std::to_string(most) + " bytes");
    }
    if (!whole) {
        RaiseUnusable(file, "it cannot be read to its end");
    }
    return content;
}

std::string DigestOf(const std::filesystem::path& file) {
    return AskAboutFile(file, FileSha256Hex);
}

FileFacts FactsOf(const std::filesystem::path& file) {
    const std::string sha256 = DigestOf(file);
    return {FileSize(CanonicalPath(file)), sha256};
}

std::wstring VersionOf(const std::filesystem::path& executable) {
    return AskAboutFile(executable, ReadExecutableVersion);
}

}  // namespace updater
