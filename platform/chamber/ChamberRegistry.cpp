// Chamber functions of the simulated device. The device has no encryption
// module to tell, so each call is kept in a record file shared by the
// device's processes: "add", "del" and "category" lines, replayed by the
// query functions.
#include <chamber/chamber.h>
#include <chamber/chamber_records.h>
#include <log/record_file.h>
#include <stdlib.h>
#include <sys/stat.h>

#include <cctype>
#include <string>

#include "devprofile/DeviceProfile.h"

namespace {

hostlog::RecordFile& records() {
    static auto* file = new hostlog::RecordFile("/sim/log/chamber");
    return *file;
}

void record(const char* verb, int number, const char* path, int result) {
    records().append(std::string(verb) + '\t' + std::to_string(number) + '\t' + std::to_string(result) + '\t' +
                     hostlog::escapeField(path ? path : "") + '\n');
}

struct Line {
    std::string verb;
    int number;
    int result;
    std::string path;
};

std::vector<Line> readLines() {
    std::vector<Line> out;
    for (const std::string& text : hostlog::splitLines(records().readAll())) {
        std::vector<std::string> f = hostlog::splitFields(text);
        if (f.size() != 4) continue;
        out.push_back({f[0], atoi(f[1].c_str()), atoi(f[2].c_str()), hostlog::unescapeField(f[3])});
    }
    return out;
}

// A package name: two or more dot-separated parts of letters, digits and
// underscores, each starting with a letter ("com.example.app").
bool isPackageName(const std::string& name) {
    int parts = 0;
    size_t start = 0;
    while (start <= name.size()) {
        size_t dot = name.find('.', start);
        std::string part = name.substr(start, dot == std::string::npos ? std::string::npos : dot - start);
        if (part.empty() || !isalpha(static_cast<unsigned char>(part[0]))) return false;
        for (char c : part)
            if (!isalnum(static_cast<unsigned char>(c)) && c != '_') return false;
        ++parts;
        if (dot == std::string::npos) break;
        start = dot + 1;
    }
    return parts >= 2;
}

bool isPackageDirectory(const char* path) {
    struct stat st;
    if (!path || lstat(path, &st) != 0 || !S_ISDIR(st.st_mode)) return false;
    std::string p(path);
    while (p.size() > 1 && p.back() == '/') p.pop_back();
    return isPackageName(p.substr(p.rfind('/') + 1));
}

}  // namespace

extern "C" int add_chamber_directory(int id, const char* path) {
    int result = devprofile::shouldFail("add_chamber_directory") || !path ? -1 : 0;
    record("add", id, path, result);
    return result;
}

extern "C" int del_chamber_directory(const char* path) {
    int result = devprofile::shouldFail("del_chamber_directory") || !path ? -1 : 0;
    if (result == 0) {
        bool registered = false;
        for (const ChamberDirectory& c : chamber_directories()) registered = registered || c.path == path;
        if (!registered) result = -1;
    }
    record("del", 0, path, result);
    return result;
}

extern "C" int setCategory(int user, const char* path) {
    int result = 0;
    if (devprofile::shouldFail("setCategory"))
        result = -1;
    else if (!isPackageDirectory(path))
        result = -2;
    record("category", user, path, result);
    return result;
}

std::vector<ChamberDirectory> chamber_directories() {
    std::vector<ChamberDirectory> out;
    for (const Line& line : readLines()) {
        if (line.result != 0) continue;
        auto it = out.begin();
        while (it != out.end() && it->path != line.path) ++it;
        if (line.verb == "add") {
            if (it == out.end())
                out.push_back({line.number, line.path});
            else
                it->id = line.number;
        } else if (line.verb == "del" && it != out.end()) {
            out.erase(it);
        }
    }
    return out;
}

std::vector<CategoryCall> chamber_category_calls() {
    std::vector<CategoryCall> out;
    for (const Line& line : readLines())
        if (line.verb == "category") out.push_back({line.number, line.path, line.result});
    return out;
}

void chamber_clear() { records().clear(); }
