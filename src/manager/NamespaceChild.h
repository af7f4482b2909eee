// Changing a mount inside another process's mount namespace: a short-lived
// child is forked, enters the namespace with setns and binds or detaches
// there, and the caller waits for it before going on with the next process.
//
// The child makes only async-signal-safe calls (setns, mount, umount2,
// _exit): the daemon that forks it may have other threads holding locks. It
// hands its errno back through a page shared with the parent, so the parent
// writes the log line; its exit status stays what the platform expects: 1
// when setns or a bind failed, 0 otherwise.
#pragma once

namespace pelk {

struct NamespaceOutcome {
    enum Step {
        kForkFailed,   // no child ran; error is fork's errno
        kSetnsFailed,  // the child could not enter the namespace; error is its errno
        kWorkDone,     // the child did its work; error is 0 or the call's errno
    };
    Step step;
    int error;
};

class NamespaceChild {
public:
    NamespaceChild() = default;
    ~NamespaceChild();
    NamespaceChild(const NamespaceChild&) = delete;
    NamespaceChild& operator=(const NamespaceChild&) = delete;

    // Binds src on dst inside the namespace open at nsFd.
    NamespaceOutcome bind(int nsFd, const char* src, const char* dst);
    // Detaches path (MNT_DETACH) inside the namespace open at nsFd.
    NamespaceOutcome detach(int nsFd, const char* path);

private:
    struct Work;
    NamespaceOutcome run(int nsFd, const Work& work);

    // The page the children write their outcome into; mapped on first use
    // and kept for the rest of the walk.
    NamespaceOutcome* mShared = nullptr;
};

}  // namespace pelk
