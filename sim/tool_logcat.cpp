// The device's logcat: prints the records the host liblog keeps
// ("/sim/log/records", every process of the device appending) in threadtime
// form and, unless -d is given, keeps following them like the real one until
// it is killed or its reader goes away; a record file removed and created
// anew (device reset) is picked up.
//
//   logcat [-v threadtime] [-b buffer]... [-d] [-c] [-s] [tag:priority]...
//
// -b is accepted for the buffers the device knows and does not filter: the
// device log holds every buffer in one stream, as logcat's default view does.
// Filter expressions work as on the device ("pelkd:d *:s"); -s silences the
// tags not named.
#include <errno.h>
#include <fcntl.h>
#include <getopt.h>
#include <log/log.h>
#include <log/log_filter.h>
#include <log/log_records.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <string>

#include "base/FileIo.h"
#include "base/UniqueFd.h"

namespace {

const char kDeviceLog[] = "/sim/log/records";
const int kFollowPollMs = 50;

bool knownBuffer(const char* name) {
    for (const char* b : {"main", "system", "radio", "events", "crash", "default", "all"})
        if (strcmp(name, b) == 0) return true;
    return false;
}

class Printer {
public:
    explicit Printer(const hostlog::TagFilter* filter) : filter_(filter) {}

    // Writes the complete records of text that pass the filter. Answers
    // false when nobody reads our output any more.
    bool print(const std::string& text) {
        std::string out;
        size_t start = 0;
        for (size_t nl; (nl = text.find('\n', start)) != std::string::npos; start = nl + 1) {
            LogRecord record{};
            if (!liblog_decode_record(text.substr(start, nl - start), &record)) continue;
            if (filter_ && !filter_->allows(record.tag, record.priority)) continue;
            out += liblog_threadtime(record);
        }
        return writeAll(out);
    }

private:
    // False on EPIPE too, even when SIGPIPE is ignored.
    static bool writeAll(const std::string& out) { return pelk::writeFully(STDOUT_FILENO, out.data(), out.size()); }

    const hostlog::TagFilter* filter_;
};

// Reads the device log from where it left off, across truncation and
// re-creation of the file.
class Follower {
public:
    // Appends what was written since the last call; false when nothing new.
    bool readNew(std::string* text) {
        reopenIfReplaced();
        if (!fd_.ok()) return false;
        char buf[16384];
        bool any = false;
        ssize_t n;
        while ((n = read(fd_.get(), buf, sizeof(buf))) > 0) {
            pending_.append(buf, static_cast<size_t>(n));
            any = true;
        }
        size_t lastNewline = pending_.rfind('\n');
        if (lastNewline != std::string::npos) {
            text->append(pending_, 0, lastNewline + 1);
            pending_.erase(0, lastNewline + 1);
        }
        return any;
    }

private:
    void reopenIfReplaced() {
        struct stat now;
        if (stat(kDeviceLog, &now) != 0) return;  // gone for now: keep what we have
        struct stat ours;
        if (fd_.ok() && fstat(fd_.get(), &ours) == 0 && ours.st_nlink > 0 && ours.st_dev == now.st_dev &&
            ours.st_ino == now.st_ino) {
            off_t position = lseek(fd_.get(), 0, SEEK_CUR);
            if (now.st_size < position) {  // cleared: start again from the top
                lseek(fd_.get(), 0, SEEK_SET);
                pending_.clear();
            }
            return;
        }
        fd_.reset(open(kDeviceLog, O_RDONLY | O_CLOEXEC));
        pending_.clear();
    }

    pelk::UniqueFd fd_;
    std::string pending_;
};

// Waits a little; false when our reader has gone away (pipe closed).
bool waitForMore() {
    pollfd out{STDOUT_FILENO, 0, 0};
    int r = poll(&out, 1, kFollowPollMs);
    return !(r > 0 && (out.revents & (POLLERR | POLLHUP | POLLNVAL)));
}

int usage(const char* message) {
    fprintf(stderr, "%s\nUsage: logcat [-v threadtime] [-b buffer] [-d] [-c] [-s] [tag:priority ...]\n", message);
    return 1;
}

}  // namespace

int main(int argc, char** argv) {
    bool dump = false, clear = false;
    hostlog::TagFilter filter(ANDROID_LOG_VERBOSE);
    bool filtered = false;
    int opt;
    while ((opt = getopt(argc, argv, "v:b:dcs")) != -1) {
        switch (opt) {
            case 'v':
                if (strcmp(optarg, "threadtime") != 0) return usage("Unsupported log format; use -v threadtime.");
                break;
            case 'b':
                if (!knownBuffer(optarg)) return usage("Unknown buffer.");
                break;
            case 'd': dump = true; break;
            case 'c': clear = true; break;
            case 's':
                filter.parse("*:S");
                filtered = true;
                break;
            default: return usage("Invalid option.");
        }
    }
    for (int i = optind; i < argc; ++i) {
        if (!filter.parse(argv[i])) return usage("Invalid filter expression");
        filtered = true;
    }
    if (clear) {
        if (truncate(kDeviceLog, 0) != 0 && errno != ENOENT) {
            perror("logcat: clear");
            return 1;
        }
        return 0;
    }

    Printer printer(filtered ? &filter : nullptr);
    Follower follower;
    for (;;) {
        std::string text;
        bool any = follower.readNew(&text);
        if (!text.empty() && !printer.print(text)) return 0;
        if (dump) return 0;  // what was there when we started, no more
        if (!any && !waitForMore()) return 0;
    }
}
