// A small command listener and a raw client, to drive the socket framework
// through a real socket exactly as the platform's client does.
#pragma once

#include <errno.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sysutils/FrameworkListener.h>
#include <sysutils/SocketClient.h>
#include <unistd.h>

#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "base/UniqueFd.h"

namespace sysutils_test {

const char kSocketName[] = "sysutest";
const char kSocketPath[] = "/dev/socket/sysutest";

// Every word of argv in brackets: "[echo][a b][]" shows exactly what arrived.
inline std::string bracketWords(int argc, char** argv) {
    std::string out;
    for (int i = 0; i < argc; ++i) out += "[" + std::string(argv[i]) + "]";
    return out;
}

// A command whose behaviour is a function; every call is recorded.
class TestCmd : public FrameworkCommand {
public:
    using Body = std::function<void(SocketClient*, int, char**)>;
    TestCmd(const char* word, Body body, std::function<void(const std::string&)> record)
        : FrameworkCommand(word), mBody(std::move(body)), mRecord(std::move(record)) {}
    int runCommand(SocketClient* c, int argc, char** argv) override {
        mRecord(bracketWords(argc, argv));
        mBody(c, argc, argv);
        return 0;
    }

private:
    Body mBody;
    std::function<void(const std::string&)> mRecord;
};

class TestListener : public FrameworkListener {
public:
    TestListener(const char* name, bool withSeq) : FrameworkListener(name, withSeq) {
        // Replies 200 with its words in brackets.
        add("echo",
            [](SocketClient* c, int argc, char** argv) { c->sendMsg(200, bracketWords(argc, argv).c_str(), false); });
        // Replies 200 with the caller's "pid uid gid".
        add("whoami", [](SocketClient* c, int, char**) {
            std::string text =
                std::to_string(c->getPid()) + " " + std::to_string(c->getUid()) + " " + std::to_string(c->getGid());
            c->sendMsg(200, text.c_str(), false);
        });
        // Replies 200 "done" after argv[1] ms: still running when its client goes.
        add("slow", [](SocketClient* c, int argc, char** argv) {
            poll(nullptr, 0, argc > 1 ? atoi(argv[1]) : 100);
            c->sendMsg(200, "done", false);
        });
        // Replies 200 with argv[1] times 'r': more than the socket buffer
        // holds, so it goes out in several partial writes.
        add("big", [](SocketClient* c, int argc, char** argv) {
            std::string text(argc > 1 ? static_cast<size_t>(atol(argv[1])) : 0, 'r');
            c->sendMsg(200, text.c_str(), false);
        });
        // Replies 400 "lookup" with the text of ENOENT appended.
        add("errno", [](SocketClient* c, int, char**) {
            errno = ENOENT;
            c->sendMsg(400, "lookup", true);
        });
    }

    // The listener thread records into this object's members: it must be
    // stopped before they go, not later in the base's destructor.
    ~TestListener() override { stopListener(); }

    // Every command line that reached a command, words in brackets.
    std::vector<std::string> ran() {
        std::lock_guard<std::mutex> lock(mRanLock);
        return mRan;
    }

private:
    void add(const char* word, TestCmd::Body body) {
        registerCmd(new TestCmd(word, std::move(body), [this](const std::string& line) {
            std::lock_guard<std::mutex> lock(mRanLock);
            mRan.push_back(line);
        }));
    }

    std::mutex mRanLock;
    std::vector<std::string> mRan;
};

// The peer side, as system_server would talk to the daemon.
class TestClient {
public:
    explicit TestClient(const char* path = kSocketPath) {
        pelk::UniqueFd fd(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
        struct sockaddr_un addr {};
        addr.sun_family = AF_UNIX;
        snprintf(addr.sun_path, sizeof(addr.sun_path), "%s", path);
        if (fd.ok() && connect(fd.get(), reinterpret_cast<sockaddr*>(&addr), sizeof(addr)) == 0) {
            mFd = std::move(fd);
        }
    }

    bool connected() const { return mFd.ok(); }
    void close() { mFd.reset(); }

    bool send(const std::string& bytes) {
        size_t done = 0;
        while (done < bytes.size()) {
            ssize_t n = ::send(mFd.get(), bytes.data() + done, bytes.size() - done, MSG_NOSIGNAL);
            if (n < 0 && errno == EINTR) continue;
            if (n <= 0) return false;
            done += static_cast<size_t>(n);
        }
        return true;
    }

    // The next message without its NUL; "<timeout>" or "<eof>" otherwise.
    std::string next(int timeoutMs = 5000) {
        for (;;) {
            size_t end = mBuffered.find('\0');
            if (end != std::string::npos) {
                std::string msg = mBuffered.substr(0, end);
                mBuffered.erase(0, end + 1);
                return msg;
            }
            struct pollfd pfd = {mFd.get(), POLLIN, 0};
            int rc = poll(&pfd, 1, timeoutMs);
            if (rc < 0 && errno == EINTR) continue;
            if (rc <= 0) return "<timeout>";
            char buf[65536];
            ssize_t n = read(mFd.get(), buf, sizeof(buf));
            if (n < 0 && errno == EINTR) continue;
            if (n <= 0) return "<eof>";
            mBuffered.append(buf, static_cast<size_t>(n));
        }
    }

    // Sends a line and answers its reply.
    std::string ask(const std::string& line) {
        if (!send(line + "\n")) return "<send failed>";
        return next();
    }

    // True when nothing at all arrives within the time given.
    bool silentFor(int ms) {
        if (!mBuffered.empty()) return false;
        struct pollfd pfd = {mFd.get(), POLLIN, 0};
        return poll(&pfd, 1, ms) == 0;
    }

private:
    pelk::UniqueFd mFd;
    std::string mBuffered;
};

class SysutilsTest : public testing::Test {
protected:
    void TearDown() override { mListener.reset(); }

    TestListener& start(bool withSeq = true) {
        mListener.reset(new TestListener(kSocketName, withSeq));
        EXPECT_EQ(mListener->startListener(), 0) << strerror(errno);
        return *mListener;
    }

    std::unique_ptr<TestListener> mListener;
};

}  // namespace sysutils_test
