#include "Sandbox.h"

#include <fcntl.h>
#include <sched.h>
#include <signal.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "SandboxInternal.h"

namespace sim {
namespace {

[[noreturn]] void die(const char* what) {
    fprintf(stderr, "pelk sandbox: %s failed: %s\n", what, strerror(errno));
    _exit(1);
}

void mkdirs(const std::string& path, mode_t mode = 0755) {
    std::string cur;
    size_t pos = 0;
    while (pos != std::string::npos) {
        pos = path.find('/', pos + 1);
        cur = path.substr(0, pos);
        if (!cur.empty()) mkdir(cur.c_str(), mode);
    }
}

void writeFile(const char* path, const std::string& text) {
    int fd = open(path, O_WRONLY | O_CLOEXEC);
    if (fd < 0) die(path);
    if (write(fd, text.data(), text.size()) != static_cast<ssize_t>(text.size())) die(path);
    close(fd);
}

// Binds a host path at the same path under root; read-only unless asked.
void bindHost(const std::string& root, const std::string& hostPath, bool readOnly) {
    struct stat st;
    if (lstat(hostPath.c_str(), &st) != 0) return;
    std::string target = root + hostPath;
    if (S_ISLNK(st.st_mode)) {  // e.g. /bin -> usr/bin on merged-/usr hosts
        char link[4096] = {0};
        if (readlink(hostPath.c_str(), link, sizeof(link) - 1) > 0) symlink(link, target.c_str());
        return;
    }
    if (S_ISDIR(st.st_mode)) {
        mkdirs(target);
    } else {
        mkdirs(target.substr(0, target.rfind('/')));
        int fd = open(target.c_str(), O_CREAT | O_WRONLY | O_CLOEXEC, 0644);
        if (fd >= 0) close(fd);
    }
    if (mount(hostPath.c_str(), target.c_str(), nullptr, MS_BIND | MS_REC, nullptr) != 0)
        die(("bind " + hostPath).c_str());
    if (readOnly && mount(nullptr, target.c_str(), nullptr, MS_BIND | MS_REMOUNT | MS_RDONLY | MS_REC, nullptr) != 0)
        die(("read-only " + hostPath).c_str());
}

// A host folder to mount the new root on: one that holds neither the source
// nor the build tree, since those are bound from the host afterwards.
std::string pickRootMountPoint() {
    const char* candidates[] = {"/mnt", "/media", "/srv", "/opt", "/tmp", "/home"};
    std::string src = PELK_SOURCE_DIR, bin = PELK_BINARY_DIR;
    for (const char* c : candidates) {
        std::string p = std::string(c) + "/";
        struct stat st;
        if (stat(c, &st) == 0 && S_ISDIR(st.st_mode) && src.compare(0, p.size(), p) != 0 &&
            bin.compare(0, p.size(), p) != 0)
            return c;
    }
    errno = ENOENT;
    die("finding a folder for the device root");
}

void writeIdMaps(uid_t uid, gid_t gid) {
    writeFile("/proc/self/setgroups", "deny");
    writeFile("/proc/self/uid_map", "0 " + std::to_string(uid) + " 1");
    writeFile("/proc/self/gid_map", "0 " + std::to_string(gid) + " 1");
}

void setUpRoot(const SandboxOptions& options) {
    if (mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0) die("making mounts private");
    std::string root = pickRootMountPoint();
    if (mount("pelk-device", root.c_str(), "tmpfs", 0, "mode=0755") != 0) die("mounting the device root");

    for (const char* host : {"/usr", "/bin", "/sbin", "/lib", "/lib32", "/lib64", "/libx32", "/etc"})
        bindHost(root, host, true);
    bindHost(root, PELK_SOURCE_DIR, false);
    std::string bin = PELK_BINARY_DIR, src = std::string(PELK_SOURCE_DIR) + "/";
    if (bin.compare(0, src.size(), src) != 0) bindHost(root, bin, false);

    // /mnt is a filesystem of its own, as on a device: a process whose
    // "/storage" is a bind of "/mnt/runtime/read" shows the root
    // "/runtime/read" in its mountinfo.
    mkdirs(root + "/mnt");
    if (mount("tmpfs", (root + "/mnt").c_str(), "tmpfs", MS_NOSUID | MS_NODEV | MS_NOEXEC, "mode=0755") != 0)
        die("mounting /mnt");

    mkdirs(root + "/dev");
    if (mount("pelk-dev", (root + "/dev").c_str(), "tmpfs", 0, "mode=0755") != 0) die("mounting /dev");
    for (const char* node :
         {"/dev/null", "/dev/zero", "/dev/full", "/dev/random", "/dev/urandom", "/dev/tty", "/dev/ptmx", "/dev/pts"})
        bindHost(root, node, false);
    mkdirs(root + "/dev/shm");
    chmod((root + "/dev/shm").c_str(), 01777);
    mkdirs(root + "/proc");
    mkdirs(root + "/tmp");
    chmod((root + "/tmp").c_str(), 01777);

    if (!options.stateDir.empty()) {
        mkdirs(options.stateDir + "/data");
        mkdirs(root + "/data");
        if (mount((options.stateDir + "/data").c_str(), (root + "/data").c_str(), nullptr, MS_BIND, nullptr) != 0)
            die("binding the state folder");
    }

    std::string old = root + "/.oldroot";
    mkdirs(old);
    if (syscall(SYS_pivot_root, root.c_str(), old.c_str()) != 0) die("pivot_root");
    if (chdir("/") != 0) die("chdir /");
    if (umount2("/.oldroot", MNT_DETACH) != 0) die("detaching the host root");
    rmdir("/.oldroot");
    if (mount("proc", "/proc", "proc", MS_NOSUID | MS_NODEV | MS_NOEXEC, nullptr) != 0) die("mounting /proc");
    // A device's /mnt propagates: an app started before a container's views
    // are mounted still receives them in its own namespace (a slave of this
    // one), which is what lets the daemon bind them onto its /storage later.
    // Shared only after pivot_root, which refuses a shared new root's tree.
    if (mount(nullptr, "/mnt", nullptr, MS_SHARED, nullptr) != 0) die("making /mnt shared");
}

// The sandbox's init: reaps every orphan and ends with the worker's status.
[[noreturn]] void runInit(pid_t worker) {
    int result = 1;
    for (;;) {
        int status = 0;
        pid_t pid = waitpid(-1, &status, 0);
        if (pid < 0) {
            if (errno == EINTR) continue;
            break;
        }
        if (pid == worker) {
            result = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
            break;
        }
    }
    kill(-1, SIGKILL);
    while (waitpid(-1, nullptr, 0) > 0 || errno == EINTR) {}
    _exit(result);
}

[[noreturn]] void waitAndExit(pid_t child) {
    signal(SIGINT, SIG_IGN);  // the sandbox's own programs decide on ^C
    int status = 0;
    while (waitpid(child, &status, 0) < 0) {
        if (errno != EINTR) die("waiting for the sandbox");
    }
    // _exit: this process sits outside the new PID namespace, where the leak
    // checker cannot start its helper; the sandboxed process is checked.
    fflush(nullptr);
    _exit(WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status));
}

}  // namespace

