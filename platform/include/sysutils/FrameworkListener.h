// A SocketListener that splits each line into words and dispatches it to the
// registered command of its first word (host edition).
//
// Wire format with sequence numbers on: "<seq> <word> <args...>\n" (or NUL)
// in; "<code> <seq> <text>\0" out. Double quotes group words and a backslash
// escapes the next character. Unknown words are answered 500 by the framework.
#pragma once

#include <vector>

#include <sysutils/FrameworkCommand.h>
#include <sysutils/SocketListener.h>

class FrameworkListener : public SocketListener {
public:
    static const int CMD_ARGS_MAX = 64;
    static const int CMD_BUF_SIZE = 65536;

    explicit FrameworkListener(const char* socketName);
    FrameworkListener(const char* socketName, bool withSeq);
    FrameworkListener(int sock);
    ~FrameworkListener() override;

protected:
    void registerCmd(FrameworkCommand* cmd);
    bool onDataAvailable(SocketClient* c) override;

private:
    void dispatchCommand(SocketClient* c, char* data);

    std::vector<FrameworkCommand*> mCommands;
    bool mWithSeq;
};
