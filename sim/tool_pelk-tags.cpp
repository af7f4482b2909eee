// pelk-tags: what the simulated device's DLP and sensitive-data libraries
// left on files, for a person at the device shell (the device has no
// getfattr).
//
//   pelk-tags PATH ...
//
// Prints one line per entry of each tree, depth first, names sorted:
// "<path>  <tags>", where the tags are "sensitive=<engine>", "protected" and
// "expires=<UTC time> (<seconds>)", "-" for none; entries other than files
// and directories name their type, as the libraries leave them alone. Links
// are never followed. Exit status 1 when a PATH does not exist.
#include <dlp/dlp_records.h>
#include <sdp/sdp_records.h>
#include <stdio.h>
#include <sys/stat.h>
#include <time.h>

#include <algorithm>
#include <string>
#include <vector>

#include "base/DirEntry.h"
#include "base/UniqueHandle.h"

namespace {

const char* otherType(mode_t mode) {
    if (S_ISLNK(mode)) return "symbolic link";
    if (S_ISCHR(mode) || S_ISBLK(mode)) return "device";
    if (S_ISFIFO(mode)) return "pipe";
    if (S_ISSOCK(mode)) return "socket";
    return nullptr;
}

std::string tagsOf(const std::string& path, mode_t mode) {
    if (const char* type = otherType(mode)) return std::string("(") + type + ")";
    std::string tags;
    int engine = sdp_sensitive_of(path.c_str());
    if (engine >= 0) tags += " sensitive=" + std::to_string(engine);
    if (sdp_is_protected(path.c_str())) tags += " protected";
    long expiry = S_ISREG(mode) ? dlp_file_expiry(path.c_str()) : -1;
    if (expiry >= 0) {
        time_t when = expiry;
        struct tm utc {};
        char text[32] = "?";
        if (gmtime_r(&when, &utc)) strftime(text, sizeof(text), "%Y-%m-%d %H:%M:%S UTC", &utc);
        tags += std::string(" expires=") + text + " (" + std::to_string(expiry) + ")";
    }
    return tags.empty() ? "-" : tags.substr(1);
}

std::vector<std::string> sortedNames(const std::string& dir) {
    std::vector<std::string> names;
    pelk::UniqueDir stream(opendir(dir.c_str()));
    while (dirent* e = stream ? readdir(stream.get()) : nullptr)
        if (!pelk::isDotOrDotDot(e->d_name)) names.push_back(e->d_name);
    std::sort(names.begin(), names.end());
    return names;
}

bool show(const std::string& path) {
    struct stat st;
    if (lstat(path.c_str(), &st) != 0) return false;
    printf("%-48s %s\n", path.c_str(), tagsOf(path, st.st_mode).c_str());
    if (S_ISDIR(st.st_mode))
        for (const std::string& name : sortedNames(path)) show(path + "/" + name);
    return true;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 2) {
        fprintf(stderr, "usage: pelk-tags PATH ...\n");
        return 2;
    }
    int status = 0;
    for (int i = 1; i < argc; ++i) {
        if (!show(argv[i])) {
            fprintf(stderr, "pelk-tags: %s: no such file or directory\n", argv[i]);
            status = 1;
        }
    }
    return status;
}
