#pragma once

#include <filesystem>
#include <string>

#include "end_to_end/publisher.h"
#include "end_to_end/whole_update.h"

namespace updater {

// Updates that the application itself looks for, downloads and starts. Each step presses a button
// of its window and returns when the window says what came of it.

/// Starts the job's application unelevated, with the publisher's feed; it looks for updates by
/// itself.
void StartWithFeed(WholeUpdate& update, const Publisher& publisher);

/// Presses a button of the application's window, by its number in controls.h. Raises
/// `std::runtime_error` where a user cannot press it.
void PressButton(const Application& application, int button);

/// Sends what a button does, whether it can be pressed or not.
void SendCommand(const Application& application, int button);

/// Returns what the application says of updates, UTF-8.
std::string UpdateStatusText(const Application& application);

/// Returns what the application greets its user with, UTF-8.
std::string GreetingText(const Application& application);

/// Returns how much of the progress bar is filled, in percent; -1 while there is none to be seen.
int ShownProgress(const Application& application);

/// Waits until that begins like this.
void AwaitUpdateStatus(const Application& application, const std::string& beginning);

/// Has the offered version downloaded.
void DownloadOffered(const WholeUpdate& update, const std::string& version);

/// Has the downloaded version installed, and returns when the updater has asked for administrator
/// rights. The job directory that the application makes becomes the job's.
void RestartToUpdate(WholeUpdate& update);

/// Has the downloaded version installed by this program in the updater's stead, and waits until the
/// window says this of it.
void UpdateWith(const std::filesystem::path& program, const WholeUpdate& update,
                const std::string& beginning);

/// All of it for the version that is published.
void RequestUpdate(WholeUpdate& update, const Publisher& publisher, const std::string& version);

}  // namespace updater
