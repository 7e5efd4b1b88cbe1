#pragma once

// The one way in for <windows.h>: fixes the oldest supported system (Windows 10), makes the names
// without a suffix the wide ones, and keeps the min/max macros and rarely used interfaces out.

#ifndef WINVER
#define WINVER 0x0A00
#endif
#ifndef _WIN32_WINNT
#define _WIN32_WINNT 0x0A00
#endif
#ifndef WIN32_LEAN_AND_MEAN
#define WIN32_LEAN_AND_MEAN
#endif
#ifndef NOMINMAX
#define NOMINMAX
#endif
#ifndef UNICODE
#define UNICODE
#endif

#include <windows.h>

#if _WIN32_WINNT < 0x0A00
#error "A header that was included before has fixed an older system than Windows 10"
#endif
