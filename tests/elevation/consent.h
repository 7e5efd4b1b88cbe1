#pragma once

#include <string>

// How a test or the demonstration tells the elevation stand-in what to do. All of it comes by the
// environment, since the command line belongs to the updater.

namespace updater {

/// The real updater's path. Required.
inline constexpr wchar_t kRealUpdaterVariable[] = L"CORVELLAN_REAL_UPDATER";

/// What becomes of the request to start the worker elevated: one of the values below, granted
/// without the variable.
inline constexpr wchar_t kConsentVariable[] = L"CORVELLAN_CONSENT";

/// The worker is started elevated.
inline constexpr wchar_t kConsentGranted[] = L"granted";
/// The worker is started with the limited token.
inline constexpr wchar_t kConsentWithoutRights[] = L"without-rights";
/// No worker is started; the process that the broker holds for it ends at once with
/// `kHelperDeathCode`.
inline constexpr wchar_t kConsentHelperDies[] = L"helper-dies";
/// No worker is started; the process that the broker holds for it runs until it is ended.
inline constexpr wchar_t kConsentHelperHangs[] = L"helper-hangs";
/// As before, and the process signals the broker that it is ready.
inline constexpr wchar_t kConsentHelperHangsReady[] = L"helper-hangs-ready";

inline constexpr unsigned kHelperDeathCode = 5;

/// The base name of four events for a prompt that somebody answers. The stand-in sets "asked" and
/// waits for "answered" before it does any of this; when the worker is there, it sets "started" and
/// waits for "begin" before it lets the worker run. Without the variable it does not wait.
inline constexpr wchar_t kConsentEventVariable[] = L"CORVELLAN_CONSENT_EVENT";

inline std::wstring AskedEventName(const std::wstring& baseName) {
    return baseName + L"-asked";
}

inline std::wstring AnsweredEventName(const std::wstring& baseName) {
    return baseName + L"-answered";
}

inline std::wstring StartedEventName(const std::wstring& baseName) {
    return baseName + L"-started";
}

inline std::wstring BeginEventName(const std::wstring& baseName) {
    return baseName + L"-begin";
}

/// The stand-in's exit code when it could not do its work.
inline constexpr int kStandInFailed = 90;

/// What the stand-in appends to its own path for the updater that runs, and for itself while the
/// updater has its name.
inline constexpr wchar_t kRealSuffix[] = L".real";
inline constexpr wchar_t kConsentSuffix[] = L".consent";
/// Beside the stand-in: the base name of the handshake's events, for a test that looks at them.
inline constexpr wchar_t kHandshakeSuffix[] = L".handshake";
/// Beside the stand-in: why it failed.
inline constexpr wchar_t kFailureSuffix[] = L".failure";

}  // namespace updater
