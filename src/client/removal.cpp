#include "client/removal.h"

#include "support/file_system.h"

namespace updater {

void RemoveUnlessInUse(const std::filesystem::path& path) {
    try {
        RemoveTree(path);
    } catch (const std::filesystem::filesystem_error&) {
        return;
    }
}

}  // namespace updater
