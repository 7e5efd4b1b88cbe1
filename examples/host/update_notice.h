#pragma once

#include <string>
#include <string_view>

#include "application.h"

namespace corvellan {

// While an update is being installed nothing can be seen of it, so people start the application
// again. A second instance would stand in the setup program's way, and in the way of putting the
// previous program back: so it says what is going on and ends. And because a program that shows a
// window is in the way as well, a copy of it outside the installation directory does the talking.

/// Lets a copy of the application tell the user that it is being updated; returns without waiting.
void StartUpdateNotice(const Application& application);

/// If the command line is that of such a copy: returns the installed executable's path, else an
/// empty text.
std::wstring NoticeSubject(std::wstring_view commandLine);

/// Shows the notice until the user closes it or the update is over. "Start anyway" starts the
/// installed executable; it is for a mutex that something else holds.
void ShowUpdateNotice(const std::wstring& executable);

/// True for an application that was started in this way: it does not look again.
bool IsStartedAnyway(std::wstring_view commandLine);

}  // namespace corvellan
