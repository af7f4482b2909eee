// The walk over /proc that the namespace workers choose processes from.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <signal.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <map>
#include <string>

#include "process/UserProcesses.h"

namespace {

// A child running as uid, in a mount namespace of its own when asked,
// parked until the destructor kills it.
class Parked {
public:
    Parked(uid_t uid, bool ownNamespace) {
        int ready[2];
        if (pipe2(ready, O_CLOEXEC) != 0) return;
        pid_ = fork();
        if (pid_ == 0) {
            close(ready[0]);
            if (ownNamespace && unshare(CLONE_NEWNS) != 0) _exit(1);
            if (setresgid(uid, uid, uid) != 0 || setresuid(uid, uid, uid) != 0) _exit(1);
            char byte = 1;
            if (write(ready[1], &byte, 1) != 1) _exit(1);
            for (;;) pause();
        }
        close(ready[1]);
        char byte = 0;
        ready_ = pid_ > 0 && read(ready[0], &byte, 1) == 1;
        close(ready[0]);
    }
    ~Parked() {
        if (pid_ > 0) {
            kill(pid_, SIGKILL);
            waitpid(pid_, nullptr, 0);
        }
    }
    pid_t pid() const { return pid_; }
    bool ready() const { return ready_; }

private:
    pid_t pid_ = -1;
    bool ready_ = false;
};

struct Seen {
    uid_t uid;
    std::string name;
    std::string nsLink;
    ino_t dirInode;
};

std::map<pid_t, Seen> walkAll() {
    std::map<pid_t, Seen> seen;
    pelk::ProcessWalk walk;
    EXPECT_TRUE(walk.ok());
    walk.forEach([&](const pelk::ProcessEntry& p) {
        char link[256] = {0};
        struct stat st = {};
        fstat(p.dirFd, &st);
        pelk::readMountNamespaceLink(p, link, sizeof(link));
        seen[p.pid] = Seen{p.uid, p.name, link, st.st_ino};
    });
    return seen;
}

TEST(UserProcesses, WalkSeesEveryProcessWithItsOwnerAndNamespace) {
    Parked app(1010123, true);
    Parked shell(2000, false);
    ASSERT_TRUE(app.ready() && shell.ready());
    std::map<pid_t, Seen> seen = walkAll();

    ASSERT_EQ(1u, seen.count(app.pid()));
    ASSERT_EQ(1u, seen.count(shell.pid()));
    ASSERT_EQ(1u, seen.count(getpid()));
    EXPECT_EQ(1010123u, seen[app.pid()].uid);
    EXPECT_EQ(10, pelk::androidUserOf(seen[app.pid()].uid));
    EXPECT_EQ(0, pelk::androidUserOf(seen[shell.pid()].uid));
    EXPECT_EQ(std::to_string(app.pid()), seen[app.pid()].name);
    struct stat st;
    ASSERT_EQ(0, stat(("/proc/" + std::to_string(app.pid())).c_str(), &st));
    EXPECT_EQ(st.st_ino, seen[app.pid()].dirInode) << "the open directory is the process's own";

    // Namespaces tell apart by their link; "self" and other names are not processes.
    EXPECT_EQ(seen[getpid()].nsLink, seen[shell.pid()].nsLink);
    EXPECT_NE(seen[getpid()].nsLink, seen[app.pid()].nsLink);
    EXPECT_EQ(0u, seen.count(0));

    pelk::ProcessWalk walk;
    int visits = 0;
    walk.forEach([&](const pelk::ProcessEntry&) { ++visits; });
    int again = 0;
    walk.forEach([&](const pelk::ProcessEntry&) { ++again; });
    EXPECT_EQ(visits, again) << "a walk can run again";
}

TEST(UserProcesses, NamespaceOfAProcess) {
    Parked app(1010123, true);
    ASSERT_TRUE(app.ready());
    pelk::ProcessWalk walk;
    bool found = false;
    walk.forEach([&](const pelk::ProcessEntry& p) {
        if (p.pid != app.pid()) return;
        pelk::UniqueFd ns = pelk::openMountNamespace(p);
        ASSERT_TRUE(ns.ok());
        EXPECT_EQ(FD_CLOEXEC, fcntl(ns.get(), F_GETFD));
        char tiny[4];
        EXPECT_FALSE(pelk::readMountNamespaceLink(p, tiny, 0));
        EXPECT_TRUE(pelk::readMountNamespaceLink(p, tiny, sizeof(tiny)));
        EXPECT_EQ(3u, strlen(tiny)) << "cut, and terminated";
        found = true;
    });
    EXPECT_TRUE(found);
}

}  // namespace
