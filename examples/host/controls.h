#pragma once

// Shared by the resource script, the window's code and programs that drive the window from outside.
// Macros, because a resource script knows nothing else.

#define ID_MAIN_WINDOW 100
#define ID_VERSION_TEXT 101
#define ID_UPDATE_NOTICE 102

// Static texts: a greeting, or how the last update ended; and how a new one stands.
#define ID_MESSAGE 1001
#define ID_UPDATE_STATUS 1005

// How much of the new version is downloaded.
#define ID_PROGRESS 1006

// Buttons; a WM_COMMAND with one of these ids does what a click does. The first three are in one
// place: what can be done next is there.
#define ID_CHECK 1007
#define ID_DOWNLOAD 1008
#define ID_UPDATE 1002
#define ID_CANCEL_UPDATE 1003

// In the notice that an update is being installed; its other button is IDCANCEL.
#define ID_START_ANYWAY 1004