bool insideSandbox() {
    const char* v = getenv("PELK_SANDBOX");
    return v && strcmp(v, "1") == 0;
}

std::string toolPath(const char* name) { return std::string(PELK_BINARY_DIR) + "/sim/" + name; }

int enterSandbox(const SandboxOptions& options) {
    if (insideSandbox()) return 0;
    fflush(nullptr);
    uid_t uid = geteuid();
    gid_t gid = getegid();
    int flags = CLONE_NEWNS | CLONE_NEWPID;
    if (uid != 0) flags |= CLONE_NEWUSER;
    if (unshare(flags) != 0) {
        fprintf(stderr,
                "The simulated device needs root or unprivileged user namespaces, and this machine "
                "allows neither (unshare: %s).\n",
                strerror(errno));
        exit(1);
    }
    if (uid != 0) writeIdMaps(uid, gid);

    char cwd[4096] = {0};
    if (!getcwd(cwd, sizeof(cwd) - 1)) cwd[0] = '\0';

    pid_t init = fork();
    if (init < 0) die("fork");
    if (init > 0) waitAndExit(init);

    // pid 1 of the new namespace.
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    setUpRoot(options);
    if (buildDeviceTree() != 0) _exit(1);
    recordBaseMounts();
    if (mountStorageViews() != 0) _exit(1);

    pid_t worker = fork();
    if (worker < 0) die("fork");
    if (worker > 0) runInit(worker);

    prctl(PR_SET_PDEATHSIG, SIGKILL);
    setenv("PELK_SANDBOX", "1", 1);
    setenv("PATH", "/system/bin:/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin", 1);
    unsetenv("PELK_PROFILE");
    if (cwd[0] == '\0' || chdir(cwd) != 0) {
        if (chdir("/") != 0) return -1;
    }
    return 0;
}

}  // namespace sim
