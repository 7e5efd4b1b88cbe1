#pragma once

#include <cstdint>
#include <filesystem>
#include <vector>

#include "support/handle.h"

namespace updater {

// An administrator who works in a directory that somebody else can change may be led elsewhere: a
// directory is exchanged for a link after it was looked at. So a directory is opened once, without
// following a link, and what is asked about it is asked of the handle.

/// A directory that nobody but administrators and the system can change. As long as it is open
/// nobody can delete or rename it, or put something else in its place.
struct ProtectedDirectory {
    std::filesystem::path path;
    UniqueHandle handle;
    /// When it was made: 100-nanosecond intervals since the year 1601, UTC.
    std::uint64_t created = 0;
};

/// Opens a directory. Raises `std::system_error` when it cannot be opened or inspected, and
/// `std::runtime_error` that says why it is not protected: it is a link or no directory; it belongs
/// neither to the group Administrators nor to the system; or its access list gives somebody else a
/// right that is none of reading and executing. Entries that only what is made in it inherits count
/// as well; an access list that is missing, or has an entry that is neither a plain "allow" nor a
/// plain "deny", gives everybody everything.
ProtectedDirectory OpenProtectedDirectory(const std::filesystem::path& directory);

/// A protected directory whose subdirectories are protected as well. The paths are in the form that
/// may be longer than 260 characters.
struct ProtectedTree {
    /// All of them, each before those in it; the first is the directory itself.
    std::vector<ProtectedDirectory> directories;
    /// Everything in it that is no directory.
    std::vector<std::filesystem::path> files;
};

/// Opens every directory at any depth. Raises what `OpenProtectedDirectory` does,
/// `std::runtime_error` for a link, and `std::filesystem::filesystem_error`; nothing was changed
/// then.
ProtectedTree OpenProtectedTree(ProtectedDirectory root);

/// Deletes the tree. Raises `std::filesystem::filesystem_error` when something in it cannot be
/// deleted; what was deleted until then stays so.
void RemoveProtectedTree(ProtectedTree tree);

/// Asks Windows to follow, from now on and until the process ends, no links between directories
/// that somebody without an administrator's rights has made. A Windows that does not know this
/// refuses; that changes nothing.
void DistrustLinksOfUsers() noexcept;

}  // namespace updater
