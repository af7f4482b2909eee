// The device's "/system/bin/sdcard" (host edition). On a device it mounts
// sdcardfs views of a storage directory and exits; here the views are bind
// mounts of that directory, made in the caller's mount namespace. It takes
// exactly the argument vectors the engine's mountSdcardfs builds:
//
//   sdcard -u 1023 -g 1023 -t /mnt/zanth/ -U <user> -w -r <source> emulated/<user>
//       views /mnt/zanth/{default,read,write}/emulated/<user>   ('f')
//   sdcard -u 1000 -g 1000 -w -r <source> Private
//       views /mnt/runtime/{default,read,write}/Private        ('g')
//   sdcard -u 1000 -g 1000 -m -s -r /data/zanth/secure_fs/enc_media /mnt/shell/enc_emulated
//       one view, /mnt/shell/enc_emulated                      ('i')
//
// ("-U" carries at most the first three digits of the user, as the engine
// cuts it; the label carries the whole id and names the views.) Anything
// else gets the usage line and exit status 1.
//
// Each view directory is made when missing (mode 0771) and owned by the
// given uid and gid, and so is the top of the source, so that every view's
// top reads as owned by them, as sdcardfs presents it. The read view is
// read-only. The program exits 0 once every view is mounted; when one cannot
// be, the views mounted so far are taken down again and it exits 1. Every run
// is recorded, with its argument vector and the descriptors it inherited
// (sim/SdcardRecords.h), just before it exits.
#include <dirent.h>
#include <errno.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "SdcardRecords.h"

namespace {

const char kUsage[] =
    "usage: sdcard -u 1023 -g 1023 -t /mnt/zanth/ -U USER -w -r SOURCE emulated/USER\n"
    "       sdcard -u 1000 -g 1000 -w -r SOURCE Private\n"
    "       sdcard -u 1000 -g 1000 -m -s -r /data/zanth/secure_fs/enc_media /mnt/shell/enc_emulated\n";

struct View {
    std::string path;
    bool readOnly;
};

struct Request {
    uid_t uid = 0;
    gid_t gid = 0;
    std::string source;
    std::vector<View> views;
};

bool allDigits(const std::string& s) { return !s.empty() && s.find_first_not_of("0123456789") == std::string::npos; }

std::vector<View> threeViews(const std::string& base, const std::string& label) {
    return {{base + "default/" + label, false}, {base + "read/" + label, true}, {base + "write/" + label, false}};
}

bool parse(const std::vector<std::string>& a, Request* r) {
    auto is = [&a](std::initializer_list<std::pair<size_t, const char*>> words) {
        for (const auto& w : words)
            if (a[w.first] != w.second) return false;
        return true;
    };
    if (a.size() == 12 && is({{0, "-u"},
                              {1, "1023"},
                              {2, "-g"},
                              {3, "1023"},
                              {4, "-t"},
                              {5, "/mnt/zanth/"},
                              {6, "-U"},
                              {8, "-w"},
                              {9, "-r"}})) {
        const std::string& label = a[11];
        const std::string prefix = "emulated/";
        if (label.compare(0, prefix.size(), prefix) != 0) return false;
        std::string user = label.substr(prefix.size());
        if (!allDigits(user) || a[7] != user.substr(0, 3) || a[10].empty()) return false;
        *r = {1023, 1023, a[10], threeViews(a[5], label)};
        return true;
    }
    if (a.size() == 8 && is({{0, "-u"}, {1, "1000"}, {2, "-g"}, {3, "1000"}, {4, "-w"}, {5, "-r"}, {7, "Private"}}) &&
        !a[6].empty()) {
        *r = {1000, 1000, a[6], threeViews("/mnt/runtime/", "Private")};
        return true;
    }
    if (a.size() == 9 && is({{0, "-u"},
                             {1, "1000"},
                             {2, "-g"},
                             {3, "1000"},
                             {4, "-m"},
                             {5, "-s"},
                             {6, "-r"},
                             {7, "/data/zanth/secure_fs/enc_media"},
                             {8, "/mnt/shell/enc_emulated"}})) {
        *r = {1000, 1000, a[7], {{a[8], false}}};
        return true;
    }
    return false;
}

std::vector<std::string> inheritedDescriptors() {
    std::vector<std::string> out;
    DIR* dir = opendir("/proc/self/fd");
    if (!dir) return out;
    while (dirent* e = readdir(dir)) {
        int fd = atoi(e->d_name);
        if (e->d_name[0] == '.' || fd <= 2 || fd == dirfd(dir)) continue;
        char target[4096] = {0};
        std::string link = std::string("/proc/self/fd/") + e->d_name;
        if (readlink(link.c_str(), target, sizeof(target) - 1) < 0) continue;
        out.push_back(std::string(e->d_name) + " " + target);
    }
    closedir(dir);
    return out;
}

bool makeDirs(const std::string& path, mode_t mode) {
    for (size_t pos = path.find('/', 1);; pos = path.find('/', pos + 1)) {
        std::string prefix = path.substr(0, pos);
        if (mkdir(prefix.c_str(), pos == std::string::npos ? mode : 0755) != 0 && errno != EEXIST) return false;
        if (pos == std::string::npos) return true;
    }
}

bool fail(const std::string& what) {
    fprintf(stderr, "sdcard: %s: %s\n", what.c_str(), strerror(errno));
    return false;
}

bool mountView(const Request& r, const View& v) {
    if (!makeDirs(v.path, 0771)) return fail("cannot make " + v.path);
    if (chown(v.path.c_str(), r.uid, r.gid) != 0) return fail("cannot own " + v.path);
    if (mount(r.source.c_str(), v.path.c_str(), nullptr, MS_BIND, nullptr) != 0)
        return fail("cannot mount " + r.source + " on " + v.path);
    if (v.readOnly && mount(nullptr, v.path.c_str(), nullptr, MS_BIND | MS_REMOUNT | MS_RDONLY, nullptr) != 0) {
        fail("cannot make " + v.path + " read-only");
        umount2(v.path.c_str(), MNT_DETACH);
        return false;
    }
    return true;
}

}  // namespace

int main(int argc, char** argv) {
    sim::SdcardRun run;
    run.inheritedFds = inheritedDescriptors();
    for (int i = 0; i < argc; ++i) run.argv.push_back(argv[i]);
    std::vector<std::string> args(run.argv.begin() + (argc > 0 ? 1 : 0), run.argv.end());

    Request request;
    run.status = 1;
    if (!parse(args, &request)) {
        fputs(kUsage, stderr);
    } else if (chown(request.source.c_str(), request.uid, request.gid) != 0) {
        fail("cannot own " + request.source);
    } else {
        run.status = 0;
        for (const View& view : request.views) {
            if (!mountView(request, view)) {
                run.status = 1;
                break;
            }
            run.views.push_back(view.path);
        }
        if (run.status != 0) {
            for (auto it = run.views.rbegin(); it != run.views.rend(); ++it) umount2(it->c_str(), MNT_DETACH);
            run.views.clear();
        }
    }
    sim::recordSdcardRun(run);
    return run.status;
}
