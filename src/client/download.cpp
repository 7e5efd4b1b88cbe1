#include "client/download.h"

#include <algorithm>
#include <limits>
#include <optional>
#include <utility>

#include "client/digest.h"
#include "client/download_attempt.h"
#include "client/failure.h"
#include "client/part_file.h"
#include "client/whole_file.h"
#include "support/file_system.h"
#include "support/text_conversion.h"
#include "support/windows_api.h"

namespace updater {

namespace {

constexpr unsigned kMostFailures = 4;

// Nobody else can write to it or delete it as long as the handle is open. Whoever has done so in
// the moment before is found out later: the updater verifies the digest where only administrators
// write.
DownloadedSetup HoldSetup(const DownloadOrder& order) {
    DownloadedSetup setup{SetupPath(order.directory, order.sha256), {}};
    setup.hold = OwnHandle(CreateFileW(setup.file.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr,
                                       OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
    return setup;
}

// Returns nothing when there is no setup program, or a damaged one, which is deleted.
std::optional<DownloadedSetup> TakeCompleteSetup(const DownloadOrder& order,
                                                 const Cancellation& cancellation) {
    DownloadedSetup setup = HoldSetup(order);
    if (!setup.hold) {
        const DWORD error = GetLastError();
        if (error == ERROR_FILE_NOT_FOUND) {
            return std::nullopt;
        }
        RaiseFileFailure(kCannotRead, setup.file, error);
    }
    if (Sha256OfFile(setup.hold, setup.file, cancellation) == order.sha256) {
        return setup;
    }
    setup.hold.reset();
    if (DeleteFileW(setup.file.c_str()) == 0) {
        RaiseFileFailure(kCannotWrite, setup.file, GetLastError());
    }
    return std::nullopt;
}

void RequireSpace(const DownloadOrder& order, std::uint64_t alreadyThere) {
    ULARGE_INTEGER free{};
    if (GetDiskFreeSpaceExW(order.directory.c_str(), &free, nullptr, nullptr) == 0) {
        RaiseFileFailure(kCannotWrite, order.directory, GetLastError());
    }
    const std::uint64_t needed = order.size - alreadyThere;
    if (free.QuadPart < needed) {
        throw ClientFailure(APP_UPDATE_DISK_FULL,
                            "There is no space for the setup program in " +
                                WideToUtf8(order.directory.native()) + ": " +
                                std::to_string(needed) + " bytes are needed, " +
                                std::to_string(free.QuadPart) + " are free",
                            ERROR_DISK_FULL);
    }
}

// A server that is overloaded, or in trouble of its own, may have recovered by the next time.
bool IsCurable(const ClientFailure& failure, std::uint32_t status) {
    constexpr std::uint32_t kRequestTimeout = 408;
    constexpr std::uint32_t kTooManyRequests = 429;
    constexpr std::uint32_t kFirstServerError = 500;
    return failure.result == APP_UPDATE_NO_NETWORK ||
           (failure.result == APP_UPDATE_SERVER_ERROR &&
            (status == kRequestTimeout || status == kTooManyRequests ||
             status >= kFirstServerError));
}

// Doubles with every failure, and differs by up to a quarter in either direction: machines whose
// connections broke together do not come back together.
std::uint32_t NextPause(std::uint32_t firstPause, unsigned failures) {
    LARGE_INTEGER counter{};
    QueryPerformanceCounter(&counter);
    const std::uint64_t middle = std::uint64_t{firstPause} << (failures - 1);
    const std::uint64_t pause =
        middle - middle / 4 + static_cast<std::uint64_t>(counter.QuadPart) % (middle / 2 + 1);
    constexpr std::uint64_t kLongest = std::numeric_limits<std::int32_t>::max();
    return static_cast<std::uint32_t>(std::min(pause, kLongest));
}

// Tries until the part file is complete; `failures` counts over all calls for a download.
void FillPartFile(Download& download, const Cancellation& cancellation, unsigned& failures) {
    while (download.part.length < download.order.size) {
        try {
            AttemptDownload(download);
        } catch (const ClientFailure& failure) {
            if (++failures == kMostFailures || !IsCurable(failure, download.status)) {
                throw;
            }
            PauseUnlessCancelled(cancellation, NextPause(download.order.firstPause, failures));
        }
    }
}

// A part file of an earlier download may be damaged, or its server may have mistaken the state of
// the file: then there is one fresh start.
void CompletePartFile(Download& download, const Cancellation& cancellation) {
    unsigned failures = 0;
    for (bool isFresh = false;; isFresh = true) {
        FillPartFile(download, cancellation, failures);
        if (PartFileDigest(download.part, cancellation) == download.order.sha256) {
            return;
        }
        const bool wasContinued = !download.part.digest;
        EmptyPartFile(download.part);
        if (isFresh || !wasContinued) {
            throw ClientFailure(
                APP_UPDATE_WRONG_DIGEST,
                "The server's file is not the one that the feed describes: its digest differs: " +
                    WideToUtf8(download.order.address));
        }
    }
}

void CreateDirectoryFor(const DownloadOrder& order) {
    try {
        CreateDirectories(order.directory);
    } catch (const std::filesystem::filesystem_error& error) {
        RaiseFileFailure(kCannotWrite, order.directory,
                         static_cast<unsigned long>(error.code().value()));
    }
}

}  // namespace

std::filesystem::path SetupPath(const std::filesystem::path& directory, const std::string& sha256) {
    return directory / (sha256 + ".exe");
}

DownloadedSetup DownloadSetup(Transport& transport, const DownloadOrder& order,
                              const Cancellation& cancellation, const DownloadProgress& progress) {
    RaiseIfCancelled(cancellation);
    CreateDirectoryFor(order);
    if (std::optional<DownloadedSetup> complete = TakeCompleteSetup(order, cancellation)) {
        TellProgress(order, progress, order.size);
        return std::move(*complete);
    }
    Download download{transport, order, progress, OpenPartFile(order)};
    try {
        TellProgress(order, progress, download.part.length);
        RequireSpace(order, download.part.length);
        CompletePartFile(download, cancellation);
        FinishPartFile(download.part, SetupPath(order.directory, order.sha256));
    } catch (...) {
        LeavePartFile(download.part);
        throw;
    }
    DownloadedSetup setup = HoldSetup(order);
    if (!setup.hold) {
        RaiseFileFailure(kCannotRead, setup.file, GetLastError());
    }
    return setup;
}

}  // namespace updater
