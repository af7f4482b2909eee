// The "ppm" socket: the private-mode store of the device owner. Its commands
// are plain platform commands and run without the system_server check; the
// private-mode key file's password is what guards this store.
#pragma once

#include <sysutils/FrameworkCommand.h>
#include <sysutils/FrameworkListener.h>

class SocketClient;

class CommandListenerPrivate : public FrameworkListener {
public:
    static constexpr int PATH_SIZE = 4096;
    static constexpr int PASSWORD_SIZE = 33;  // 32 characters and the terminator

    CommandListenerPrivate();
    ~CommandListenerPrivate() override;

    // Logs a command line (the first argc words) at DEBUG.
    static void dumpArgs(int argc, char** argv);

    // "mount_privatemode" user path path password.
    class mountPrivateModeCmd : public FrameworkCommand {
    public:
        mountPrivateModeCmd();
        int runCommand(SocketClient* cli, int argc, char** argv) override;
        int parseCmd(int argc, char** argv);
        int mExpectedArgc = 5;
        int mUserId = -1;
        char mFirstPath[PATH_SIZE] = {};
        char mSecondPath[PATH_SIZE] = {};
        char mPassword[PASSWORD_SIZE] = {};
    };

    // "unmount_privatemode" user path.
    class unmountPrivateModeCmd : public FrameworkCommand {
    public:
        unmountPrivateModeCmd();
        int runCommand(SocketClient* cli, int argc, char** argv) override;
        int parseCmd(int argc, char** argv);
        int mExpectedArgc = 3;
        int mUserId = -1;
        char mPath[PATH_SIZE] = {};
    };

    // "privatemode_change_password" user old new.
    class chPrivateModepasswdCmd : public FrameworkCommand {
    public:
        chPrivateModepasswdCmd();
        int runCommand(SocketClient* cli, int argc, char** argv) override;
        int parseCmd(int argc, char** argv);
        int mExpectedArgc = 4;
        int mUserId = -1;
        char mOldPassword[PASSWORD_SIZE] = {};
        char mNewPassword[PASSWORD_SIZE] = {};
    };
};
