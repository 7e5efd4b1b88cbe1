#include "updatectl/exclude_pattern.h"

#include <algorithm>
#include <cstddef>
#include <span>

#include "updatectl/command_options.h"
#include "updatectl/file_names.h"
#include "updatectl/output.h"

namespace updater {

namespace {

std::vector<std::wstring> SplitPath(std::wstring_view path) {
    std::vector<std::wstring> elements;
    std::size_t begin = 0;
    while (begin <= path.size()) {
        const std::size_t end = std::min(path.find_first_of(L"\\/", begin), path.size());
        elements.emplace_back(path.substr(begin, end - begin));
        begin = end + 1;
    }
    return elements;
}

// Only the last star that was met is tried again: what an earlier one took more, a later one would
// take less. So the time grows with the product of the lengths, however many stars there are.
bool MatchesElement(std::wstring_view pattern, std::wstring_view name) {
    std::size_t inPattern = 0;
    std::size_t inName = 0;
    std::size_t afterStar = std::wstring_view::npos;
    std::size_t takenByStar = 0;
    while (inName < name.size()) {
        const bool more = inPattern < pattern.size();
        if (more && pattern[inPattern] == L'*') {
            afterStar = ++inPattern;
            takenByStar = inName;
        } else if (more && (pattern[inPattern] == L'?' || pattern[inPattern] == name[inName])) {
            ++inPattern;
            ++inName;
        } else if (afterStar != std::wstring_view::npos) {
            inPattern = afterStar;
            inName = ++takenByStar;
        } else {
            return false;
        }
    }
    return pattern.find_first_not_of(L'*', inPattern) == std::wstring_view::npos;
}

bool MatchesElements(std::span<const std::wstring> pattern, std::span<const std::wstring> path) {
    if (pattern.empty()) {
        return path.empty();
    }
    if (pattern.front() == L"**") {
        return MatchesElements(pattern.subspan(1), path) ||
               (!path.empty() && MatchesElements(pattern, path.subspan(1)));
    }
    return !path.empty() && MatchesElement(pattern.front(), path.front()) &&
           MatchesElements(pattern.subspan(1), path.subspan(1));
}

bool LeadsElsewhere(const std::wstring& element) {
    return element.empty() || element == L"." || element == L".." ||
           element.find(L':') != std::wstring::npos;
}

}  // namespace

ExcludePattern ParseExcludePattern(std::wstring_view text) {
    ExcludePattern pattern = SplitPath(FoldCase(text));
    if (pattern.size() > 1 && pattern.back().empty()) {
        pattern.pop_back();
    }
    if (std::ranges::any_of(pattern, LeadsElsewhere)) {
        throw UsageError(PrintableText(text) + " is no pattern for paths below DIR");
    }
    if (pattern.size() == 1) {
        pattern.insert(pattern.begin(), L"**");
    }
    return pattern;
}

bool MatchesPattern(const ExcludePattern& pattern, std::wstring_view relativePath) {
    return MatchesElements(pattern, SplitPath(FoldCase(relativePath)));
}

}  // namespace updater
