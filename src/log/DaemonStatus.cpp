// The status stream: the pre-mount marker files and the running log, and the
// stamped lines written into them.
#define LOG_TAG "pelklogd"

#include <cutils/properties.h>
#include <fcntl.h>
#include <log/log.h>
#include <private/android_filesystem_config.h>
#include <stdarg.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include "base/UniqueFd.h"
#include "log/PelkLog.h"

namespace {

// Owner and mode of the result files: readable by the system server's
// log collectors (uid system, gid log).
const uid_t kResultUid = AID_SYSTEM;
const gid_t kResultGid = AID_LOG;
const mode_t kResultMode = 0640;

// A running log this large is started afresh.
const off_t kRunningLogLimit = 10001;

const int kMessageSize = 4076;
const int kStampedLineSize = 4096;

const char kLevelNames[2][10] = {"NORMAL", "ERROR"};

// Unknown levels are stamped as errors rather than passed over.
const char* levelName(int level) { return level == PelkLog::LEVEL_NORMAL ? kLevelNames[0] : kLevelNames[1]; }

void logError(const char* fmt, const char* arg) { SLOGE(fmt, arg); }

void giveToResultOwner(FILE* stream) {
    int fd = fileno(stream);
    if (fchown(fd, kResultUid, kResultGid) != 0) SLOGE("Failed to chown for result.");
    if (fchmod(fd, kResultMode) != 0) SLOGE("Failed to chmod for result.");
}

// A new ongoing marker, headed by the build identity of this software.
FILE* createOngoingMarker() {
    char build[PROPERTY_VALUE_MAX] = "";
    property_get("ro.build.PDA", build, "");
    unlink(PelkPremountOnGoing);
    pelk::UniqueFd fd(open(PelkPremountOnGoing, O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, kResultMode));
    if (!fd.ok()) {
        logError("'%s' open failed", PelkPremountOnGoing);
        return nullptr;
    }
    FILE* stream = pelk::Fdopen(std::move(fd), "w");
    if (!stream) {
        logError("'%s' open failed", PelkPremountOnGoing);
        return nullptr;
    }
    if (build[0] != '\0') fprintf(stream, "%s\n", build);
    return stream;
}

FILE* openRunningLog() {
    struct stat st;
    if (stat(PelkRunningLog, &st) == 0 && st.st_size >= kRunningLogLimit) unlink(PelkRunningLog);
    FILE* stream = fopen(PelkRunningLog, "ae");
    if (!stream) {
        logError("'%s' open failed", PelkRunningLog);
        return nullptr;
    }
    giveToResultOwner(stream);
    return stream;
}

}  // namespace

void PelkLog::setDaemonStatus(int status) {
    switch (status) {
        case STATUS_PREMOUNT_START:
            mStatusFile.reset();
            mStatusFile.reset(createOngoingMarker());
            return;
        case STATUS_RUNNING_LOG:
            mStatusFile.reset();
            mStatusFile.reset(openRunningLog());
            return;
        case STATUS_CLOSE: mStatusFile.reset(); return;
        default: break;
    }
    // The end of pre-mount: success, or failure for any other value.
    if (!mStatusFile) return;
    giveToResultOwner(mStatusFile.get());
    mStatusFile.reset();
    const char* result = status == STATUS_PREMOUNT_SUCCESS ? PelkPremountSuccess : PelkPremountFailed;
    if (rename(PelkPremountOnGoing, result) == 0) ALOGD("Log file renaming..");
}

void PelkLog::stampPelkLog(int level, const char* fmt, ...) {
    if (!mStatusFile) return;
    char message[kMessageSize];
    va_list args;
    va_start(args, fmt);
    vsnprintf(message, sizeof(message) - 1, fmt, args);
    va_end(args);

    char line[kStampedLineSize];
    if (snprintf(line, sizeof(line), "%s %s %s\n", timeToString(), levelName(level), message) < 0) return;
    fputs(line, mStatusFile.get());  // flushed when the stream is closed
}

void PelkLog::writeRunningLog(int level, const char* fmt, ...) {
    char message[kMessageSize];
    va_list args;
    va_start(args, fmt);
    vsnprintf(message, sizeof(message) - 1, fmt, args);
    va_end(args);

    PelkLog running;
    running.setDaemonStatus(STATUS_RUNNING_LOG);
    running.stampPelkLog(level, "%s", message);
    running.setDaemonStatus(STATUS_CLOSE);
}

const char* PelkLog::timeToString() {
    static char sNow[20];
    time_t now = time(nullptr);
    struct tm local {};
    localtime_r(&now, &local);
    if (snprintf(sNow, sizeof(sNow), "%04d-%02d-%02d %02d:%02d:%02d", local.tm_year + 1900, local.tm_mon + 1,
                 local.tm_mday, local.tm_hour, local.tm_min, local.tm_sec) < 0)
        sNow[0] = '\0';
    return sNow;
}
