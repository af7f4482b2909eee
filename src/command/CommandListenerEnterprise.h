// The "pelk" socket: the container storage commands of system_server.
//
// Every command is created once with the listener and keeps the words of
// the line it is serving in its own fixed, zero-filled fields. Commands of
// one listener run one at a time on its thread, so those fields are never
// shared. Each command first logs its line (secret-carrying lines only their
// leading words), then checks its word count (501 with both counts), then
// acts and answers one line: 200 done, 201 still running, 281 failed.
#pragma once

#include <sysutils/FrameworkListener.h>

#include "command/PelkdCommand.h"

class Partition;
class Pelk;
class SocketClient;

class CommandListenerEnterprise : public FrameworkListener {
public:
    // Sizes of the fields that hold words.
    static constexpr int PATH_SIZE = 4096;
    static constexpr int SECRET_SIZE = 129;  // 128 characters and the terminator

    CommandListenerEnterprise();
    ~CommandListenerEnterprise() override;

    // Logs a command line (the first argc words) at DEBUG.
    static void dumpArgs(int argc, char** argv);

    // ---- container storage ----
    // "mount" user key flag type: mounts CE (1, 4), sensitive data (2) or DE (3).
    class mountCmd : public PelkdCommand {
    public:
        mountCmd();
        using PelkdCommand::runCommand;
        int runCommand(SocketClient* cli, int argc, char** argv, Pelk* pelk) override;
        int parseCmd(int argc, char** argv);
        int mExpectedArgc = 5;
        int mUserId = -1;
        char mKey[SECRET_SIZE] = {};
        int mFlag = 0;
        int mType = -1;
    };

    // "unmount" user type.
    class unmountCmd : public PelkdCommand {
    public:
        unmountCmd();
        using PelkdCommand::runCommand;
        int runCommand(SocketClient* cli, int argc, char** argv, Pelk* pelk) override;
        int parseCmd(int argc, char** argv);
        int mExpectedArgc = 3;
        int mUserId = -1;
        int mType = -1;
    };

    // "is_mounted" user: fails only for a legacy user whose storage is down.
    class isMountedCmd : public PelkdCommand {
    public:
        isMountedCmd();
        using PelkdCommand::runCommand;
        int runCommand(SocketClient* cli, int argc, char** argv, Pelk* pelk) override;
        int parseCmd(int argc, char** argv);
        int mExpectedArgc = 2;
        int mUserId = -1;
    };

    // "create_partition" user type.
    class createPartCmd : public PelkdCommand {
    public:
        createPartCmd();
        using PelkdCommand::runCommand;
        int runCommand(SocketClient* cli, int argc, char** argv, Pelk* pelk) override;
        int parseCmd(int argc, char** argv);
        int mExpectedArgc = 3;
        int mUserId = -1;
        int mType = -1;
    };

    // "remove_partition" user type.
    class removePartCmd : public PelkdCommand {
    public:
        removePartCmd();
        using PelkdCommand::runCommand;
        int runCommand(SocketClient* cli, int argc, char** argv, Pelk* pelk) override;
        int parseCmd(int argc, char** argv);
        int mExpectedArgc = 3;
        int mUserId = -1;
        int mType = -1;
    };

    // "reset_partition": never supported; always 281.
    class resetPartCmd : public PelkdCommand {
    public:
        resetPartCmd();
        using PelkdCommand::runCommand;
        int runCommand(SocketClient* cli, int argc, char** argv, Pelk* pelk) override;
        int parseCmd(int argc, char** argv);
        int mExpectedArgc = 2;  // kept for the parser; the command never compares it
    };

    // "mount_legacy": no longer supported; always 281.
    class mountLegacyCmd : public PelkdCommand {
    public:
        mountLegacyCmd();
        using PelkdCommand::runCommand;
        int runCommand(SocketClient* cli, int argc, char** argv, Pelk* pelk) override;
        int parseCmd(int argc, char** argv);
        int mExpectedArgc = 6;  // kept for the parser; the command never compares it
        int mFirst = -1;
        int mSecond = -1;
    };

