// Host-only: tag and priority filters written as "tag:p tag2:p *:p", the form
// of ANDROID_LOG_TAGS and of logcat's filter arguments. p is one letter of
// v d i w e f s (verbose .. silent, either case); a tag without ":p" means
// verbose; "*" stands for every tag not named.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace hostlog {

class TagFilter {
public:
    // defaultMinimum: lowest priority shown for tags the filter does not name.
    explicit TagFilter(int defaultMinimum) : defaultMinimum_(defaultMinimum) {}

    // Adds the entries of text (blank separated). Answers false, and keeps
    // the entries parsed before it, when an entry is malformed.
    bool parse(const char* text);
    bool allows(std::string_view tag, int priority) const;

private:
    int defaultMinimum_;
    std::vector<std::pair<std::string, int>> tags_;
};

// Letter logcat prints for a priority: V D I W E F S, '?' for others.
char priorityLetter(int priority);
// Priority of a filter letter (either case, '*' is verbose), or -1.
int priorityFromLetter(char letter);

}  // namespace hostlog
