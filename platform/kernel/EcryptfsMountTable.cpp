// The eCryptfs lines of the simulated device's mount tables.
//
// What the device has: eCryptfs mounts of a lower directory at an upper one,
// which its kernel lists with the filesystem type "ecryptfs", the lower
// directory as the device, and options that end in "userid=U" and
// "partition_id=N" (the kernel-event side finds files by the latter).
//
// What the host has: no eCryptfs, and no filesystem whose type the mount
// table could show as "ecryptfs" (FUSE shows "fuse.<subtype>", overlay
// "overlay"; the type is the kernel's name of the driver). So the host
// edition of mount_ecryptfs makes a real bind mount of lower at upper (data
// written through upper lands in lower), and registers it here by what the
// kernel writes for it in mountinfo: its device, its root within that
// device, and its mount point. The registry is "/sim/kernel/ecryptfs", shared
// by every process of the device and wiped with it.
//
// The seam: device programs link with --wrap=fopen and --wrap=fopen64 (see
// platform/CMakeLists.txt), as they do with the sleeps. An fopen for reading
// of "/proc/mounts" or "/proc/<self|thread-self|pid>/<mounts|mountinfo>"
// answers a stream on the kernel's own table of that process in which the
// lines of registered mounts read as eCryptfs lines:
//   mounts:    <lower> <point> ecryptfs <mount options>,<eCryptfs options> 0 0
//   mountinfo: <id> <parent> <dev> <root> <point> <mount options> ... -
//              ecryptfs <lower> rw,<eCryptfs options>
// with the eCryptfs options "ecryptfs_cipher=aes,ecryptfs_key_bytes=32,
// userid=U,partition_id=N". Every other line is byte for byte the kernel's,
// and with no registered mount the kernel's file itself is handed back. The
// engine reads its tables with libc exactly as on a device.
//
// Limits, all deliberate:
// - Only fopen of those paths in programs linked with the platform sees the
//   device's view; cat, mount, findmnt and std::ifstream see the host's (the
//   lower directory's own filesystem type).
// - A mount is known by device, root and point, not by identity: copies of
//   it in app namespaces read as eCryptfs too (as on a device), and so would
//   a later plain bind of the same lower directory at the same point. The
//   registry is not trimmed on unmount (umount2 is the engine's own call).
// - A "mounts" table is zipped line by line with the same process's
//   mountinfo; when the two reads disagree (a mount changed in between) ten
//   times running, the kernel's table is given unchanged.
#include <kernel/ecryptfs_table.h>
#include <log/record_file.h>

#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mman.h>
#include <unistd.h>

#include <map>
#include <sstream>
#include <tuple>

#include "base/FileIo.h"
#include "base/UniqueFd.h"

