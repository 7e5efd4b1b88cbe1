#include "floor/file_list.h"

#include <fstream>
#include <set>
#include <stdexcept>
#include <string>

namespace bench {

namespace {

Digest ParseDigest(const std::string& text) {
    Digest digest{};
    for (std::size_t index = 0; index < digest.size(); ++index) {
        digest[index] =
            static_cast<unsigned char>(std::stoul(text.substr(2 * index, 2), nullptr, 16));
    }
    return digest;
}

}  // namespace

FileList ReadFileList(const std::filesystem::path& program) {
    FileList list;
    std::set<std::filesystem::path> directories;
    std::ifstream inventory(program / L"program-files.tsv", std::ios::binary);
    for (std::string line; std::getline(inventory, line);) {
        const std::size_t tab = line.find('\t');
        if (tab == std::string::npos) {
            throw std::runtime_error("program-files.tsv has a line without a tab");
        }
        const std::filesystem::path path = line.substr(0, tab);
        list.files.push_back({path, ParseDigest(line.substr(tab + 1))});
        for (auto parent = path.parent_path(); !parent.empty(); parent = parent.parent_path()) {
            directories.insert(parent);
        }
    }
    if (list.files.empty()) {
        throw std::runtime_error("program-files.tsv lists no file");
    }
    list.directories.assign(directories.begin(), directories.end());
    return list;
}

}  // namespace bench
