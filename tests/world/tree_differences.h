#pragma once

#include <map>
#include <string>
#include <vector>

namespace updater {

/// A directory's content as `ReadTreeContent` gives it.
using TreeContent = std::map<std::wstring, std::string>;

/// Returns one line for each path that only one tree has or that has different content, so that a
/// failed expectation prints names and no contents.
std::vector<std::string> TreeDifferences(const TreeContent& expected, const TreeContent& actual);

}  // namespace updater
