#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace updater {

/// A Windows path after its text alone: nothing is looked up.
struct LexicalPath {
    /// The drive with its colon, or a share's server with two backslashes before it, or nothing.
    std::wstring root;
    /// Whether it begins at the root rather than in the current directory.
    bool absolute = false;
    /// Without elements of one dot, and with each element of two dots taken together with the one
    /// before it. At the root there is none before it.
    std::vector<std::wstring> elements;
};

LexicalPath NormalisePath(std::wstring_view path);

/// Tells whether `path` is `directory` itself or lies below it.
bool IsWithin(const LexicalPath& directory, const LexicalPath& path);

}  // namespace updater
