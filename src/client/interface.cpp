// The functions of corvellan_update.h. Nothing but a result leaves them.

#include <memory>
#include <string>

#include "client/check.h"
#include "client/corvellan_update.h"
#include "client/failure.h"
#include "client/installation_notice.h"
#include "client/report.h"
#include "client/session.h"
#include "client/tidy_up.h"
#include "support/text_conversion.h"

struct AppUpdateSession {
    updater::Session session;
};

namespace {

using updater::Answer;
using updater::Session;

// A report of a size that no version of the header has had is left as it is.
template <typename Action>
AppUpdateResult Carry(AppUpdateReport* report, Action action) noexcept {
    if (report != nullptr && report->size != sizeof(*report)) {
        return APP_UPDATE_INVALID_ARGUMENT;
    }
    try {
        return updater::StoreAnswer(report, action());
    } catch (...) {
        return updater::StoreCurrentFailure(report);
    }
}

void RequireArgument(bool isFine, const char* sentence) {
    if (!isFine) {
        throw updater::ClientFailure(APP_UPDATE_INVALID_ARGUMENT, sentence);
    }
}

Session& SessionOf(AppUpdateSession* session) {
    RequireArgument(session != nullptr, "There is no session");
    return session->session;
}

template <typename Structure>
Structure& StructureAt(Structure* structure, const char* missing, const char* wrongSize) {
    RequireArgument(structure != nullptr, missing);
    RequireArgument(structure->size == sizeof(Structure), wrongSize);
    return *structure;
}

Answer AnswerOfWait(const updater::WaitResult& result) {
    if (result.end) {
        return {result.end->result, result.end->sentence};
    }
    return result.state ? Answer{APP_UPDATE_OK, "The update has a new state"}
                        : Answer{APP_UPDATE_NO_CHANGE, "The update has the same state as before"};
}

}  // namespace

AppUpdateResult __cdecl AppUpdateOpen(const AppUpdateSettings* settings, AppUpdateSession** session,
                                      AppUpdateReport* report) {
    if (session != nullptr) {
        *session = nullptr;
    }
    return Carry(report, [&] {
        RequireArgument(settings != nullptr, "There are no settings");
        RequireArgument(session != nullptr, "There is no place for the session");
        auto opened = std::make_unique<AppUpdateSession>();
        updater::OpenSession(opened->session, *settings);
        *session = opened.release();
        return Answer{APP_UPDATE_OK, "The session is open"};
    });
}

void __cdecl AppUpdateClose(AppUpdateSession* session) {
    const std::unique_ptr<AppUpdateSession> closed(session);
}

AppUpdateResult __cdecl AppUpdateCheck(AppUpdateSession* session, AppUpdateOffer* offer,
                                       AppUpdateReport* report) {
    return Carry(report, [&] {
        Session& opened = SessionOf(session);
        AppUpdateOffer& stored = StructureAt(offer, "There is no place for the offer",
                                             "The offer has a size of no version of the header");
        const updater::CheckResult result = updater::CheckForUpdate(opened);
        if (result.result == APP_UPDATE_OK) {
            stored.issue = opened.offer->feed.issue;
            stored.setupSize = opened.offer->feed.size;
            stored.version = opened.offer->version.c_str();
            stored.notes = opened.offer->notes.c_str();
        }
        return Answer{result.result, result.sentence};
    });
}

AppUpdateResult __cdecl AppUpdateDownload(AppUpdateSession* session, AppUpdateProgress progress,
                                          void* context, AppUpdateReport* report) {
    return Carry(report, [&] {
        updater::DownloadOffer(SessionOf(session), [&](std::uint64_t done, std::uint64_t total) {
            if (progress != nullptr) {
                progress(context, done, total);
            }
        });
        return Answer{APP_UPDATE_OK, "The setup program is downloaded and verified"};
    });
}

AppUpdateResult __cdecl AppUpdateStart(AppUpdateSession* session, AppUpdateReport* report) {
    return Carry(report, [&] {
        updater::StartUpdate(SessionOf(session));
        return Answer{APP_UPDATE_OK, "The updater is started"};
    });
}

AppUpdateResult __cdecl AppUpdateWait(AppUpdateSession* session, uint32_t milliseconds,
                                      AppUpdateState* state, AppUpdateReport* report) {
    return Carry(report, [&] {
        Session& opened = SessionOf(session);
        RequireArgument(state != nullptr, "There is no place for the state");
        const updater::WaitResult result = updater::WaitForUpdate(opened, milliseconds);
        if (result.state) {
            *state = *result.state;
        }
        return AnswerOfWait(result);
    });
}

void __cdecl AppUpdateCancel(AppUpdateSession* session) {
    Carry(nullptr, [&] {
        updater::CancelSession(SessionOf(session));
        return Answer{};
    });
}

AppUpdateResult __cdecl AppUpdateTakeOutcome(AppUpdateSession* session, AppUpdateOutcome* outcome,
                                             AppUpdateReport* report) {
    return Carry(report, [&] {
        const Session& opened = SessionOf(session);
        AppUpdateOutcome& stored =
            StructureAt(outcome, "There is no place for the outcome",
                        "The outcome has a size of no version of the header");
        const auto last = updater::TakeOutcome(opened);
        if (!last) {
            return Answer{APP_UPDATE_NO_OUTCOME, "There is no outcome to be told"};
        }
        stored.result = last->end.result;
        updater::StoreText(updater::Utf8ToWide(updater::VersionText(last->version)),
                           stored.version);
        updater::StoreText(updater::Utf8ToWide(last->end.message), stored.message);
        return Answer{APP_UPDATE_OK, last->end.sentence};
    });
}

int32_t __cdecl AppUpdateIsBeingInstalled(void) {
    return updater::IsBeingInstalled() ? 1 : 0;
}

AppUpdateResult __cdecl AppUpdateTidyUp(AppUpdateSession* session, AppUpdateReport* report) {
    return Carry(report, [&] {
        updater::TidyUp(SessionOf(session));
        return Answer{APP_UPDATE_OK, "What earlier updates left is deleted"};
    });
}
