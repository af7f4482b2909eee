#include <log/log.h>
#include <log/log_filter.h>

#include <cctype>
#include <sstream>

namespace hostlog {

bool TagFilter::parse(const char* text) {
    if (!text) return true;
    std::istringstream words(text);
    std::string word;
    while (words >> word) {
        size_t colon = word.rfind(':');
        std::string tag = word.substr(0, colon);
        int minimum = ANDROID_LOG_VERBOSE;
        if (colon != std::string::npos) {
            if (colon + 2 != word.size()) return false;
            minimum = priorityFromLetter(word[colon + 1]);
        }
        if (tag.empty() || minimum < 0) return false;
        if (tag == "*") {
            defaultMinimum_ = minimum;
            continue;
        }
        bool replaced = false;
        for (auto& entry : tags_) {
            if (entry.first == tag) {
                entry.second = minimum;
                replaced = true;
            }
        }
        if (!replaced) tags_.emplace_back(tag, minimum);
    }
    return true;
}

bool TagFilter::allows(std::string_view tag, int priority) const {
    for (const auto& entry : tags_)
        if (entry.first == tag) return priority >= entry.second;
    return priority >= defaultMinimum_;
}

char priorityLetter(int priority) {
    switch (priority) {
        case ANDROID_LOG_VERBOSE: return 'V';
        case ANDROID_LOG_DEBUG: return 'D';
        case ANDROID_LOG_INFO: return 'I';
        case ANDROID_LOG_WARN: return 'W';
        case ANDROID_LOG_ERROR: return 'E';
        case ANDROID_LOG_FATAL: return 'F';
        case ANDROID_LOG_SILENT: return 'S';
        default: return '?';
    }
}

int priorityFromLetter(char letter) {
    switch (tolower(static_cast<unsigned char>(letter))) {
        case '*':
        case 'v': return ANDROID_LOG_VERBOSE;
        case 'd': return ANDROID_LOG_DEBUG;
        case 'i': return ANDROID_LOG_INFO;
        case 'w': return ANDROID_LOG_WARN;
        case 'e': return ANDROID_LOG_ERROR;
        case 'f': return ANDROID_LOG_FATAL;
        case 's': return ANDROID_LOG_SILENT;
        default: return -1;
    }
}

}  // namespace hostlog
