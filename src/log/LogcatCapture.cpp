// The capture of the mount table and the system log around the boot-time
// pre-mount, kept under a ".error" name when pre-mount fails, so that a
// failed pre-mount leaves a record behind.
#define LOG_TAG "pelklogd"

#include <log/log.h>
#include <persona/persona.h>
#include <stdio.h>
#include <unistd.h>

#include "log/PelkLog.h"

namespace {

using UniquePipe = pelk::UniqueHandle<FILE, pclose>;

const int kMaxPersonas = 32;
const int kNormalLineLimit = 35000;
const int kFotaLineLimit = 40000;
const int kCapturePathSize = 500;
const int kCaptureLineSize = 500;
const int kErrorPathSize = 4096;

// Markers are tested this often, this far apart: five minutes in all.
const int kMarkerTests = 600;
const useconds_t kMarkerIntervalUs = 500 * 1000;

const char kSeparator[] = "------------------------------------------------\n";

void logDebug(const char* text) { ALOGD("%s", text); }

bool exists(const char* path) { return access(path, F_OK) == 0; }

// Waits for pre-mount to begin; after five minutes the capture starts anyway.
void waitForPremountStart() {
    for (int i = 0; i < kMarkerTests; ++i) {
        if (exists(PelkPremountOnGoing)) {
            logDebug("PELK Premount is starting!!");
            return;
        }
        usleep(kMarkerIntervalUs);
    }
}

// Waits for the outcome of pre-mount; true when it failed.
bool waitForPremountFailure() {
    for (int i = 0; i < kMarkerTests; ++i) {
        if (exists(PelkPremountSuccess)) {
            logDebug("PELK Premount is success!!");
            return false;
        }
        if (exists(PelkPremountFailed)) return true;
        usleep(kMarkerIntervalUs);
    }
    return false;
}

// Copies at most limit lines (negative: all) of a pipe into the capture.
void copyLines(FILE* from, FILE* to, int limit) {
    char line[kCaptureLineSize];
    for (int count = 0; (limit < 0 || count < limit) && fgets(line, sizeof(line), from); ++count) fputs(line, to);
}

void copyMountTable(FILE* to) {
    UniquePipe mount(popen("mount", "re"));
    if (!mount) return;
    copyLines(mount.get(), to, -1);
    fputs(kSeparator, to);
}

void keepAsError(const char* capturePath) {
    logDebug("PELK Premount is failed!!");
    char errorPath[kErrorPathSize];
    if (snprintf(errorPath, sizeof(errorPath), "%s.error", capturePath) < 0) return;
    if (rename(capturePath, errorPath) == 0) logDebug("File backup for error log..");
}

}  // namespace

void* PelkLog::getlogcat(void*) {
    logDebug("getlogcat START");
    int personas[kMaxPersonas];
    if (scanZanthPersonas(personas, kMaxPersonas) < 1) {
        logDebug("No persona infos at xml, out\n");
        return nullptr;
    }

    char path[kCapturePathSize];
    int lineLimit;
    if (isFotaUpgrade()) {
        snprintf(path, sizeof(path), "%s", PelkLogCatFotaFile);
        lineLimit = kFotaLineLimit;
    } else {
        logDebug(".... it's Normal booting\n");
        snprintf(path, sizeof(path), "%s", PelkLogCatFile);
        lineLimit = kNormalLineLimit;
    }

    pelk::UniqueFile capture(fopen(path, "we"));
    if (!capture) {
        SLOGE("Could not open file for log, out\n");
        return nullptr;
    }

    waitForPremountStart();
    copyMountTable(capture.get());

    UniquePipe logcat(popen("logcat -v threadtime", "re"));
    if (!logcat) {
        fputs("Could not get log, out\n", capture.get());
        return nullptr;
    }
    // Blocks for as long as logcat keeps producing lines: the line limit is
    // the only bound.
    copyLines(logcat.get(), capture.get(), lineLimit);
    logDebug("getlogcat END");
    logcat.reset();
    capture.reset();

    if (waitForPremountFailure()) keepAsError(path);
    return nullptr;
}
