// Turning the bytes of a client into command lines, and command lines into
// calls of the registered commands.
#include <sysutils/FrameworkListener.h>

#include <errno.h>
#include <string.h>
#include <unistd.h>

#include <string>

#include "CommandLine.h"
#include "base/Secret.h"

namespace {

// What the framework itself answers to a line it cannot hand to a command.
const int kFrameworkError = 500;
const char kNotRecognized[] = "Command not recognized";
const char kTooLong[] = "Command too long";
const char kTooManyArgs[] = "Command too many arguments";
const char kUnclosedQuotes[] = "Unclosed quotes error";
const char kInvalidSequence[] = "Invalid sequence number";

const size_t kReadChunk = 4096;

bool isLineEnd(char ch) { return ch == '\n' || ch == '\0'; }

}  // namespace

FrameworkListener::FrameworkListener(const char* socketName) : FrameworkListener(socketName, false) {}

FrameworkListener::FrameworkListener(const char* socketName, bool withSeq)
    : SocketListener(socketName, true, withSeq), mWithSeq(withSeq) {}

FrameworkListener::FrameworkListener(int sock) : SocketListener(sock, true), mWithSeq(false) {}

FrameworkListener::~FrameworkListener() {
    // The thread calls into this object and its commands: it must be gone
    // before either is.
    int savedErrno = errno;
    stopListener();
    errno = savedErrno;
    for (FrameworkCommand* cmd : mCommands) delete cmd;
}

void FrameworkListener::registerCmd(FrameworkCommand* cmd) { mCommands.push_back(cmd); }

FrameworkCommand* FrameworkListener::findCommand(const char* word) const {
    for (FrameworkCommand* cmd : mCommands) {
        if (strcmp(word, cmd->getCommand()) == 0) return cmd;
    }
    return nullptr;
}

bool FrameworkListener::onDataAvailable(SocketClient* c) {
    pelk::SecretBytes& held = c->heldInput();
    if (!held.empty()) {
        // Lines read earlier and held back for this turn. Taken out of the
        // client first: takeBytes may hold back a rest again.
        pelk::SecretBytes bytes;
        bytes.swap(held);
        takeBytes(c, bytes.data(), bytes.size());
        return true;
    }
    char buf[kReadChunk];
    // The chunk may hold a password or a key: wiped however this returns.
    pelk::WipeOnExit wipeChunk(buf, sizeof(buf));
    ssize_t n = TEMP_FAILURE_RETRY(read(c->getSocket(), buf, sizeof(buf)));
    // End of stream or a broken connection: an unfinished line dies with it.
    if (n <= 0) return false;
    takeBytes(c, buf, static_cast<size_t>(n));
    return true;
}

void FrameworkListener::takeBytes(SocketClient* c, const char* data, size_t len) {
    size_t start = 0;
    for (size_t i = 0; i < len; ++i) {
        if (!isLineEnd(data[i])) continue;
        takeLinePiece(c, data + start, i - start, true);
        start = i + 1;
        if (start < len) {
            // One line a turn: the rest waits for the listener to come back
            // to this client, after the other clients had their turn and
            // only once this one has taken its replies. So a client that
            // never reads gets no further than one reply ahead of its
            // socket, and one that sends many lines at once delays the
            // others by one line. A client that can no longer be written to
            // gets nothing more.
            if (c->broken() == SocketClient::Broken::NO) {
                c->heldInput().assign(data + start, data + len);
            }
            return;
        }
    }
    if (start < len) takeLinePiece(c, data + start, len - start, false);
}

void FrameworkListener::takeLinePiece(SocketClient* c, const char* piece, size_t len, bool ended) {
    if (c->discardingLine()) {
        if (ended) c->setDiscardingLine(false);
        return;
    }
    pelk::SecretBytes& line = c->pendingLine();
    if (line.size() + len > static_cast<size_t>(CMD_BUF_SIZE)) {
        // Answered once, now, so a client that never ends the line still
        // hears of it; the rest of the line is skipped up to its end.
        int seq = 0;
        if (mWithSeq) {
            const char* head = line.empty() ? piece : line.data();
            size_t headLen = line.empty() ? len : line.size();
            size_t digits = 0;
            while (digits < headLen && head[digits] != ' ' && head[digits] != '\t') ++digits;
            if (!sysutils::parseSequenceNumber(head, digits, &seq)) seq = 0;
        }
        // Its block is wiped on the way back to the heap.
        pelk::SecretBytes().swap(line);
        c->setDiscardingLine(!ended);
        c->setCmdNum(seq);
        c->sendMsg(kFrameworkError, kTooLong, false);
        return;
    }
    line.insert(line.end(), piece, piece + len);
    if (!ended) return;

    // The line goes to the command in a block of its own, wiped (words,
    // passwords and keys with it) when it goes back to the heap.
    pelk::SecretBytes whole;
    whole.swap(line);
    whole.push_back('\0');
    dispatchCommand(c, whole.data());
}

void FrameworkListener::dispatchCommand(SocketClient* c, char* data) {
    std::vector<char*> words;
    bool quotesClosed = sysutils::splitWords(data, &words);
    if (words.empty()) return;

    size_t first = 0;
    c->setCmdNum(0);
    if (mWithSeq) {
        int seq = 0;
        if (!sysutils::parseSequenceNumber(words[0], strlen(words[0]), &seq)) {
            c->sendMsg(kFrameworkError, kInvalidSequence, false);
            return;
        }
        c->setCmdNum(seq);
        first = 1;
    }
    if (!quotesClosed) {
        c->sendMsg(kFrameworkError, kUnclosedQuotes, false);
        return;
    }
    size_t argc = words.size() - first;
    if (argc > static_cast<size_t>(CMD_ARGS_MAX)) {
        c->sendMsg(kFrameworkError, kTooManyArgs, false);
        return;
    }
    FrameworkCommand* cmd = argc > 0 ? findCommand(words[first]) : nullptr;
    if (cmd == nullptr) {
        c->sendMsg(kFrameworkError, kNotRecognized, false);
        return;
    }
    std::vector<char*> argv(words.begin() + static_cast<std::ptrdiff_t>(first), words.end());
    argv.push_back(nullptr);
    cmd->runCommand(c, static_cast<int>(argc), argv.data());
}
