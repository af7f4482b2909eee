#define LOG_TAG "pelkd"

#include "manager/StorageReport.h"

#include <log/log.h>

#include "log/PelkLog.h"

namespace pelk {

void reportPrepareFailure(const char* text) {
    ALOGE("%s", text);
    PelkLog::Instance()->stampPelkLog(PelkLog::LEVEL_ERROR, "%s", text);
}

}  // namespace pelk
