// Every line of the key store helpers carries this tag. Lines carry lengths
// and paths only, never key or password bytes.
#pragma once

#include <log/log.h>

#define QUARN_TAG "pelkd.QuarnHelper"
#define QUARN_LOGD(...) __android_log_print(ANDROID_LOG_DEBUG, QUARN_TAG, __VA_ARGS__)
#define QUARN_LOGE(...) __android_log_print(ANDROID_LOG_ERROR, QUARN_TAG, __VA_ARGS__)
