#include "client/download_attempt.h"

#include <span>
#include <string>
#include <string_view>

#include "client/failure.h"
#include "client/transport_failure.h"
#include "support/text_conversion.h"

namespace updater {

namespace {

constexpr std::uint32_t kComplete = 200;
constexpr std::uint32_t kPartial = 206;
constexpr std::uint32_t kOutOfRange = 416;

// What becomes of an answer to a request for the rest.
enum class Answer { Taken, OfAnotherFile };

[[noreturn]] void RaiseWrongSize(Download& download, std::string_view actual) {
    // Nobody goes on with such a file.
    download.part.condition.clear();
    throw ClientFailure(APP_UPDATE_WRONG_SIZE,
                        "The server's file has another size than the feed says: " +
                            WideToUtf8(download.order.address) + ", " + std::string(actual) +
                            " instead of " + std::to_string(download.order.size) + " bytes");
}

[[noreturn]] void RaiseServerError(const Download& download) {
    throw ClientFailure(APP_UPDATE_SERVER_ERROR,
                        "The server does not give the file: " + WideToUtf8(download.order.address) +
                            ", status " + std::to_string(download.status));
}

// Whether an answer has exactly what the part file lacks, of the same file.
bool IsTheRest(const Download& download, const HttpsHead& head) {
    const PartFile& part = download.part;
    const std::wstring range = L"bytes " + std::to_wstring(part.length) + L"-" +
                               std::to_wstring(download.order.size - 1) + L"/" +
                               std::to_wstring(download.order.size);
    const bool isOfSameState = part.condition == head.entityTag ||
                               part.condition == head.lastModified ||
                               (head.entityTag.empty() && head.lastModified.empty());
    return head.contentRange == range && isOfSameState;
}

// Raises for an answer that is neither; returns whether the part file takes it.
Answer JudgeHead(Download& download, const HttpsHead& head, bool wantsRest) {
    download.status = head.status;
    if (head.status == kComplete) {
        if (head.length && *head.length != download.order.size) {
            RaiseWrongSize(download, std::to_string(*head.length));
        }
        BeginPartFile(download.part, download.order, head);
        return Answer::Taken;
    }
    if (wantsRest && head.status == kPartial && IsTheRest(download, head)) {
        ContinuePartFile(download.part);
        return Answer::Taken;
    }
    if (wantsRest && (head.status == kPartial || head.status == kOutOfRange)) {
        return Answer::OfAnotherFile;
    }
    RaiseServerError(download);
}

void TakeBytes(Download& download, std::span<const char> bytes) {
    if (bytes.size() > download.order.size - download.part.length) {
        RaiseWrongSize(download, "more");
    }
    AppendToPartFile(download.part, bytes);
    TellProgress(download.order, download.progress, download.part.length);
}

Answer Ask(Download& download, bool forRest) {
    HttpsRequest request{.address = download.order.address, .headers = {}};
    if (forRest) {
        request.headers = {L"Range: bytes=" + std::to_wstring(download.part.length) + L"-",
                           L"If-Range: " + download.part.condition};
    }
    Answer answer = Answer::Taken;
    Fetch(download.transport, request,
          {.takeHead =
               [&](const HttpsHead& head) {
                   answer = JudgeHead(download, head, forRest);
                   return answer == Answer::Taken;
               },
           .takeBytes = [&](std::span<const char> bytes) { TakeBytes(download, bytes); }});
    return answer;
}

}  // namespace

void TellProgress(const DownloadOrder& order, const DownloadProgress& progress,
                  std::uint64_t done) {
    if (progress) {
        progress(done, order.size);
    }
}

void AttemptDownload(Download& download) {
    download.status = 0;
    const bool wantsRest = download.part.length > 0 && !download.part.condition.empty();
    if (Ask(download, wantsRest) == Answer::OfAnotherFile) {
        Ask(download, false);
    }
    // A server that has not said how much there is may end anywhere.
    if (download.part.length < download.order.size) {
        RaiseBrokenConnection(download.order.address);
    }
}

}  // namespace updater
