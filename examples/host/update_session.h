#pragma once

#include <corvellan_update.h>

#include <memory>
#include <string>

#include "application.h"

namespace corvellan {

struct SessionCloser {
    void operator()(AppUpdateSession* session) const noexcept { AppUpdateClose(session); }
};
using UniqueSession = std::unique_ptr<AppUpdateSession, SessionCloser>;

/// Opens the session in which all updates of the application go on. Null where the source names no
/// feed, and where the library refuses the settings; `why` is then what the user is told.
///
/// For the tests and the demonstration the environment variables CORVELLAN_FEED_ADDRESS and
/// CORVELLAN_FEED_KEY name a feed and the key that it is signed for. Leave that out when you copy.
UniqueSession OpenUpdateSession(const Application& application, std::wstring& why);

/// Returns what the user is told at the start about an update that has ended since; empty if there
/// is nothing to tell. `session` may be null.
std::wstring TakeOutcomeText(AppUpdateSession* session);

/// Puts into words for the user why a call did not do what it should. For a failure the library's
/// own sentence is the second line.
std::wstring ResultText(const AppUpdateReport& report);

}  // namespace corvellan
