// The DLP library's command entry on the simulated device: every "dlp_notify"
// line the daemon hands over is accepted and recorded (words joined by tabs,
// each escaped) for tests to read back; "fail the next call" comes from the
// device profile.
#include <dlp/dlp.h>
#include <dlp/dlp_records.h>
#include <log/record_file.h>

#include <cerrno>
#include <string>

#include "devprofile/DeviceProfile.h"

namespace {

hostlog::RecordFile& commands() {
    static auto* file = new hostlog::RecordFile("/sim/log/dlp_commands");
    return *file;
}

}  // namespace

extern "C" int handleDLPCommands(int argc, char** argv) {
    if (devprofile::shouldFail("handleDLPCommands")) return -EIO;
    std::string line;
    for (int i = 0; i < argc; ++i) {
        if (i > 0) line += '\t';
        line += hostlog::escapeField(argv[i] ? argv[i] : "");
    }
    commands().append(line + '\n');
    return 0;
}

std::vector<std::vector<std::string>> dlp_commands() {
    std::vector<std::vector<std::string>> out;
    for (const std::string& line : hostlog::splitLines(commands().readAll())) {
        std::vector<std::string> words;
        for (const std::string& f : hostlog::splitFields(line)) words.push_back(hostlog::unescapeField(f));
        out.push_back(words);
    }
    return out;
}

void dlp_commands_clear() { commands().clear(); }
