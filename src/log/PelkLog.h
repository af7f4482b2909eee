// The daemon's own log files under "/data/log/", kept apart from the Android
// system log:
//   - a copy of the kernel's key-event log: a thread reads "/dev/dek_log"
//     line by line, rewrites each line's time stamp and appends it to
//     "/data/log/mirel_log.txt", rotated to "/data/log/mirel_log.old";
//   - the boot pre-mount markers: "/data/log/pelk_ongoing" while pre-mount
//     runs, moved to "/data/log/pelk_success" or "/data/log/pelk_error" when
//     it ends; each holds the build identity ("ro.build.PDA") of the software
//     that wrote it, then the lines stamped by pre-mount;
//   - the running log "/data/log/pelk_running" (writeRunningLog);
//   - upgrade detection (isFotaUpgrade) and the capture of the mount table
//     and the system log around pre-mount (startLogcat).
// Its own troubles go to the system log buffer under the tag "pelklogd".
#pragma once

#include <pthread.h>
#include <stdio.h>

#include "base/UniqueHandle.h"

extern const char* const PelkLogDevPath;       // "/dev/dek_log"
extern const char* const PelkLogLogPath;       // "/data/log/"
extern const char* const PelkLogLogFile;       // "/data/log/mirel_log.txt"
extern const char* const PelkLogLogFileOld;    // "/data/log/mirel_log.old"
extern const char* const PelkLogCatFile;       // "/data/log/pelk.log"
extern const char* const PelkLogCatFotaFile;   // "/data/log/pelk_fota.log"
extern const char* const PelkPremountSuccess;  // "/data/log/pelk_success"
extern const char* const PelkPremountFailed;   // "/data/log/pelk_error"
extern const char* const PelkPremountOnGoing;  // "/data/log/pelk_ongoing"
extern const char* const PelkRunningLog;       // "/data/log/pelk_running"

class PelkLog {
public:
    // Levels of stamped lines.
    enum { LEVEL_NORMAL = 0, LEVEL_ERROR = 1 };

    // Pre-mount and running-log states for setDaemonStatus.
    enum {
        STATUS_PREMOUNT_START = 0,    // create the ongoing marker as the status stream
        STATUS_PREMOUNT_SUCCESS = 1,  // close it and move it to the success marker
        STATUS_PREMOUNT_FAILED = 2,   // close it and move it to the error marker (also any unknown value)
        STATUS_RUNNING_LOG = 3,       // open the running log as the status stream
        STATUS_CLOSE = 4,             // close the status stream
    };

    // A device line is read into a buffer of this size: at most
    // DEV_LINE_MAX characters from the device, with room for formatTime to
    // rewrite the line in place (its time stamp may be longer than the
    // device's).
    static constexpr int DEV_LINE_MAX = 254;
    static constexpr int DEV_LINE_BUFFER = 512;

    // The singleton, created on first use. No lock: the first call happens
    // during start-up, before any thread of the daemon runs.
    static PelkLog* Instance();

    PelkLog();
    ~PelkLog();
    PelkLog(const PelkLog&) = delete;
    PelkLog& operator=(const PelkLog&) = delete;

    // Starts the device reader thread; answers pthread_create's result.
    int startLog();
    // Starts the logcat capture thread; answers pthread_create's result.
    int startLogcat();

    // The device reader thread's body; the argument is not used.
    static void* runThread(void* unused);
    // The logcat capture thread's body; the argument is not used.
    static void* getlogcat(void* unused);

    // The reader's steps, one by one.
    // Opens the device for reading; null (logged) when missing or unreadable.
    // The caller owns the stream.
    static FILE* openLogDev(const char* path);
    // Makes sure the log folder exists (mode 0700 when created): 0 or -1.
    static int checkLogPath(const char* path);
    // Current size of the log file; 0 when it cannot be opened.
    static long getLogFileSize();
    // Reads one line of at most DEV_LINE_MAX characters into line (a buffer of
    // DEV_LINE_BUFFER bytes); answers its length, or -1 at end or error.
    static int readFromDev(FILE* dev, char* line);
    // Appends text to the log file, opening and closing it; -1 when it
    // cannot be opened.
    static int writeToLog(const char* text);
    // Moves the log file to the old log, which must exist: 0 or -1.
    static int backupLogFile();

    // Rewrites a device line "<seconds>.<fraction>|<message>" in place as
    // "MM-DD HH:MM:SS.<ms>|<message>\n" (local time) and answers its new
    // length. line is a NUL-terminated text in a buffer of DEV_LINE_BUFFER
    // bytes; a line without a full stop or a vertical bar is rewritten too,
    // never read beyond its end.
    static int formatTime(char* line);

    // Drives the marker files and the running log (see the STATUS_ values).
    void setDaemonStatus(int status);
    // Writes "<time> <level name> <message>\n" to the status stream; does
    // nothing when no status stream is open.
    void stampPelkLog(int level, const char* fmt, ...) __attribute__((format(printf, 3, 4)));
    // Appends one stamped line to the running log, through an object of its
    // own so that an open pre-mount stream is left alone.
    static void writeRunningLog(int level, const char* fmt, ...) __attribute__((format(printf, 2, 3)));
    // "YYYY-MM-DD HH:MM:SS" of now (local time) in a static buffer shared by
    // every caller.
    static const char* timeToString();
    // True when this boot follows a software upgrade: the build identity in
    // the success (else error) marker differs from "ro.build.PDA".
    static bool isFotaUpgrade();

    // Thread handles, for whoever wants to wait for a thread to end.
    pthread_t logThread() const { return mLogThread; }
    pthread_t logcatThread() const { return mLogcatThread; }
    bool hasStatusStream() const { return static_cast<bool>(mStatusFile); }

private:
    static PelkLog* sInstance;

    pelk::UniqueFile mStatusFile;  // the pre-mount marker or the running log, one at a time
    pthread_t mLogThread{};
    pthread_t mLogcatThread{};
};