namespace hostkernel {
namespace {

hostlog::RecordFile& registry() {
    static auto* file = new hostlog::RecordFile("/sim/kernel/ecryptfs");
    return *file;
}

// The kernel's escaping of blanks, tabs, newlines and backslashes in mount
// table fields.
std::string mangle(const std::string& raw) {
    std::string out;
    for (char c : raw) {
        if (c == ' ' || c == '\t' || c == '\n' || c == '\\') {
            char octal[5];
            snprintf(octal, sizeof(octal), "\\%03o", static_cast<unsigned char>(c));
            out += octal;
        } else {
            out += c;
        }
    }
    return out;
}

bool readWhole(const std::string& path, std::string* out) {
    pelk::UniqueFd fd(open(path.c_str(), O_RDONLY | O_CLOEXEC));
    out->clear();
    return fd.ok() && pelk::readAll(fd.get(), out);
}

// Fields are single words: the kernel escapes the blanks inside them.
std::vector<std::string> splitBlanks(const std::string& line) {
    std::istringstream in(line);
    std::vector<std::string> words;
    for (std::string word; in >> word;) words.push_back(word);
    return words;
}

std::vector<std::string> lines(const std::string& text) {
    std::vector<std::string> out = hostlog::splitLines(text);
    size_t lastNewline = text.rfind('\n');
    if (lastNewline == std::string::npos ? !text.empty() : lastNewline + 1 < text.size())
        out.push_back(text.substr(lastNewline == std::string::npos ? 0 : lastNewline + 1));
    return out;
}

// One mountinfo line: "id parent dev root point mount-options [optional...]
// - type source super-options".
struct InfoLine {
    std::vector<std::string> words;
    size_t dash = 0;  // index of the "-" word
    const std::string& device() const { return words[2]; }
    const std::string& root() const { return words[3]; }
    const std::string& point() const { return words[4]; }
    const std::string& mountOptions() const { return words[5]; }
};

bool parseInfoLine(const std::string& line, InfoLine* out) {
    out->words = splitBlanks(line);
    for (size_t i = 6; i < out->words.size(); ++i) {
        if (out->words[i] == "-") {
            out->dash = i;
            return i + 3 < out->words.size();
        }
    }
    return false;
}

using MountKey = std::tuple<std::string, std::string, std::string>;

std::map<MountKey, EcryptfsMount> registeredByKey() {
    std::map<MountKey, EcryptfsMount> out;
    for (const std::string& line : hostlog::splitLines(registry().readAll())) {
        std::vector<std::string> f = hostlog::splitFields(line);
        if (f.size() != 6) continue;
        EcryptfsMount m;
        m.device = hostlog::unescapeField(f[0]);
        m.root = hostlog::unescapeField(f[1]);
        m.point = hostlog::unescapeField(f[2]);
        m.lower = hostlog::unescapeField(f[3]);
        m.userId = atoi(f[4].c_str());
        m.partitionId = atoi(f[5].c_str());
        out[MountKey(m.device, m.root, m.point)] = m;
    }
    return out;
}

std::string ecryptfsOptions(const EcryptfsMount& m) {
    return "ecryptfs_cipher=aes,ecryptfs_key_bytes=32,userid=" + std::to_string(m.userId) +
           ",partition_id=" + std::to_string(m.partitionId);
}

const EcryptfsMount* find(const std::map<MountKey, EcryptfsMount>& mounts, const InfoLine& info) {
    auto it = mounts.find(MountKey(info.device(), info.root(), info.point()));
    return it == mounts.end() ? nullptr : &it->second;
}

std::string renderInfoLine(const InfoLine& info, const EcryptfsMount& m) {
    std::string out;
    for (size_t i = 0; i <= info.dash; ++i) out += info.words[i] + ' ';
    const std::string& super = info.words[info.dash + 3];
    std::string readOnly = super.compare(0, 2, "ro") == 0 ? "ro" : "rw";
    return out + "ecryptfs " + mangle(m.lower) + ' ' + readOnly + ',' + ecryptfsOptions(m);
}

std::string renderMountsLine(const InfoLine& info, const EcryptfsMount& m) {
    return mangle(m.lower) + ' ' + info.point() + " ecryptfs " + info.mountOptions() + ',' + ecryptfsOptions(m) +
           " 0 0";
}

std::string joinLines(const std::vector<std::string>& text) {
    std::string out;
    for (const std::string& line : text) out += line + '\n';
    return out;
}

enum class TableKind { None, Mounts, MountInfo };

// Which table `path` names, and the mountinfo of the same process.
TableKind classify(const char* path, std::string* mountInfoPath) {
    if (!path || strncmp(path, "/proc/", 6) != 0) return TableKind::None;
    if (strcmp(path, "/proc/mounts") == 0) {
        *mountInfoPath = "/proc/self/mountinfo";
        return TableKind::Mounts;
    }
    const char* who = path + 6;
    const char* slash = strchr(who, '/');
    if (!slash || slash == who) return TableKind::None;
    std::string process(who, slash);
    if (process != "self" && process != "thread-self" && process.find_first_not_of("0123456789") != std::string::npos)
        return TableKind::None;
    *mountInfoPath = "/proc/" + process + "/mountinfo";
    if (strcmp(slash, "/mounts") == 0) return TableKind::Mounts;
    if (strcmp(slash, "/mountinfo") == 0) return TableKind::MountInfo;
    return TableKind::None;
}

bool readOnlyMode(const char* mode) { return mode && mode[0] == 'r' && !strchr(mode, '+'); }

}  // namespace

bool registerEcryptfsMount(const char* point, const char* lower, int userId, int partitionId) {
    if (!point || !lower) return false;
    std::string text;
    if (!readWhole("/proc/self/mountinfo", &text)) return false;
    std::string wanted = mangle(point);
    const InfoLine* newest = nullptr;
    std::vector<InfoLine> infos;
    for (const std::string& line : lines(text)) {
        InfoLine info;
        if (parseInfoLine(line, &info)) infos.push_back(info);
    }
    for (const InfoLine& info : infos)
        if (info.point() == wanted) newest = &info;
    if (!newest) return false;
    return registry().append(hostlog::escapeField(newest->device()) + '\t' + hostlog::escapeField(newest->root()) +
                             '\t' + hostlog::escapeField(newest->point()) + '\t' + hostlog::escapeField(lower) + '\t' +
                             std::to_string(userId) + '\t' + std::to_string(partitionId) + '\n');
}

std::vector<EcryptfsMount> ecryptfsMounts() {
    std::vector<EcryptfsMount> out;
    for (auto& entry : registeredByKey()) out.push_back(entry.second);
    return out;
}

bool renderMountTable(const char* path, std::string* out) {
    std::string infoPath;
    TableKind kind = classify(path, &infoPath);
    if (kind == TableKind::None) {
        errno = EINVAL;
        return false;
    }
    const std::map<MountKey, EcryptfsMount> mounts = registeredByKey();
    if (kind == TableKind::MountInfo) {
        std::string text;
        if (!readWhole(path, &text)) return false;
        std::vector<std::string> rendered = lines(text);
        for (std::string& line : rendered) {
            InfoLine info;
            const EcryptfsMount* m = parseInfoLine(line, &info) ? find(mounts, info) : nullptr;
            if (m) line = renderInfoLine(info, *m);
        }
        *out = joinLines(rendered);
        return true;
    }
    std::string table;
    for (int attempt = 0; attempt < 10; ++attempt) {
        std::string before, after;
        if (!readWhole(infoPath, &before) || !readWhole(path, &table) || !readWhole(infoPath, &after)) return false;
        std::vector<std::string> infoLines = lines(before);
        std::vector<std::string> rendered = lines(table);
        if (before != after || infoLines.size() != rendered.size()) continue;
        for (size_t i = 0; i < rendered.size(); ++i) {
            InfoLine info;
            const EcryptfsMount* m = parseInfoLine(infoLines[i], &info) ? find(mounts, info) : nullptr;
            if (m) rendered[i] = renderMountsLine(info, *m);
        }
        *out = joinLines(rendered);
        return true;
    }
    *out = table;
    return true;
}

}  // namespace hostkernel

