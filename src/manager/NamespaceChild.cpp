#include "manager/NamespaceChild.h"

#include <errno.h>
#include <sys/mman.h>
#include <sys/mount.h>
#include <sys/wait.h>
#include <unistd.h>

#include "manager/MountCalls.h"

namespace pelk {

struct NamespaceChild::Work {
    const char* src;  // null: detach dst
    const char* dst;
};

namespace {

// Runs in the forked child: nothing here may allocate, lock or log.
[[noreturn]] void childMain(int nsFd, const char* src, const char* dst, NamespaceOutcome* out) {
    int rc = enterMountNamespace(nsFd);
    if (rc != 0) {
        *out = {NamespaceOutcome::kSetnsFailed, -rc};
        _exit(1);
    }
    rc = src ? bindMount(src, dst) : detachMount(dst, MNT_DETACH);
    *out = {NamespaceOutcome::kWorkDone, -rc};
    // A failed detach is reported by the parent and is no failure of the child.
    _exit(src && rc != 0 ? 1 : 0);
}

}  // namespace

NamespaceChild::~NamespaceChild() {
    if (mShared) munmap(mShared, static_cast<size_t>(sysconf(_SC_PAGESIZE)));
}

NamespaceOutcome NamespaceChild::bind(int nsFd, const char* src, const char* dst) { return run(nsFd, Work{src, dst}); }

NamespaceOutcome NamespaceChild::detach(int nsFd, const char* path) { return run(nsFd, Work{nullptr, path}); }

NamespaceOutcome NamespaceChild::run(int nsFd, const Work& work) {
    if (!mShared) {
        void* page = mmap(nullptr, static_cast<size_t>(sysconf(_SC_PAGESIZE)), PROT_READ | PROT_WRITE,
                          MAP_SHARED | MAP_ANONYMOUS, -1, 0);
        // Without the page no child can report; that is as fatal as a fork
        // that cannot get memory, and reported the same way.
        if (page == MAP_FAILED) return {NamespaceOutcome::kForkFailed, errno};
        mShared = static_cast<NamespaceOutcome*>(page);
    }
    // Until the child writes, a child that died early reads as a failed setns.
    *mShared = {NamespaceOutcome::kSetnsFailed, EIO};
    pid_t pid = fork();
    if (pid < 0) return {NamespaceOutcome::kForkFailed, errno};
    if (pid == 0) childMain(nsFd, work.src, work.dst, mShared);
    TEMP_FAILURE_RETRY(waitpid(pid, nullptr, 0));
    return *mShared;
}

}  // namespace pelk
