// One command word registered with a FrameworkListener (host edition).
#pragma once

class SocketClient;

class FrameworkCommand {
public:
    explicit FrameworkCommand(const char* cmd) : mCommand(cmd) {}
    virtual ~FrameworkCommand() {}

    // Runs on the listener thread. argv[0] is the command word; the words
    // are writable and live until the call returns.
    virtual int runCommand(SocketClient* c, int argc, char** argv) = 0;

    const char* getCommand() const { return mCommand; }

private:
    const char* mCommand;
};
