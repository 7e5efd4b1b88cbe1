#pragma once

#include <cstdint>
#include <filesystem>
#include <map>
#include <string>

namespace updater {

/// What is kept of earlier checks in the data directory, in two files that are replaced whole.
/// Texts are UTF-8.
struct FeedStore {
    /// A number of this installation's own that never changes: a GUID.
    std::string installation;
    /// The highest issue number seen, by channel.
    std::map<std::string, std::uint32_t, std::less<>> issues;
    /// Where the kept envelope comes from, its entity tag, and the envelope itself; empty when
    /// there is none.
    std::string feedAddress;
    std::string entityTag;
    std::string envelope;
    /// Whether what was kept was damaged and has been made anew.
    bool wasDamaged = false;
};

/// Reads the store, or makes a new one where there is none or a damaged one; does not write it.
/// What of a damaged one is good is kept. Raises `ClientFailure` APP_UPDATE_FILE_ERROR when one is
/// there and cannot be read, and what `CreateJobIdentity` does.
FeedStore ReadFeedStore(const std::filesystem::path& dataDirectory);

/// Writes the store into the directory, which has to exist. An entity tag that is longer than 1,024
/// characters, or not of visible ASCII and spaces, is left out. After a failure either everything
/// is as before, or only the highest issues are new and there is no envelope. Raises
/// `ClientFailure` APP_UPDATE_FILE_ERROR or APP_UPDATE_DISK_FULL.
void WriteFeedStore(const std::filesystem::path& dataDirectory, const FeedStore& store);

}  // namespace updater
