// Record file of the device's sdcard program: one line per run, fields
// separated by tabs: status, then three lists (argument vector, views,
// inherited descriptors), each as a count followed by its items.
#include "SdcardRecords.h"

#include <log/record_file.h>
#include <stdlib.h>

namespace sim {
namespace {

hostlog::RecordFile& runs() {
    static auto* file = new hostlog::RecordFile("/sim/log/sdcard");
    return *file;
}

void appendList(std::string* line, const std::vector<std::string>& items) {
    *line += '\t' + std::to_string(items.size());
    for (const std::string& item : items) *line += '\t' + hostlog::escapeField(item);
}

bool takeList(const std::vector<std::string>& fields, size_t* next, std::vector<std::string>* out) {
    if (*next >= fields.size()) return false;
    size_t count = strtoul(fields[(*next)++].c_str(), nullptr, 10);
    if (fields.size() - *next < count) return false;
    for (size_t i = 0; i < count; ++i) out->push_back(hostlog::unescapeField(fields[(*next)++]));
    return true;
}

}  // namespace

void recordSdcardRun(const SdcardRun& run) {
    std::string line = std::to_string(run.status);
    appendList(&line, run.argv);
    appendList(&line, run.views);
    appendList(&line, run.inheritedFds);
    runs().append(line + '\n');
}

std::vector<SdcardRun> sdcardRuns() {
    std::vector<SdcardRun> out;
    for (const std::string& line : hostlog::splitLines(runs().readAll())) {
        std::vector<std::string> fields = hostlog::splitFields(line);
        SdcardRun run;
        size_t next = 1;
        run.status = atoi(fields[0].c_str());
        if (takeList(fields, &next, &run.argv) && takeList(fields, &next, &run.views) &&
            takeList(fields, &next, &run.inheritedFds) && next == fields.size())
            out.push_back(run);
    }
    return out;
}

void sdcardClear() { runs().clear(); }

}  // namespace sim