// ---- the seam: fopen of a mount table ----

extern "C" {
FILE* __real_fopen(const char* path, const char* mode);
FILE* __real_fopen64(const char* path, const char* mode);

static FILE* openMountTable(const char* path, const char* mode, FILE* (*realOpen)(const char*, const char*)) {
    std::string ignored;
    if (hostkernel::classify(path, &ignored) == hostkernel::TableKind::None || !hostkernel::readOnlyMode(mode) ||
        hostkernel::registry().readAll().empty())
        return realOpen(path, mode);
    std::string text;
    if (!hostkernel::renderMountTable(path, &text)) return nullptr;
    pelk::UniqueFd fd(memfd_create("mounts", strchr(mode, 'e') ? MFD_CLOEXEC : 0));
    if (!fd.ok() || !pelk::writeFully(fd.get(), text.data(), text.size()) || lseek(fd.get(), 0, SEEK_SET) != 0)
        return nullptr;
    FILE* stream = fdopen(fd.get(), "r");
    if (stream) (void)fd.release();
    return stream;
}

FILE* __wrap_fopen(const char* path, const char* mode) { return openMountTable(path, mode, __real_fopen); }
FILE* __wrap_fopen64(const char* path, const char* mode) { return openMountTable(path, mode, __real_fopen64); }
}
