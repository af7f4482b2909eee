// Starting the sdcard views of an area: the platform's "/system/bin/sdcard"
// program runs in a child and the caller waits until it has exited, which it
// does once the views are in place.
#define LOG_TAG "pelkd"

#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <sys/wait.h>
#include <unistd.h>

#include <log/log.h>

#include "base/UniqueFd.h"
#include "manager/Pelk.h"
#include "partition/Partition.h"
#include "tools/CloseOnExec.h"

namespace {

const char kSdcard[] = "/system/bin/sdcard";
// The secure-execution device: the sdcard program must not inherit it.
const char kQseecom[] = "/dev/qseecom";
// Sized as the platform has them: a user id of four digits or more is cut
// to its first three in both, which the platform relies on.
constexpr int kUserIdSize = 4;
constexpr int kEmulatedSize = 14;
constexpr int kMaxArgs = 16;

// The program's argument vector for one area type; false for the types
// that have no views.
bool buildArguments(const Partition& area, char* userId, char* emulated, const char** argv) {
    int n = 0;
    argv[n++] = kSdcard;
    switch (area.mType) {
        case PARTITION_CE_SDCARD: {
            // Both cuts are deliberate: the results are not checked.
            int ignored = snprintf(userId, kUserIdSize, "%d", area.mUserId);
            ignored = snprintf(emulated, kEmulatedSize, "%s/%d", "emulated", area.mUserId);
            (void)ignored;
            for (const char* arg : {"-u", "1023", "-g", "1023", "-t", "/mnt/zanth/", "-U"}) argv[n++] = arg;
            argv[n++] = userId;
            for (const char* arg : {"-w", "-r"}) argv[n++] = arg;
            argv[n++] = area.mMntPath;
            argv[n++] = emulated;
            break;
        }
        case PARTITION_MIREL_MEDIA:
            for (const char* arg : {"-u", "1000", "-g", "1000", "-m", "-s", "-r", "/data/zanth/secure_fs/enc_media",
                                    "/mnt/shell/enc_emulated"})
                argv[n++] = arg;
            break;
        case PARTITION_PRIVATE_MODE:
            for (const char* arg : {"-u", "1000", "-g", "1000", "-w", "-r"}) argv[n++] = arg;
            argv[n++] = area.mMntPath;
            argv[n++] = "Private";
            break;
        default: return false;
    }
    argv[n] = nullptr;
    return true;
}

}  // namespace

int Pelk::mountSdcardfs(Partition* partition) {
    char userId[kUserIdSize];
    char emulated[kEmulatedSize];
    const char* argv[kMaxArgs];
    if (!partition || !buildArguments(*partition, userId, emulated, argv)) return -1;

    changeInheritTypeForFile(kQseecom, true);
    // The child tells an exec failure through this pipe, which a successful
    // exec closes; the parent writes the lines the child may not.
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) {
        SLOGE("failed to fork");
        return -1;
    }
    pelk::UniqueFd readEnd(ends[0]);
    pelk::UniqueFd writeEnd(ends[1]);
    pid_t pid = fork();
    if (pid == -1) {
        SLOGE("failed to fork");
        return -1;
    }
    if (pid == 0) {
        execv(kSdcard, const_cast<char* const*>(argv));
        int error = errno;
        ssize_t ignored = write(writeEnd.get(), &error, sizeof(error));
        (void)ignored;
        _exit(1);
    }
    writeEnd.reset();
    int execError = 0;
    if (TEMP_FAILURE_RETRY(read(readEnd.get(), &execError, sizeof(execError))) == sizeof(execError)) {
        SLOGE("Failed to exec");
        SLOGE("exec done, exiting");
    }
    // The program's exit status is not examined: it ends once the views
    // are mounted, or has said why not.
    TEMP_FAILURE_RETRY(waitpid(pid, nullptr, 0));
    return 0;
}
