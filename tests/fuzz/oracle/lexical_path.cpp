#include "fuzz/oracle/lexical_path.h"

#include <algorithm>
#include <cstddef>
#include <utility>

namespace updater {

namespace {

constexpr wchar_t kUp[] = L"..";

void AddElement(LexicalPath& path, std::wstring element) {
    if (element.empty() || element == L".") {
        return;
    }
    if (element != kUp) {
        path.elements.push_back(std::move(element));
    } else if (!path.elements.empty() && path.elements.back() != kUp) {
        path.elements.pop_back();
    } else if (!path.absolute) {
        path.elements.emplace_back(kUp);
    }
}

bool IsLetter(wchar_t character) {
    return (character >= L'A' && character <= L'Z') || (character >= L'a' && character <= L'z');
}

// Takes the root's name off the front of the text and returns it.
std::wstring TakeRoot(std::wstring& text) {
    std::size_t length = 0;
    if (text.size() >= 2 && IsLetter(text[0]) && text[1] == L':') {
        length = 2;
    } else if (text.size() >= 3 && text.starts_with(L"\\\\") && text[2] != L'\\') {
        length = std::min(text.find(L'\\', 2), text.size());
    }
    std::wstring root = text.substr(0, length);
    text.erase(0, length);
    return root;
}

}  // namespace

LexicalPath NormalisePath(std::wstring_view path) {
    std::wstring text(path);
    std::replace(text.begin(), text.end(), L'/', L'\\');
    LexicalPath normal;
    normal.root = TakeRoot(text);
    normal.absolute = text.starts_with(L'\\') || normal.root.starts_with(L'\\');
    std::size_t begin = 0;
    while (begin < text.size()) {
        const std::size_t end = std::min(text.find(L'\\', begin), text.size());
        AddElement(normal, text.substr(begin, end - begin));
        begin = end + 1;
    }
    return normal;
}

bool IsWithin(const LexicalPath& directory, const LexicalPath& path) {
    const auto common = std::mismatch(directory.elements.begin(), directory.elements.end(),
                                      path.elements.begin(), path.elements.end());
    return path.root == directory.root && path.absolute == directory.absolute &&
           common.first == directory.elements.end() &&
           std::find(common.second, path.elements.end(), kUp) == path.elements.end();
}

}  // namespace updater
