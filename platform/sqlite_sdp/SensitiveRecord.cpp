#include "SensitiveRecord.h"

#include <fcntl.h>
#include <stdlib.h>

#include <sqlite_sdp/sqlite_sdp.h>

#include "../crypt/AtomicFile.h"
#include "base/FileIo.h"
#include "base/UniqueFd.h"

namespace sqlitesdp {
namespace {

const char kEngineKey[] = "engine_id=";

}  // namespace

std::string sidePath(const char* dbPath) { return std::string(dbPath) + SQLITE_SDP_SIDE_SUFFIX; }

bool loadRecord(const char* dbPath, SensitiveRecord* record) {
    pelk::UniqueFd fd(open(sidePath(dbPath).c_str(), O_RDONLY | O_CLOEXEC));
    std::string text;
    if (!fd.ok() || !pelk::readAll(fd.get(), &text)) return false;
    size_t end = text.find('\n');
    if (end == std::string::npos || text.compare(0, sizeof(kEngineKey) - 1, kEngineKey) != 0) return false;
    record->engineId = atoi(text.c_str() + sizeof(kEngineKey) - 1);
    record->declarations.clear();
    for (size_t start = end + 1; (end = text.find('\n', start)) != std::string::npos; start = end + 1) {
        record->declarations.push_back(text.substr(start, end - start));
    }
    return true;
}

bool storeRecord(const char* dbPath, const SensitiveRecord& record) {
    std::string text = kEngineKey + std::to_string(record.engineId) + "\n";
    for (const std::string& line : record.declarations) text += line + "\n";
    return pelkhost::replaceFileAtomically(sidePath(dbPath).c_str(), text.data(), text.size());
}

}  // namespace sqlitesdp
