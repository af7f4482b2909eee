// Where every log call of the host liblog goes.
#pragma once

#include <log/log_records.h>

#include <string>
#include <vector>

namespace hostlog {

// The longest message kept; longer ones are cut, as the device's logger does.
constexpr size_t kMaxMessageBytes = 4068;

// The shared record file behind the log_records.h queries.
void keepRecord(const LogRecord& record);
// The device log "/sim/log/logcat" in logcat's threadtime form.
void appendDeviceLog(const LogRecord& record);
// stderr, filtered by ANDROID_LOG_TAGS.
void echoToStderr(const LogRecord& record);

// The lines logcat prints for a message: one per line of text, trailing
// newlines dropped, at least one.
std::vector<std::string> messageLines(const std::string& text);

}  // namespace hostlog
