#define LOG_TAG "pelkd"

#include "command/PelkdCommand.h"
#include <log/log.h>

#include <string.h>

#include <sysutils/SocketClient.h>

#include "command/CommandReply.h"
#include "command/PeerProcess.h"
#include "manager/Pelk.h"
#include "process/ProcFs.h"

namespace {

// The pid of the last caller that passed the full check; 0 for none yet.
// Read and written only on the "pelk" listener thread.
int sSystemServerPid = 0;
// That caller as a process (its pidfd; -1 where only the number is known):
// the number above counts only while this process lives, so a later
// process given the same number is checked in full.
pelk::UniqueFd sSystemServerProcess;

// Bytes of a command line that are read: enough for any name compared here.
const size_t kCmdlineRead = 200;

bool cmdlineIs(const char* cmdline, const char* name) { return strcmp(cmdline, name) == 0; }

}  // namespace

PelkdCommand::PelkdCommand(const char* cmd) : FrameworkCommand(cmd) {}

PelkdCommand::~PelkdCommand() {}

int PelkdCommand::runCommand(SocketClient* cli, int argc, char** argv) {
    if (isSystemServerCommand(cli)) return runCommand(cli, argc, argv, Pelk::Instance());
    pelk::sendReply(cli, pelk::REPLY_FAILED, "failed %s", "Permission denied");
    return -1;
}

bool PelkdCommand::isSystemServerCommand(SocketClient* cli) {
    int pid = cli->getPid();
    int parentUid = -1;
    // A peer that has exited has no /proc entry of its own any more: one
    // under its number belongs to someone else. Refused as an entry that
    // cannot be read is.
    pelk::PeerProcess peer(cli->getSocket(), pid);
    if (!peer.alive()) return false;
    if (sSystemServerPid != 0 && sSystemServerPid == pid && pelk::PeerProcess::keptAlive(sSystemServerProcess.get()))
        return true;

    char cmdline[kCmdlineRead + 1];
    if (pelk::readProcCmdline(pid, cmdline, sizeof(cmdline)) < 0) return false;
    if (!cmdlineIs(cmdline, "system_server")) {
        SLOGE("Process(PID: %d) is not the system_server!!\n", pid);
        return false;
    }
    SLOGD("Process(PID: %d) is the system_server..\n", pid);

    // The uid that counts is the parent's: only a root zygote starts the
    // real system_server, while any app can name itself so.
    int parent = pelk::readProcStatusNumber(pid, "PPid:");
    if (pelk::readProcCmdline(parent, cmdline, sizeof(cmdline)) < 0) return false;
    if (cmdlineIs(cmdline, "zygote") || cmdlineIs(cmdline, "zygote64")) {
        parentUid = pelk::readProcStatusNumber(parent, "Uid:");
    }
    // What was read is the parent's only if it is the caller's parent still
    // (an orphan is re-parented at once), and the caller's only if the
    // caller is still alive now.
    if (pelk::readProcStatusNumber(pid, "PPid:") != parent) parentUid = -1;
    if (!peer.alive()) return false;
    if (parentUid == 0) {
        sSystemServerPid = pid;
        sSystemServerProcess.reset(peer.release());
        return true;
    }
    SLOGE("[PID: %d] is not android system_server!!\n", pid);
    return false;
}
