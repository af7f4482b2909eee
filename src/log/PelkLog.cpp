// The singleton and the two threads it starts.
#define LOG_TAG "pelklogd"

#include "log/PelkLog.h"

#include <log/log.h>

const char* const PelkLogDevPath = "/dev/dek_log";
const char* const PelkLogLogPath = "/data/log/";
const char* const PelkLogLogFile = "/data/log/mirel_log.txt";
const char* const PelkLogLogFileOld = "/data/log/mirel_log.old";
const char* const PelkLogCatFile = "/data/log/pelk.log";
const char* const PelkLogCatFotaFile = "/data/log/pelk_fota.log";
const char* const PelkPremountSuccess = "/data/log/pelk_success";
const char* const PelkPremountFailed = "/data/log/pelk_error";
const char* const PelkPremountOnGoing = "/data/log/pelk_ongoing";
const char* const PelkRunningLog = "/data/log/pelk_running";

PelkLog* PelkLog::sInstance = nullptr;

PelkLog* PelkLog::Instance() {
    if (!sInstance) sInstance = new PelkLog();
    return sInstance;
}

PelkLog::PelkLog() { SLOGI("PelkLog::PelkLog"); }

PelkLog::~PelkLog() { SLOGI("PelkLog::~PelkLog"); }

int PelkLog::startLog() { return pthread_create(&mLogThread, nullptr, runThread, nullptr); }

int PelkLog::startLogcat() { return pthread_create(&mLogcatThread, nullptr, getlogcat, nullptr); }
