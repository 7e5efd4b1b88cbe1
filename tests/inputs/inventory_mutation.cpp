#include "inputs/inventory_mutation.h"
#include "fixtures/application_names.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <string_view>
#include <utility>
#include <vector>

#include "inputs/random_text.h"

namespace updater {

namespace {

using namespace std::string_view_literals;

using Lines = std::vector<std::string>;

// Before a listed path, or instead of it.
constexpr auto kPrefixes = std::to_array<std::string_view>({
    R"(..\)",     "../",        "app/../../", R"(app\..\)",
    "./",         R"(.\.\)",    ".../",       "app/",
    R"(C:\)",     "c:",         "Z:/",        R"(\)",
    "/",          R"(\\)",      "//",         R"(\\server\share\)",
    "//server/",  R"(\\\)",     "////",       "///../",
    R"(\\?\C:\)", "//?/",       R"(\\.\)",    R"(\??\)",
    R"(\??\\)",   R"(/??/C:/)", R"(\?\)",     "\xEF\xBB\xBF",
    " ",          "\0"sv,
});

constexpr auto kPaths = std::to_array<std::string_view>({
    "",
    ".",
    "..",
    "...",
    "a..b/..c/d..",
    ".. ",
    ".. .",
    "app",
    R"(app\)",
    "app/..",
    R"(app\.. )",
    R"(..\outside.txt)",
    "app/../../outside.txt",
    R"(app/..\..//outside.txt)",
    R"(.. \outside.txt)",
    ".../outside.txt",
    "..\0/outside.txt"sv,
    "app\\core.dll\0.txt"sv,
    "app/./core.dll",
    "app//core.dll",
    R"(APP\CORE.DLL)",
    IDENTITY_EXECUTABLE ".",
    IDENTITY_EXECUTABLE " ",
    IDENTITY_EXECUTABLE ":stream",
    IDENTITY_EXECUTABLE "::$DATA",
    "program-files.tsv",
    "missing.dll",
    "missing/missing.dll",
    "nul",
    R"(app\NUL)",
    R"(\windows\win.ini)",
    "/windows/win.ini",
    R"(\\\windows\win.ini)",
    "//?/C:/windows/win.ini",
    R"(\\.\pipe\x)",
    R"(\\localhost\C$\windows\win.ini)",
    R"(C:\windows\win.ini)",
    "*",
    R"(app\?ore.dll)",
    "\xF0\x9F\x98\x80.txt",
    "\xED\xA0\x80",
    "\xC0\xAE\xC0\xAE/outside.txt",
});

std::string FormatLine(const std::string& path, const std::string& digest) {
    return path + '\t' + digest;
}

// The parts of a line, either of them perhaps empty.
std::pair<std::string, std::string> PartsOfLine(const std::string& line) {
    const std::size_t tab = std::min(line.find('\t'), line.size());
    return {line.substr(0, tab), line.substr(tab)};
}

void ReplacePath(RandomSource& random, std::string& line) {
    line = std::string(OneOf(random, kPaths)) + PartsOfLine(line).second;
}

void PrefixPath(RandomSource& random, std::string& line) {
    line.insert(0, OneOf(random, kPrefixes));
}

void InsertIntoPath(RandomSource& random, std::string& line) {
    line.insert(RandomBelow(random, PartsOfLine(line).first.size() + 1), OneOf(random, kPrefixes));
}

void SwapSeparators(RandomSource&, std::string& line) {
    std::transform(line.begin(), line.end(), line.begin(), [](char character) {
        return character == '\\' ? '/' : character == '/' ? '\\' : character;
    });
}

void RaiseDigest(RandomSource&, std::string& line) {
    const auto digest = line.begin() + static_cast<std::ptrdiff_t>(PartsOfLine(line).first.size());
    std::transform(digest, line.end(), digest, [](unsigned char character) {
        return static_cast<char>(std::toupper(character));
    });
}

void RemoveTab(RandomSource& random, std::string& line) {
    const auto [path, digest] = PartsOfLine(line);
    line = path + (OneIn(random, 2) ? " " : "") +
           digest.substr(std::min<std::size_t>(1, digest.size()));
}

void AppendToLine(RandomSource& random, std::string& line) {
    constexpr auto kTails = std::to_array<std::string_view>({"\r", "\r\r", " ", "\t", "\0"sv, "0"});
    line += OneOf(random, kTails);
}

void ChangeByte(RandomSource& random, std::string& line) {
    if (!line.empty()) {
        line[RandomBelow(random, line.size())] = RandomBytes(random, 1).front();
    }
}

void RemoveByte(RandomSource& random, std::string& line) {
    if (!line.empty()) {
        line.erase(RandomBelow(random, line.size()), 1);
    }
}

void InsertBytes(RandomSource& random, std::string& line) {
    line.insert(RandomBelow(random, line.size() + 1),
                RandomBytes(random, 1 + RandomBelow(random, 4)));
}

void CutLine(RandomSource& random, std::string& line) {
    line.resize(RandomBelow(random, line.size() + 1));
}

void LengthenPath(RandomSource& random, std::string& line) {
    line.insert(0, std::string(RandomBelow(random, 400), 'x'));
}

const std::vector<void (*)(RandomSource&, std::string&)> kLineMutations = {
    ReplacePath,    ReplacePath,    ReplacePath, PrefixPath, PrefixPath,
    InsertIntoPath, SwapSeparators, RaiseDigest, RemoveTab,  AppendToLine,
    ChangeByte,     RemoveByte,     InsertBytes, CutLine,    LengthenPath};

void MutateLines(RandomSource& random, Lines& lines) {
    std::string& line = lines[RandomBelow(random, lines.size())];
    switch (RandomBelow(random, 12)) {
        case 0:
            lines.push_back(line);
            break;
        case 1:
            lines.insert(lines.begin(), "");
            break;
        case 2:
            lines.emplace_back();
            break;
        case 3:
            std::swap(line, lines.front());
            break;
        default:
            OneOf(random, kLineMutations)(random, line);
            break;
    }
}

std::string JoinLines(RandomSource& random, const Lines& lines) {
    const std::string lineEnd = OneIn(random, 4) ? "\r\n" : "\n";
    std::string text;
    for (const std::string& line : lines) {
        text += line;
        text += lineEnd;
    }
    if (OneIn(random, 8)) {
        text.resize(text.size() - lineEnd.size());
    }
    return text;
}

}  // namespace

std::string FormatInventory(const ListedDigests& files) {
    std::string text;
    for (const auto& [path, digest] : files) {
        text += FormatLine(path, digest) + '\n';
    }
    return text;
}

std::string RandomInventory(RandomSource& random, const ListedDigests& files) {
    if (OneIn(random, 200)) {
        return RandomBytes(random, RandomBelow(random, 20));
    }
    if (OneIn(random, 500)) {
        return "";
    }
    Lines lines;
    for (const auto& [path, digest] : files) {
        lines.push_back(FormatLine(path, digest));
    }
    for (std::size_t mutations = 1 + RandomBelow(random, 3); mutations > 0; --mutations) {
        MutateLines(random, lines);
    }
    return JoinLines(random, lines);
}

}  // namespace updater
