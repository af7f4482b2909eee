// One command word registered with a FrameworkListener (host edition).
#pragma once

class SocketClient;

class FrameworkCommand {
public:
    explicit FrameworkCommand(const char* cmd) : mCommand(cmd) {}
    virtual ~FrameworkCommand() {}

    virtual int runCommand(SocketClient* c, int argc, char** argv) = 0;

    const char* getCommand() const { return mCommand; }

private:
    const char* mCommand;
};
