/* The application's half of an update: from a signed feed to the restart.

   Plain C for 64-bit Windows; C++ programs include the same header. A program that links the static
   library defines APP_UPDATE_STATIC before it includes this.

   The order of an update: AppUpdateOpen, AppUpdateCheck, AppUpdateDownload, AppUpdateStart, and
   AppUpdateWait until it tells to close the application. At the next start AppUpdateTakeOutcome
   says how it ended.

   Texts are UTF-16, end with a zero and are copied by the functions that take them. Times are in
   milliseconds, sizes in bytes. A structure that the caller provides begins with its own size,
   which the caller sets; a size that no version of this header has had is refused.

   The functions block and call nothing but the progress callback, on the caller's thread. One
   thread at a time may use a session; AppUpdateCancel alone may be called from any thread
   meanwhile. */
#ifndef CORVELLAN_UPDATE_H
#define CORVELLAN_UPDATE_H

#include <stdint.h>
#include <wchar.h>

#if defined(APP_UPDATE_STATIC)
#define APP_UPDATE_API
#elif defined(APP_UPDATE_BUILD)
#define APP_UPDATE_API __declspec(dllexport)
#else
#define APP_UPDATE_API __declspec(dllimport)
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* What every function returns. The values are part of the interface; new ones may be added. */
typedef int32_t AppUpdateResult;
enum {
    APP_UPDATE_OK = 0,

    /* No failures: there is nothing to do. */
    APP_UPDATE_NOTHING_NEW = 1,     /* the feed offers nothing newer than the running version */
    APP_UPDATE_NOT_YET = 2,         /* newer, but not for this machine's share yet */
    APP_UPDATE_NO_CHANGE = 3,       /* AppUpdateWait: the state is the same as before */
    APP_UPDATE_NO_OUTCOME = 4,      /* AppUpdateTakeOutcome: there is none to be told */
    APP_UPDATE_CANCELLED = 5,       /* AppUpdateCancel was called, or the update was cancelled */
    APP_UPDATE_PROMPT_DECLINED = 6, /* the user did not grant administrator rights */

    /* The caller's mistakes. */
    APP_UPDATE_INVALID_ARGUMENT = 20,
    APP_UPDATE_WRONG_ORDER = 21, /* such as a download before a check */

    /* The machine. */
    APP_UPDATE_OUT_OF_MEMORY = 30,
    APP_UPDATE_FILE_ERROR = 31, /* a file or directory of the library's own */
    APP_UPDATE_DISK_FULL = 32,
    APP_UPDATE_SYSTEM_ERROR = 33,

    /* The way to the server. */
    APP_UPDATE_NO_NETWORK = 40, /* not reached, or the connection broke or fell silent */
    APP_UPDATE_CERTIFICATE_REFUSED = 41,
    APP_UPDATE_REDIRECT_REFUSED = 42, /* to something other than HTTPS, or too often */
    APP_UPDATE_SERVER_ERROR = 43,     /* an answer other than the file */

    /* The feed. */
    APP_UPDATE_FEED_MALFORMED = 50,
    APP_UPDATE_BAD_SIGNATURE = 51, /* none, by an unknown key, or one that does not fit */
    APP_UPDATE_FEED_EXPIRED = 52,
    APP_UPDATE_FEED_OLDER = 53, /* an issue number lower than one seen before */
    APP_UPDATE_WRONG_CHANNEL = 54,
    APP_UPDATE_TOO_OLD_TO_UPDATE = 55, /* the running version may not update directly */

    /* The setup program. */
    APP_UPDATE_WRONG_SIZE = 60,
    APP_UPDATE_WRONG_DIGEST = 61,

    /* The update itself. */
    APP_UPDATE_UPDATER_MISSING = 70,
    APP_UPDATE_UPDATER_NOT_STARTED = 71,
    APP_UPDATE_UPDATER_ENDED = 72,      /* without a report of an outcome */
    APP_UPDATE_FAILED = 73,             /* before anything was changed */
    APP_UPDATE_FAILED_RESTORED = 74,    /* the previous program is in place */
    APP_UPDATE_FAILED_NOT_RESTORED = 75 /* the program may be damaged; install it again */
};

/* A result in words for the application's log: one English sentence without its full stop. */
typedef struct AppUpdateReport {
    uint32_t size;
    AppUpdateResult result;
    uint32_t systemError; /* the Windows error number behind it, or 0 */
    wchar_t sentence[512];
} AppUpdateReport;

/* An application's settings. Everything else is kept below the data directory: the feeds seen, the
   download, and a job directory for each update. */
typedef struct AppUpdateSettings {
    uint32_t size;
    uint32_t flags; /* of the APP_UPDATE_FLAG values */

    /* The feed's address: "https://...". */
    const wchar_t* feedAddress;

    /* The public keys, P-256, whose signatures count: each the text of a PEM file ("-----BEGIN
       PUBLIC KEY-----"), or what stands between its first and last line. At least 1, at most 16. */
    const wchar_t* const* publicKeys;
    uint32_t publicKeyCount;

    /* How long to wait for a connection, and for the next bytes of an answer; 0 stands for 30,000.
     */
    uint32_t connectLimit;
    uint32_t silenceLimit;
    /* The pause before a download's second try, which grows with each further one; 0 stands for
       1,000. */
    uint32_t firstPause;

    /* The running version: four numbers with dots, as in the executable's version resource. */
    const wchar_t* runningVersion;
    /* Null stands for "stable". */
    const wchar_t* channel;
    /* Where the application and the updater are installed. Null: where the running executable is.
     */
    const wchar_t* installDirectory;
    /* The user's own directory for this. Null: the application's directory in the user's local data
       (%LOCALAPPDATA%). It is created when it is missing. */
    const wchar_t* dataDirectory;
} AppUpdateSettings;

