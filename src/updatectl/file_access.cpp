#include "updatectl/file_access.h"

#include <stdexcept>

#include "support/canonical_path.h"
#include "support/file_digest.h"
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
        throw std::runtime_error("Cannot use " + PrintableText(file.native()) + ": " +
                                 failure.what());
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

std::string DigestOf(const std::filesystem::path& file) {
    return AskAboutFile(file, FileSha256Hex);
}

std::wstring VersionOf(const std::filesystem::path& executable) {
    return AskAboutFile(executable, ReadExecutableVersion);
}

}  // namespace updater
