// Where the listening socket comes from, and that the listener leaves no
// descriptor behind, for its children or after it is gone.
#include <cutils/sockets.h>
#include <devprofile/DeviceProfile.h>
#include <dirent.h>
#include <fcntl.h>
#include <stdlib.h>
#include <sys/stat.h>

#include <set>

#include "SysutilsFixture.h"
#include "base/UniqueHandle.h"

using namespace sysutils_test;

namespace {

std::set<int> openFds() {
    std::set<int> fds;
    pelk::UniqueDir dir(opendir("/proc/self/fd"));
    if (!dir) return fds;
    int own = dirfd(dir.get());
    while (struct dirent* e = readdir(dir.get())) {
        if (e->d_name[0] == '.') continue;
        int fd = atoi(e->d_name);
        if (fd != own) fds.insert(fd);
    }
    return fds;
}

// A Unix stream socket bound at path, as init would hand over.
pelk::UniqueFd boundSocket(const char* path) {
    pelk::UniqueFd fd(socket(AF_UNIX, SOCK_STREAM, 0));
    struct sockaddr_un addr {};
    addr.sun_family = AF_UNIX;
    snprintf(addr.sun_path, sizeof(addr.sun_path), "%s", path);
    if (bind(fd.get(), reinterpret_cast<sockaddr*>(&addr), sizeof(addr)) != 0) fd.reset();
    return fd;
}

class EnvSocket {
public:
    EnvSocket(const char* name, const std::string& value) : mName(name) { setenv(mName.c_str(), value.c_str(), 1); }
    ~EnvSocket() { unsetenv(mName.c_str()); }

private:
    std::string mName;
};

}  // namespace

using SocketTakeover = SysutilsTest;

TEST_F(SocketTakeover, SocketIsCreatedUnderDevSocketWithMode0660) {
    // A stale file of that name is replaced.
    {
        pelk::UniqueFd stale(open(kSocketPath, O_CREAT | O_WRONLY | O_CLOEXEC, 0644));
        ASSERT_TRUE(stale.ok());
    }
    start();
    struct stat st;
    ASSERT_EQ(stat(kSocketPath, &st), 0);
    EXPECT_TRUE(S_ISSOCK(st.st_mode));
    EXPECT_EQ(st.st_mode & 07777, 0660u);
    TestClient client;
    EXPECT_EQ(client.ask("1 echo x"), "200 1 [echo][x]");

    mListener.reset();
    EXPECT_NE(access(kSocketPath, F_OK), 0);
}

TEST_F(SocketTakeover, SocketPassedByInitIsTakenOver) {
    const char altPath[] = "/data/init-made.sock";
    pelk::UniqueFd fd = boundSocket(altPath);
    ASSERT_TRUE(fd.ok());
    EnvSocket env("ANDROID_SOCKET_sysutest", std::to_string(fd.get()));

    start();
    EXPECT_NE(access(kSocketPath, F_OK), 0) << "created its own socket instead";
    EXPECT_EQ(fcntl(fd.get(), F_GETFD) & FD_CLOEXEC, FD_CLOEXEC);
    TestClient client(altPath);
    EXPECT_EQ(client.ask("1 echo init"), "200 1 [echo][init]");

    // The listener owns it now and closes it when it goes.
    mListener.reset();
    EXPECT_EQ(fcntl(fd.release(), F_GETFD), -1);
    EXPECT_EQ(errno, EBADF);
}

TEST_F(SocketTakeover, ControlSocketLookupRefusesWhatIsNoSocket) {
    EXPECT_EQ(android_get_control_socket("sysutest"), -1);
    {
        EnvSocket env("ANDROID_SOCKET_sysutest", "12abc");
        EXPECT_EQ(android_get_control_socket("sysutest"), -1);
    }
    pelk::UniqueFd file(open("/data/plain", O_CREAT | O_RDWR | O_CLOEXEC, 0600));
    {
        EnvSocket env("ANDROID_SOCKET_sysutest", std::to_string(file.get()));
        EXPECT_EQ(android_get_control_socket("sysutest"), -1);
        EXPECT_EQ(errno, ENOTSOCK);
    }
    // Punctuation in a name becomes '_' in the variable, as init writes it.
    pelk::UniqueFd sock = boundSocket("/data/dashed.sock");
    EnvSocket env("ANDROID_SOCKET_my_sock", std::to_string(sock.get()));
    EXPECT_EQ(android_get_control_socket("my-sock"), sock.get());
}

TEST_F(SocketTakeover, ListenerDescriptorsAreCloseOnExecAndNoneOutliveIt) {
    const std::set<int> before = openFds();
    start();
    {
        TestClient a, b;
        EXPECT_EQ(a.ask("1 echo a"), "200 1 [echo][a]");
        EXPECT_EQ(b.ask("2 echo b"), "200 2 [echo][b]");
        a.close();
        poll(nullptr, 0, 50);
        // Every descriptor opened since (listening socket, control pipe,
        // accepted client) must be closed by an exec.
        for (int fd : openFds()) {
            if (before.count(fd)) continue;
            EXPECT_EQ(fcntl(fd, F_GETFD) & FD_CLOEXEC, FD_CLOEXEC) << "fd " << fd;
        }
        // Destroyed while b is still connected.
        mListener.reset();
        EXPECT_EQ(b.next(), "<eof>");
    }
    EXPECT_EQ(openFds(), before);
}

TEST_F(SocketTakeover, ListenerStartCanBeMadeToFailAndRestarts) {
    ASSERT_TRUE(devprofile::failNext("startListener"));
    TestListener listener(kSocketName, true);
    EXPECT_EQ(listener.startListener(), -1);
    EXPECT_EQ(errno, EADDRINUSE);
    ASSERT_EQ(listener.startListener(), 0);
    EXPECT_EQ(listener.startListener(), -1);
    EXPECT_EQ(errno, EBUSY);

    TestClient first;
    EXPECT_EQ(first.ask("1 echo one"), "200 1 [echo][one]");
    ASSERT_EQ(listener.stopListener(), 0);
    EXPECT_EQ(first.next(), "<eof>");
    ASSERT_EQ(listener.startListener(), 0);
    TestClient second;
    EXPECT_EQ(second.ask("2 echo two"), "200 2 [echo][two]");
}