    // "unmount_legacy" path: no longer supported; always 281.
    class unmountLegacyCmd : public PelkdCommand {
    public:
        unmountLegacyCmd();
        using PelkdCommand::runCommand;
        int runCommand(SocketClient* cli, int argc, char** argv, Pelk* pelk) override;
        int parseCmd(int argc, char** argv);
        int mExpectedArgc = 2;  // kept for the parser; the command never compares it
        char mPath[PATH_SIZE] = {};
    };

    // "sync_pkg_dir" a b: package directory sync between two users.
    class syncFSCmd : public PelkdCommand {
    public:
        syncFSCmd();
        using PelkdCommand::runCommand;
        int runCommand(SocketClient* cli, int argc, char** argv, Pelk* pelk) override;
        int parseCmd(int argc, char** argv);
        int mExpectedArgc = 3;
        int mFirst = -1;
        int mSecond = -1;
    };

    // "premount": the boot pre-mount of every container.
    class premountCmd : public PelkdCommand {
    public:
        premountCmd();
        using PelkdCommand::runCommand;
        int runCommand(SocketClient* cli, int argc, char** argv, Pelk* pelk) override;
        int parseCmd(int argc, char** argv);
        int mExpectedArgc = 1;
    };

    // "secure_fs" sub-command number user ...: chamber requests.
    class secureFs : public PelkdCommand {
    public:
        secureFs();
        using PelkdCommand::runCommand;
        int runCommand(SocketClient* cli, int argc, char** argv, Pelk* pelk) override;
        int parseCmd(int argc, char** argv);
        int mExpectedArgc = -1;  // "at least 4": the 501 text quotes this -1
        char mSubCommand[PATH_SIZE] = {};
        int mNumber = -1;
        int mUserId = -1;
    };

    // ---- files and migration ----
    // "scan_dir" path number: the next entry of a directory scan.
    class scanDirCmd : public PelkdCommand {
    public:
        scanDirCmd();
        using PelkdCommand::runCommand;
        int runCommand(SocketClient* cli, int argc, char** argv, Pelk* pelk) override;
        int parseCmd(int argc, char** argv);
        int mExpectedArgc = 3;
        char mPath[PATH_SIZE] = {};
        long mNumber = 0;
        char mScanText[PATH_SIZE] = {};
    };

    // "copy" whole|chunk|cancel src srcId dst dstId flag offset length size.
    class copyCmd : public PelkdCommand {
    public:
        copyCmd();
        using PelkdCommand::runCommand;
        int runCommand(SocketClient* cli, int argc, char** argv, Pelk* pelk) override;
        int parseCmd(int argc, char** argv);
        int runWhole(SocketClient* cli, Pelk* pelk);
        int runCancel(SocketClient* cli, Pelk* pelk);
        int mExpectedArgc = 10;
        char mSubCommand[32] = {};
        char mSrcPath[PATH_SIZE] = {};
        int mSrcId = -1;
        char mDstPath[PATH_SIZE] = {};
        int mDstId = -1;
        unsigned int mFlag = 0;
        long long mOffset = 0;
        long mLength = 0;
        long long mSize = 0;
    };

    // "change_permission_migration" path uid gid mode (mode in decimal).
    class changePermissionMigrationCmd : public PelkdCommand {
    public:
        changePermissionMigrationCmd();
        using PelkdCommand::runCommand;
        int runCommand(SocketClient* cli, int argc, char** argv, Pelk* pelk) override;
        int parseCmd(int argc, char** argv);
        int mExpectedArgc = 5;
        char mPath[PATH_SIZE] = {};
        int mUid = -1;
        int mGid = -1;
        int mMode = -1;
    };