/* An offer may be older than the running version. */
#define APP_UPDATE_FLAG_ALLOW_DOWNGRADE 1u

/* What the feed offers. The texts belong to the session and hold until its next check or its end.
 */
typedef struct AppUpdateOffer {
    uint32_t size;
    uint32_t issue; /* the feed's issue number */
    uint64_t setupSize;
    const wchar_t* version;
    const wchar_t* notes; /* the address of the release's notes, or an empty text */
} AppUpdateOffer;

/* How an update goes on. */
typedef int32_t AppUpdateState;
enum {
    APP_UPDATE_STATE_STARTED = 0,    /* the user may see the prompt for administrator rights */
    APP_UPDATE_STATE_AUTHORIZED = 1, /* granted, and the setup program is verified */
    APP_UPDATE_STATE_READY = 2       /* save the user's work and end the application now */
};

/* How the last update ended. */
typedef struct AppUpdateOutcome {
    uint32_t size;
    /* APP_UPDATE_OK, or what AppUpdateWait returns for an update that has ended. */
    AppUpdateResult result;
    wchar_t version[24];   /* that was to be installed */
    wchar_t message[1024]; /* the updater's own words, for the log */
} AppUpdateOutcome;

typedef struct AppUpdateSession AppUpdateSession;

/* Tells how many bytes of the setup program are there, of how many. */
typedef void(__cdecl* AppUpdateProgress)(void* context, uint64_t done, uint64_t total);

/* Every function below takes a report that it fills in whatever it returns; null for none. */

/* Opens a session; the caller closes it with AppUpdateClose. Null is stored on a failure. Asks no
   server. */
APP_UPDATE_API AppUpdateResult __cdecl AppUpdateOpen(const AppUpdateSettings* settings,
                                                     AppUpdateSession** session,
                                                     AppUpdateReport* report);

/* Closes a session and lets go of the downloaded setup program, which stays. An update that has
   been started goes on. Null is fine. */
APP_UPDATE_API void __cdecl AppUpdateClose(AppUpdateSession* session);

/* Fetches the feed, if it has changed, and verifies it. Stores an offer when it returns
   APP_UPDATE_OK. */
APP_UPDATE_API AppUpdateResult __cdecl AppUpdateCheck(AppUpdateSession* session,
                                                      AppUpdateOffer* offer,
                                                      AppUpdateReport* report);

/* Downloads the setup program of the last check's offer and verifies it; goes on with a download
   that was interrupted, and does nothing for one that is complete. From here on until the session
   is closed nobody can write to the file. The callback may be null. */
APP_UPDATE_API AppUpdateResult __cdecl AppUpdateDownload(AppUpdateSession* session,
                                                         AppUpdateProgress progress, void* context,
                                                         AppUpdateReport* report);

/* Starts the updater on the downloaded setup program; it asks the user for administrator rights.
   The application goes on until AppUpdateWait stores APP_UPDATE_STATE_READY. */
APP_UPDATE_API AppUpdateResult __cdecl AppUpdateStart(AppUpdateSession* session,
                                                      AppUpdateReport* report);

/* Waits at most so many milliseconds for another state than the last one, and stores it. Returns
   APP_UPDATE_NO_CHANGE when there is none, and any other result but APP_UPDATE_OK when the update
   has ended: the application goes on, and may start another one. */
APP_UPDATE_API AppUpdateResult __cdecl AppUpdateWait(AppUpdateSession* session,
                                                     uint32_t milliseconds, AppUpdateState* state,
                                                     AppUpdateReport* report);

/* Ends the call that runs, or else the next check, download or start, with APP_UPDATE_CANCELLED. An
   update that has been started is asked to give up; AppUpdateWait then returns APP_UPDATE_CANCELLED
   when it has. From any thread. */
APP_UPDATE_API void __cdecl AppUpdateCancel(AppUpdateSession* session);

/* Stores how the last update ended. Each outcome is told once: APP_UPDATE_NO_OUTCOME the next time,
   and as long as the update has not ended. */
APP_UPDATE_API AppUpdateResult __cdecl AppUpdateTakeOutcome(AppUpdateSession* session,
                                                            AppUpdateOutcome* outcome,
                                                            AppUpdateReport* report);

/* Whether an update of this application is being installed on the machine, or somebody makes
   believe that one is: not 0 if so. An application that finds it so at its start says so and ends.
 */
APP_UPDATE_API int32_t __cdecl AppUpdateIsBeingInstalled(void);

/* Deletes what earlier updates left in the data directory: setup programs but the offered one, job
   directories but the last one, and what a process that ended suddenly did not finish writing. What
   is in use stays, and is no failure. */
APP_UPDATE_API AppUpdateResult __cdecl AppUpdateTidyUp(AppUpdateSession* session,
                                                       AppUpdateReport* report);

#ifdef __cplusplus
}
#endif

#endif
