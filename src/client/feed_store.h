#pragma once

#include <cstdint>
#include <filesystem>
#include <map>
#include <string>

#include "support/handle.h"

namespace updater {

/// The store's files in the data directory.
inline constexpr wchar_t kStateFile[] = L"update-state.json";
inline constexpr wchar_t kEnvelopeFile[] = L"update-feed.json";

/// What is kept of earlier checks, in these files, which are replaced whole. Texts are UTF-8.
struct FeedStore {
    /// A number of this installation's own that never changes: a GUID.
    std::string installation;
    /// The highest issue number seen, by channel.
    std::map<std::string, std::uint32_t, std::less<>> issues;
    /// Where the kept envelope comes from, its entity tag, and the envelope itself; empty when
    /// there is none, the first two also when they are lost.
    std::string feedAddress;
    std::string entityTag;
    std::string envelope;
    /// Whether what was kept was damaged and has been made anew.
    bool wasDamaged = false;
};

/// Keeps other instances of the application from reading and writing the store as long as the
/// handle lives, if they ask for it, too. Null when one of them does not let go: nobody waits for
/// it for ever.
UniqueHandle LockFeedStore(const std::filesystem::path& dataDirectory);

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
