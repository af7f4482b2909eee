// Base of every container command on the "pelk" socket: a command runs only
// when the client is the platform's system_server, and then gets the manager.
#pragma once

#include <sysutils/FrameworkCommand.h>

class Pelk;
class SocketClient;

class PelkdCommand : public FrameworkCommand {
public:
    explicit PelkdCommand(const char* cmd);
    ~PelkdCommand() override;

    // Checks the caller; a refused one gets 281 "failed Permission denied"
    // and -1, and the command's own code does not run.
    int runCommand(SocketClient* cli, int argc, char** argv) override;
    // The command's own work, with the manager.
    virtual int runCommand(SocketClient* cli, int argc, char** argv, Pelk* pelk) = 0;

    // True when the client's command line is exactly "system_server" and
    // its parent is a zygote ("zygote" or "zygote64") whose real uid is 0.
    // A caller that passed is remembered by pid, so its later lines skip
    // /proc; a restarted system_server is checked again in full. The pid is
    // bound to the process: a client whose connecting process has exited is
    // refused (its number may be someone else's by now), and the remembered
    // pid counts only while the process that passed is alive.
    static bool isSystemServerCommand(SocketClient* cli);
};
