#include "FuzzDevice.h"

#include <errno.h>
#include <fcntl.h>
#include <libxml/parser.h>
#include <libxml/xmlerror.h>
#include <limits.h>
#include <log/log_records.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mount.h>
#include <unistd.h>

#include <string>

#include "Sandbox.h"
#include "base/FileIo.h"
#include "base/UniqueFd.h"
#include "devprofile/DeviceProfile.h"

namespace fuzzdevice {
namespace {

// The working folder as it was when the device was entered.
std::string& workDir() {
    static std::string dir;
    return dir;
}

std::string& mountsAtReset() {
    static std::string table;
    return table;
}

std::string readMounts() {
    std::string table;
    pelk::UniqueFd fd(open("/proc/self/mountinfo", O_RDONLY | O_CLOEXEC));
    if (fd.ok()) pelk::readAll(fd.get(), &table);
    return table;
}

bool under(const std::string& path, const std::string& tree) {
    return path == tree || path.compare(0, tree.size() + 1, tree + "/") == 0;
}

bool fail(const char* what) {
    fprintf(stderr, "fuzz device: %s: %s\n", what, strerror(errno));
    return false;
}

// An input may name any path: a "delete_file" or "copy" of the engine must
// find the host's trees as unwritable as its system folders. The working
// folder keeps a writable mount of its own (it is libFuzzer's), entered
// again so that relative paths resolve through it. After a reset the tree
// is read-only already, and a bind copies that: it is made writable again.
bool lockTrees() {
    const std::string source = PELK_SOURCE_DIR, binary = PELK_BINARY_DIR;
    const std::string& work = workDir();
    if (under(work, source) || under(work, binary)) {
        if (mount(work.c_str(), work.c_str(), nullptr, MS_BIND, nullptr) != 0 ||
            mount(nullptr, work.c_str(), nullptr, MS_BIND | MS_REMOUNT, nullptr) != 0)
            return fail("bind the working folder");
        if (chdir(work.c_str()) != 0) return fail("enter the working folder");
    }
    if (mount(nullptr, source.c_str(), nullptr, MS_BIND | MS_REMOUNT | MS_RDONLY, nullptr) != 0)
        return fail("lock the source tree");
    if (!under(binary, source) &&
        mount(nullptr, binary.c_str(), nullptr, MS_BIND | MS_REMOUNT | MS_RDONLY, nullptr) != 0)
        return fail("lock the build tree");
    return true;
}

void ignoreXmlError(void*, const char*, ...) {}

// Sleeps of the engine (unmount retries, worker polls) a thousandth long.
bool quickSleeps() { return devprofile::set("time.scale", "0.001"); }

}  // namespace

int enter() {
    if (sim::insideSandbox()) return 0;
    // The engine still records every line; only the echo is silenced.
    setenv("ANDROID_LOG_TAGS", "*:s", 1);
    // As in the daemon: a peer that went away is an error result of the
    // write, not the end of the process.
    signal(SIGPIPE, SIG_IGN);
    char cwd[PATH_MAX];
    if (!getcwd(cwd, sizeof(cwd))) {
        fail("getcwd");
        return -1;
    }
    workDir() = cwd;
    if (sim::enterSandbox() != 0) return -1;
    if (!lockTrees() || !quickSleeps()) return -1;
    mountsAtReset() = readMounts();
    return 0;
}

bool reset() {
    if (sim::resetDevice() != 0 || !lockTrees() || !quickSleeps()) return false;
    mountsAtReset() = readMounts();
    return true;
}

void clearLogWhenDue() {
    static long inputs = 0;
    if (++inputs % 256 == 0) liblog_clear();
}

bool resetWhenDue(int every) {
    static int sinceReset = 0;
    if (++sinceReset < every && readMounts() == mountsAtReset()) return false;
    sinceReset = 0;
    if (!reset()) {
        fprintf(stderr, "fuzz device: the device could not be reset\n");
        abort();
    }
    return true;
}

void silenceXmlErrors() {
    // Set up first: the parser's set-up puts the default handler back.
    xmlInitParser();
    xmlSetGenericErrorFunc(nullptr, ignoreXmlError);
}

bool writeFile(const char* path, const uint8_t* data, size_t size) {
    pelk::UniqueFd fd(open(path, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600));
    return fd.ok() && pelk::writeFully(fd.get(), data, size);
}

}  // namespace fuzzdevice
