// The manager logs to the system log buffer under the daemon's tag; the few
// main-buffer lines call __android_log_print themselves.
#pragma once

#include <log/log.h>

#define PELK_LOG(prio, ...) __android_log_buf_print(LOG_ID_SYSTEM, prio, "pelkd", __VA_ARGS__)
