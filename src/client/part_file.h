#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <optional>
#include <span>
#include <string>

#include "client/download.h"
#include "client/transport.h"
#include "support/handle.h"
#include "support/sha256.h"

namespace updater {

/// The beginning of a setup program, in a file that nobody else can write to meanwhile. Beside it
/// stands a file that says what it is the beginning of.
struct PartFile {
    std::filesystem::path file;
    UniqueHandle handle;
    std::uint64_t length = 0;
    /// What the server calls this state of the file, for a request for the rest: a strong entity
    /// tag, or the time of its last change. Empty: there is no going on.
    std::wstring condition;
    /// The digest of what is in it; nothing when some of that was there before.
    std::optional<Sha256> digest;
};

/// Opens the order's part file, or makes a new one; empties one that belongs to something else.
/// Raises `ClientFailure` APP_UPDATE_FILE_ERROR, for one that somebody else writes to among others.
PartFile OpenPartFile(const DownloadOrder& order);

/// Takes everything out of it. Raises `ClientFailure` APP_UPDATE_FILE_ERROR.
void EmptyPartFile(PartFile& part);

/// Empties the part file for what is to come with this head. Raises `ClientFailure`
/// APP_UPDATE_FILE_ERROR, APP_UPDATE_DISK_FULL or APP_UPDATE_SYSTEM_ERROR.
void BeginPartFile(PartFile& part, const DownloadOrder& order, const HttpsHead& head);

/// Says that what comes next is the rest of what is there, from another answer.
void ContinuePartFile(PartFile& part);

/// Adds bytes. Raises what `BeginPartFile` raises.
void AppendToPartFile(PartFile& part, std::span<const char> bytes);

/// Returns the digest of all that is in the part file, 64 lower-case digits. Raises `ClientFailure`
/// APP_UPDATE_CANCELLED, APP_UPDATE_FILE_ERROR or APP_UPDATE_SYSTEM_ERROR.
std::string PartFileDigest(const PartFile& part, const Cancellation& cancellation);

/// Gives a part file that is complete its final name; nothing else is left. Raises `ClientFailure`
/// APP_UPDATE_FILE_ERROR or APP_UPDATE_DISK_FULL.
void FinishPartFile(PartFile& part, const std::filesystem::path& setup);

/// Closes the part file, and deletes it if nobody could go on with it.
void LeavePartFile(PartFile& part) noexcept;

/// Deletes the part file with what stands beside it.
void DeletePartFile(PartFile& part) noexcept;

}  // namespace updater
