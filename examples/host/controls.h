#pragma once

// Shared by the resource script, the window's code and programs that drive the window from outside.
// Macros, because a resource script knows nothing else.

#define ID_MAIN_WINDOW 100
#define ID_VERSION_TEXT 101
#define ID_UPDATE_NOTICE 102

// A static text; what the application tells the user.
#define ID_MESSAGE 1001

// Buttons; a WM_COMMAND with one of these ids does what a click does.
#define ID_UPDATE 1002
#define ID_CANCEL_UPDATE 1003

// In the notice that an update is being installed; its other button is IDCANCEL.
#define ID_START_ANYWAY 1004
