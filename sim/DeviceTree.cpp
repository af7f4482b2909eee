#include <dirent.h>
#include <fcntl.h>
#include <ftw.h>
#include <signal.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <log/record_file.h>
#include <private/android_filesystem_config.h>
#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "Sandbox.h"
#include "SandboxInternal.h"
#include "devprofile/DeviceProfile.h"

namespace sim {
namespace {

// Folders of a freshly booted device. Owners and modes follow the device's.
struct DeviceDir {
    const char* path;
    mode_t mode;
    uid_t uid;
    gid_t gid;
};

const DeviceDir kDeviceDirs[] = {
    {"/data", 0771, AID_SYSTEM, AID_SYSTEM},
    {"/data/system", 0775, AID_SYSTEM, AID_SYSTEM},
    {"/data/system/users", 0775, AID_SYSTEM, AID_SYSTEM},
    {"/data/system/users/0", 0700, AID_SYSTEM, AID_SYSTEM},
    {"/data/system_de", 0770, AID_SYSTEM, AID_SYSTEM},
    {"/data/system_ce", 0770, AID_SYSTEM, AID_SYSTEM},
    {"/data/misc", 01771, AID_SYSTEM, AID_MISC},
    {"/data/misc_de", 01771, AID_SYSTEM, AID_MISC},
    {"/data/misc_ce", 01771, AID_SYSTEM, AID_MISC},
    {"/data/misc/quarn_keystore", 0700, AID_SYSTEM, AID_SYSTEM},
    {"/data/misc/fips_quarn_keystore", 0700, AID_SYSTEM, AID_SYSTEM},
    {"/data/user", 0711, AID_SYSTEM, AID_SYSTEM},
    {"/data/user_de", 0711, AID_SYSTEM, AID_SYSTEM},
    {"/data/media", 0770, AID_MEDIA_RW, AID_MEDIA_RW},
    {"/data/zanth", 0771, AID_SYSTEM, AID_SYSTEM},
    {"/data/privatemode", 0771, AID_SYSTEM, AID_SYSTEM},
    {"/data/log", 0775, AID_SYSTEM, AID_LOG},
    {"/data/local", 0751, AID_ROOT, AID_ROOT},
    {"/data/local/tmp", 0771, AID_ROOT, AID_ROOT},
    {"/mnt", 0755, AID_ROOT, AID_SYSTEM},
    {"/mnt/runtime", 0700, AID_ROOT, AID_ROOT},
    {"/mnt/runtime/default", 0755, AID_ROOT, AID_ROOT},
    {"/mnt/runtime/read", 0755, AID_ROOT, AID_ROOT},
    {"/mnt/runtime/write", 0755, AID_ROOT, AID_ROOT},
    {"/mnt/runtime/full", 0755, AID_ROOT, AID_ROOT},
    {"/mnt/runtime/default/emulated", 0755, AID_ROOT, AID_ROOT},
    {"/mnt/runtime/read/emulated", 0755, AID_ROOT, AID_ROOT},
    {"/mnt/runtime/write/emulated", 0755, AID_ROOT, AID_ROOT},
    {"/mnt/shell", 0700, AID_SHELL, AID_SHELL},
    {"/mnt/media_rw", 0750, AID_ROOT, AID_MEDIA_RW},
    {"/mnt/user", 0755, AID_ROOT, AID_ROOT},
    {"/mnt/zanth", 0755, AID_ROOT, AID_ROOT},
    {"/storage", 0755, AID_ROOT, AID_ROOT},
    {"/storage/emulated", 0755, AID_ROOT, AID_ROOT},
    {"/system", 0755, AID_ROOT, AID_ROOT},
    {"/system/bin", 0755, AID_ROOT, AID_ROOT},
    {"/dev/socket", 0755, AID_ROOT, AID_ROOT},
    {"/sim", 0755, AID_ROOT, AID_ROOT},
    {"/sim/log", 0755, AID_ROOT, AID_ROOT},
    {"/tmp", 01777, AID_ROOT, AID_ROOT},
};

// Top-level names that belong to the booted device itself, never wiped.
bool isBaseTopLevel(const std::string& name) {
    static const std::set<std::string> base = {"usr",   "bin",    "sbin", "lib",  "lib32",
                                               "lib64", "libx32", "etc",  "proc", "dev"};
    if (base.count(name)) return true;
    for (const char* tree : {PELK_SOURCE_DIR, PELK_BINARY_DIR}) {
        std::string t(tree);
        size_t end = t.find('/', 1);
        if (t.substr(1, end == std::string::npos ? std::string::npos : end - 1) == name) return true;
    }
    return false;
}

std::set<std::string>& baseMountIds() {
    static std::set<std::string> ids;
    return ids;
}

struct MountEntry {
    std::string id;
    std::string point;
};

std::vector<MountEntry> readMountInfo() {
    std::vector<MountEntry> out;
    std::ifstream in("/proc/self/mountinfo");
    std::string line;
    while (std::getline(in, line)) {
        std::istringstream fields(line);
        MountEntry e;
        std::string parent, devno, rootInFs;
        fields >> e.id >> parent >> devno >> rootInFs >> e.point;
        if (!e.point.empty()) out.push_back(e);
    }
    return out;
}

int removeEntry(const char* path, const struct stat*, int, struct FTW*) {
    remove(path);
    return 0;
}

void removeTree(const std::string& path) { nftw(path.c_str(), removeEntry, 64, FTW_DEPTH | FTW_PHYS | FTW_MOUNT); }

// Kills every process of the sandbox but init and this one, and reaps ours.
void killOthers() {
    pid_t self = getpid();
    for (int round = 0; round < 50; ++round) {
        bool any = false;
        DIR* proc = opendir("/proc");
        if (!proc) return;
        while (dirent* e = readdir(proc)) {
            char* end = nullptr;
            long pid = strtol(e->d_name, &end, 10);
            if (*end != '\0' || pid <= 1 || pid == self) continue;
            // Zombies of other parents are init's to reap.
            char statPath[64];
            snprintf(statPath, sizeof(statPath), "/proc/%ld/stat", pid);
            std::ifstream st(statPath);
            std::string ignoredPid, comm, state;
            st >> ignoredPid >> comm >> state;
            if (state == "Z") continue;
            kill(static_cast<pid_t>(pid), SIGKILL);
            any = true;
        }
        closedir(proc);
        while (waitpid(-1, nullptr, WNOHANG) > 0) {}
        if (!any) return;
        usleep(2000);
    }
}

int unmountAllButBase() {
    for (int round = 0; round < 20; ++round) {
        auto mounts = readMountInfo();
        bool any = false;
        for (auto it = mounts.rbegin(); it != mounts.rend(); ++it) {
            if (baseMountIds().count(it->id)) continue;
            umount2(it->point.c_str(), MNT_DETACH);
            any = true;
        }
        if (!any) return 0;
    }
    fprintf(stderr, "pelk sandbox: some mounts could not be undone\n");
    return -1;
}

void linkDeviceTools() {
    DIR* dir = opendir((std::string(PELK_BINARY_DIR) + "/sim").c_str());
    if (!dir) return;
    while (dirent* e = readdir(dir)) {
        std::string name = e->d_name;
        if (name[0] == '.' || name == "pelk-device") continue;
        std::string target = toolPath(name.c_str());
        struct stat st;
        if (stat(target.c_str(), &st) != 0 || !S_ISREG(st.st_mode) || !(st.st_mode & S_IXUSR)) continue;
        symlink(target.c_str(), ("/system/bin/" + name).c_str());
    }
    closedir(dir);
}

}  // namespace

// One directory stands behind "/storage/emulated" in every view, so a
// directory the daemon makes there is there for every app too.
int mountStorageViews() {
    for (const char* view : {"/storage/emulated", "/mnt/runtime/default/emulated", "/mnt/runtime/read/emulated",
                             "/mnt/runtime/write/emulated"}) {
        if (mount("/data/media", view, nullptr, MS_BIND, nullptr) != 0) {
            fprintf(stderr, "pelk sandbox: bind /data/media on %s: %s\n", view, strerror(errno));
            return -1;
        }
    }
    return 0;
}

void recordBaseMounts() {
    for (const auto& m : readMountInfo()) baseMountIds().insert(m.id);
}

int buildDeviceTree() {
    for (const DeviceDir& d : kDeviceDirs) {
        if (mkdir(d.path, d.mode) != 0 && errno != EEXIST) {
            fprintf(stderr, "pelk sandbox: mkdir %s: %s\n", d.path, strerror(errno));
            return -1;
        }
        chmod(d.path, d.mode);  // mkdir honours the umask; the device does not
        if (chown(d.path, d.uid, d.gid) != 0 && geteuid() == 0) {
            fprintf(stderr, "pelk sandbox: chown %s: %s\n", d.path, strerror(errno));
            return -1;
        }
    }
    // The kernel's key-event log device. A FIFO stands in for it: tests and a
    // person at the device shell write lines into it and close it, which the
    // daemon's reader sees as the device ending.
    if (mkfifo("/dev/dek_log", 0600) != 0 && errno != EEXIST) {
        fprintf(stderr, "pelk sandbox: mkfifo /dev/dek_log: %s\n", strerror(errno));
        return -1;
    }
    chmod("/dev/dek_log", 0600);
    // The secure-execution device. An empty file stands in for it: the daemon
    // only holds descriptors on it, which it marks close-on-exec before it
    // runs the sdcard program.
    int qseecom = open("/dev/qseecom", O_CREAT | O_WRONLY | O_CLOEXEC, 0660);
    if (qseecom < 0) {
        fprintf(stderr, "pelk sandbox: create /dev/qseecom: %s\n", strerror(errno));
        return -1;
    }
    close(qseecom);
    chmod("/dev/qseecom", 0660);
    if (chown("/dev/qseecom", AID_SYSTEM, AID_DRMRPC) != 0 && geteuid() == 0) {
        fprintf(stderr, "pelk sandbox: chown /dev/qseecom: %s\n", strerror(errno));
        return -1;
    }
    linkDeviceTools();
    // A profile with the device's defaults: file-based encryption, no
    // container users, real-time sleeps.
    if (access(devprofile::path().c_str(), F_OK) != 0) devprofile::replace({{"fbe", "1"}});
    return 0;
}

int resetDevice() {
    killOthers();
    if (unmountAllButBase() != 0) return -1;
    DIR* root = opendir("/");
    if (!root) return -1;
    std::vector<std::string> wipe;
    while (dirent* e = readdir(root)) {
        std::string name = e->d_name;
        if (name == "." || name == ".." || isBaseTopLevel(name)) continue;
        wipe.push_back("/" + name);
    }
    closedir(root);
    for (const auto& p : wipe) removeTree(p);
    hostlog::RecordFile::deviceWiped();  // our own log must not go on into the removed files
    devprofile::forgetCachedCopy();      // nor our profile lookups trust a removed change count
    // /dev keeps the host's nodes; everything the device made there goes.
    DIR* dev = opendir("/dev");
    if (dev) {
        std::vector<std::string> made;
        while (dirent* e = readdir(dev)) {
            std::string name = e->d_name;
            static const std::set<std::string> keep = {".",       "..",  "null", "zero", "full", "random",
                                                       "urandom", "tty", "ptmx", "pts",  "shm"};
            if (!keep.count(name)) made.push_back("/dev/" + name);
        }
        closedir(dev);
        for (const auto& p : made) removeTree(p);
    }
    if (buildDeviceTree() != 0) return -1;
    return mountStorageViews();
}

}  // namespace sim