    // "migration" user kind name [words...]: database or data migration.
    class migrationCmd : public PelkdCommand {
    public:
        static constexpr int WORD_SIZE = 255;
        migrationCmd();
        using PelkdCommand::runCommand;
        int runCommand(SocketClient* cli, int argc, char** argv, Pelk* pelk) override;
        int parseCmd(int argc, char** argv);
        int mExpectedArgc = 0;  // "at least 4": the 501 text quotes this 0
        int mUserId = -1;
        char mKind[WORD_SIZE] = {};
        char mName[WORD_SIZE] = {};
        int mExtraCount = -1;
    };

    // Base of the three commands whose words are a path and a container id;
    // they share one parser.
    class pathCmd : public PelkdCommand {
    public:
        explicit pathCmd(const char* word);
        int parseCmd(int argc, char** argv);
        int mExpectedArgc = 3;
        char mFilePath[PATH_SIZE] = {};
        int mContainerId = -1;
    };

    // "is_file_exist" path id.
    class isFileExistCmd : public pathCmd {
    public:
        isFileExistCmd();
        using PelkdCommand::runCommand;
        int runCommand(SocketClient* cli, int argc, char** argv, Pelk* pelk) override;
    };

    // "get_file_info" path id: "<mtime> <size>" of the path itself.
    class getFileInfoCmd : public pathCmd {
    public:
        getFileInfoCmd();
        using PelkdCommand::runCommand;
        int runCommand(SocketClient* cli, int argc, char** argv, Pelk* pelk) override;
    };

    // "delete_file" path id.
    class deleteFileCmd : public pathCmd {
    public:
        deleteFileCmd();
        using PelkdCommand::runCommand;
        int runCommand(SocketClient* cli, int argc, char** argv, Pelk* pelk) override;
    };

    // "dlp_notify" ...: any number of words, handed on whole.
    class dlpNotifyCmd : public PelkdCommand {
    public:
        dlpNotifyCmd();
        using PelkdCommand::runCommand;
        int runCommand(SocketClient* cli, int argc, char** argv, Pelk* pelk) override;
        int parseCmd(int argc, char** argv);
    };

    // "handle_enc_pkg" user sub-command package type count items clear.
    class handleEncPkgCmd : public PelkdCommand {
    public:
        handleEncPkgCmd();
        using PelkdCommand::runCommand;
        int runCommand(SocketClient* cli, int argc, char** argv, Pelk* pelk) override;
        int parseCmd(int argc, char** argv);
        // Measures or clears one item below the package's directory; 0 or -1.
        int handleItem(Partition* partition, const char* base, bool installed, const char* item, char* sizes,
                       size_t sizesSize);
        int mExpectedArgc = 8;
        int mUserId = -1;
        char mSubCommand[PATH_SIZE] = {};
        char mPackageName[PATH_SIZE] = {};
        int mType = -1;
        int mItemCount = 0;
        char mItemList[PATH_SIZE] = {};
        int mClearFlag = 0;
    };

    // ---- passwords ----
    // "change_password" user old new.
    class chpasswdCmd : public PelkdCommand {
    public:
        chpasswdCmd();
        using PelkdCommand::runCommand;
        int runCommand(SocketClient* cli, int argc, char** argv, Pelk* pelk) override;
        int parseCmd(int argc, char** argv);
        int mExpectedArgc = 4;
        int mUserId = -1;
        char mOldPassword[SECRET_SIZE] = {};
        char mNewPassword[SECRET_SIZE] = {};
    };

    // "verify_password" user password.
    class verifyPasswdCmd : public PelkdCommand {
    public:
        verifyPasswdCmd();
        using PelkdCommand::runCommand;
        int runCommand(SocketClient* cli, int argc, char** argv, Pelk* pelk) override;
        int parseCmd(int argc, char** argv);
        int mExpectedArgc = 3;
        int mUserId = -1;
        char mPassword[SECRET_SIZE] = {};
    };
};
