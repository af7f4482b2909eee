// A SocketListener that splits each line into words and dispatches it to the
// registered command of its first word (host edition).
//
// Wire format in: "<seq> <word> <args...>" with sequence numbers, or
// "<word> <args...>" without, ended by '\n' or NUL. Several lines may come in
// one read and a line may be split over several reads. Words are separated by
// blanks; double quotes group words, and a backslash makes the next character
// literal (\" , \\ , \x -> x).
//
// Replies out: "<code> <seq> <text>\0" (or "<code> <text>\0"). The framework
// itself answers, exactly once per bad line, and keeps the connection:
//   500 <seq> Command not recognized       no command has that word
//   500 <seq-or-0> Command too long        more than CMD_BUF_SIZE bytes
//                                          without an end; skipped up to
//                                          the next end
//   500 <seq> Command too many arguments   more than CMD_ARGS_MAX words
//   500 <seq> Unclosed quotes error        a quote left open
//   500 0 Invalid sequence number          first word not a number
// Empty lines are ignored. argv[0] is the command word; the sequence number
// is not part of argv.
//
// Clients take turns line by line: of several lines read at once, one is
// dispatched and the others are held back for the client's next turn, which
// comes after every other client's and only once its replies have gone out
// (SocketClient). Every buffer that held bytes of a line (the
// read chunk, the unfinished line, the held-back bytes and the dispatched
// line with its words) is wiped once the line is done with, so no password
// or key text of a command outlives it in the listener's memory.
#pragma once

#include <cstddef>
#include <vector>

#include <sysutils/FrameworkCommand.h>
#include <sysutils/SocketListener.h>

class FrameworkListener : public SocketListener {
public:
    static const int CMD_ARGS_MAX = 64;
    static const int CMD_BUF_SIZE = 65536;

    explicit FrameworkListener(const char* socketName);
    FrameworkListener(const char* socketName, bool withSeq);
    explicit FrameworkListener(int sock);
    ~FrameworkListener() override;

protected:
    // The listener owns the command (allocated with new) and deletes it
    // when it is destroyed.
    void registerCmd(FrameworkCommand* cmd);
    bool onDataAvailable(SocketClient* c) override;

private:
    // Dispatches the first ended line of the bytes of a client and holds
    // the rest back in the client (SocketClient::heldInput) for its next
    // turn; an unended rest becomes the client's pending line.
    void takeBytes(SocketClient* c, const char* data, size_t len);
    void takeLinePiece(SocketClient* c, const char* piece, size_t len, bool ended);
    void dispatchCommand(SocketClient* c, char* data);
    FrameworkCommand* findCommand(const char* word) const;

    std::vector<FrameworkCommand*> mCommands;
    bool mWithSeq;
};
