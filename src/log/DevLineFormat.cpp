// Rewrites the time stamp of one line of the kernel's key-event log.
// The device writes "<seconds since the epoch>.<fraction>|<message>"; the
// copy shows "MM-DD HH:MM:SS.<milliseconds>|<message>" in local time.
#include <string.h>
#include <time.h>

#include <algorithm>
#include <cstdlib>

#include "log/PelkLog.h"

namespace {

const size_t kSecondsMax = 15;
const size_t kMillisMax = 3;

// Copies [from, from + n) as a NUL-terminated text into a buffer of size bytes.
void copyField(char* out, size_t size, const char* from, size_t n) {
    n = std::min(n, size - 1);
    memcpy(out, from, n);
    out[n] = '\0';
}

}  // namespace

int PelkLog::formatTime(char* line) {
    const size_t length = strnlen(line, DEV_LINE_BUFFER - 1);
    const char* end = line + length;

    // The stamp lies before the first vertical bar; a line without one is
    // all message, so that nothing the kernel wrote is lost.
    const char* bar = static_cast<const char*>(memchr(line, '|', length));
    const char* stampEnd = bar ? bar : end;
    const char* dot = static_cast<const char*>(memchr(line, '.', static_cast<size_t>(stampEnd - line)));

    char seconds[kSecondsMax + 1];
    const char* secondsEnd = dot ? dot : stampEnd;
    copyField(seconds, sizeof(seconds), line, std::min(static_cast<size_t>(secondsEnd - line), kSecondsMax));

    // Always the three characters after the full stop, as far as the line
    // goes: a shorter fraction brings the bar and the message's start along.
    char millis[kMillisMax + 1] = "";
    if (dot) copyField(millis, sizeof(millis), dot + 1, std::min(static_cast<size_t>(end - dot - 1), kMillisMax));

    const char* message = bar ? bar + 1 : line;
    size_t messageLength = static_cast<size_t>(end - message);
    const char* lastNewline = static_cast<const char*>(memrchr(message, '\n', messageLength));
    if (lastNewline) messageLength = static_cast<size_t>(lastNewline - message);
    char text[DEV_LINE_BUFFER];
    copyField(text, sizeof(text), message, messageLength);

    time_t when = static_cast<time_t>(strtoll(seconds, nullptr, 10));
    struct tm local;
    char stamp[25] = "";
    if (localtime_r(&when, &local) && strftime(stamp, sizeof(stamp), "%m-%d %H:%M:%S", &local) == 0) stamp[0] = '\0';

    int written = snprintf(line, DEV_LINE_BUFFER, "%s.%s|%s\n", stamp, millis, text);
    if (written < 0) {
        line[0] = '\0';
        return 0;
    }
    return std::min(written, DEV_LINE_BUFFER - 1);
}
