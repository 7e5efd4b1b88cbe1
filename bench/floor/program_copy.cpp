#include "floor/program_copy.h"

#include <algorithm>
#include <stdexcept>

namespace bench {

namespace {

void CopyOne(const std::filesystem::path& source, const std::filesystem::path& target) {
    CopyWholeFile(source, target);
    if (DigestOfFile(target) != DigestOfFile(source)) {
        throw std::runtime_error("A copy differs from its source");
    }
}

}  // namespace

void CopyWithDigests(const std::filesystem::path& program, const std::filesystem::path& target,
                     const FileList& list, const std::vector<std::filesystem::path>& unlisted) {
    MakeDirectory(target);
    for (const std::filesystem::path& directory : list.directories) {
        MakeDirectory(target / directory);
    }
    for (const ListedFile& file : list.files) {
        CopyOne(program / file.relativePath, target / file.relativePath);
    }
    for (const std::filesystem::path& name : unlisted) {
        CopyOne(program / name, target / name);
    }
}

void CheckDigests(const std::filesystem::path& program, const FileList& list) {
    const bool equal = std::ranges::all_of(list.files, [&](const ListedFile& file) {
        return DigestOfFile(program / file.relativePath) == file.digest;
    });
    if (!equal) {
        throw std::runtime_error("A file differs from its digest");
    }
}

std::vector<std::filesystem::path> UnlistedFiles(const std::filesystem::path& program) {
    std::vector<std::filesystem::path> names = {L"program-files.tsv", L"unins000.dat",
                                                L"unins000.exe"};
    std::erase_if(names, [&](const std::filesystem::path& name) {
        return !std::filesystem::exists(program / name);
    });
    return names;
}

}  // namespace bench
