#include "world/tree_differences.h"

#include "support/text_conversion.h"

namespace updater {

std::vector<std::string> TreeDifferences(const TreeContent& expected, const TreeContent& actual) {
    std::vector<std::string> differences;
    for (const auto& [path, content] : expected) {
        const auto found = actual.find(path);
        if (found == actual.end()) {
            differences.push_back(WideToUtf8(path) + " is missing");
        } else if (found->second != content) {
            differences.push_back(WideToUtf8(path) + " differs");
        }
    }
    for (const auto& [path, content] : actual) {
        if (!expected.contains(path)) {
            differences.push_back(WideToUtf8(path) + " was added");
        }
    }
    return differences;
}

}  // namespace updater
