// pelkprov: provisions the simulated device with what the platform would
// have written before the daemon runs: wrapped keys in the trusted key
// store, and the engine and secure-filesystem XML files.
//
//   pelkprov key <user> <key type 1|2|10> <store 3|4> <hex key | random>
//   pelkprov engine <id> [attribute=value ...]
//   pelkprov engine-list <id>[:alias] ...
//   pelkprov secure-fs <quarnVersion> <version>
//   pelkprov password <user> <password>   (the container's password key file)
//
// Key bytes are taken from the command line or made at random; they are
// never printed.
#include <crypt/crypt.h>
#include <ctype.h>
#include <errno.h>
#include <fcntl.h>
#include <openssl/rand.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <tzkeystore/tz_keystore_host.h>
#include <unistd.h>

#include <string>

#include "base/Secret.h"
#include "base/UniqueFd.h"
#include "config/EngineConfig.h"
#include "keystore/Quarn3Helper.h"
#include "keystore/QuarnHelper.h"

namespace {

constexpr uid_t kSystemUid = 1000;
constexpr size_t kMaxKeyBytes = 512;

int usage() {
    fprintf(stderr,
            "usage: pelkprov key <user> <key type 1|2|10> <store 3|4> <hex key | random>\n"
            "       pelkprov engine <id> [attribute=value ...]\n"
            "       pelkprov engine-list <id>[:alias] ...\n"
            "       pelkprov secure-fs <quarnVersion> <version>\n"
            "       pelkprov password <user> <password>\n");
    return 2;
}

bool parseInt(const char* text, int* value) {
    char* end = nullptr;
    errno = 0;
    long v = strtol(text, &end, 10);
    if (errno || end == text || *end || v < -2147483647 || v > 2147483647) return false;
    *value = static_cast<int>(v);
    return true;
}

// Writes a file for the system user (mode 0600, owner 1000:1000) through a
// temporary name, so a reader sees the old file or the new one.
bool writeSystemFile(const std::string& path, const void* data, size_t len) {
    std::string tmp = path + ".XXXXXX";
    pelk::UniqueFd fd(mkostemp(&tmp[0], O_CLOEXEC));
    if (!fd.ok()) return false;
    bool ok = write(fd.get(), data, len) == static_cast<ssize_t>(len) &&
              fchown(fd.get(), kSystemUid, kSystemUid) == 0 && fsync(fd.get()) == 0;
    fd.reset();
    if (ok && rename(tmp.c_str(), path.c_str()) == 0) return true;
    unlink(tmp.c_str());
    return false;
}

bool makeSystemDir(const std::string& path) {
    if (mkdir(path.c_str(), 0700) != 0 && errno != EEXIST) return false;
    return chown(path.c_str(), kSystemUid, kSystemUid) == 0;
}

int fail(const char* what, const std::string& detail) {
    fprintf(stderr, "pelkprov: %s%s%s\n", what, detail.empty() ? "" : ": ", detail.c_str());
    return 1;
}

// ---- key store ----

bool decodeHex(const char* hex, unsigned char* out, size_t cap, size_t* len) {
    size_t n = strlen(hex);
    if (n == 0 || n % 2 || n / 2 > cap) return false;
    for (size_t i = 0; i < n / 2; ++i) {
        unsigned v = 0;
        if (sscanf(hex + 2 * i, "%2x", &v) != 1 || !isxdigit(hex[2 * i]) || !isxdigit(hex[2 * i + 1])) return false;
        out[i] = static_cast<unsigned char>(v);
    }
    *len = n / 2;
    return true;
}

int provisionKey(int argc, char** argv) {
    int user, keyType, store;
    if (argc != 6 || !parseInt(argv[2], &user) || !parseInt(argv[3], &keyType) || !parseInt(argv[4], &store))
        return usage();
    if (store != 3 && store != 4) return fail("store version must be 3 or 4", argv[4]);

    pelk::SecretBuffer<kMaxKeyBytes> key;
    size_t keyLen = 32;
    if (strcmp(argv[5], "random") == 0) {
        if (RAND_bytes(key.data(), static_cast<int>(keyLen)) != 1) return fail("no random bytes", "");
    } else if (!decodeHex(argv[5], key.data(), key.size(), &keyLen)) {
        return fail("the key must be an even number of hex digits (at most 1024)", "");
    }
    // The key's text stays in this process's command line no longer than needed.
    pelk::wipe(argv[5], strlen(argv[5]));
    // The same names the daemon looks for.
    QuarnHelper names(user, keyType);
    if (names.keyName[0] == '\0')
        return fail("no key name for this key type",
                    keyType == kQuarnKeySecureFs ? "write the secure-fs file first" : "");

    char dir[64];
    char path[1024];
    Quarn3Helper::getQ3KSPath(store, dir, sizeof(dir));
    std::string userDir = std::string(dir) + "user_0";
    if (!makeSystemDir(dir) || !makeSystemDir(userDir)) return fail("cannot create", userDir);
    if (Quarn3Helper::get_keyname(names.keyName, kQuarnSystemUid, dir, path, sizeof(path)) != 0)
        return fail("the key store cannot name", names.keyName);

    // The unwrap password is the user id's decimal text.
    char password[32];
    snprintf(password, sizeof(password), "%d", user);
    pelk::SecretBuffer<kQuarnKeyFileMax> blob;
    int blobLen = TZ_KEYSTORE_host_make_blob(names.keyName, key.data(), static_cast<int>(keyLen), blob.data(),
                                             static_cast<int>(blob.size()));
    pelk::SecretBuffer<kQuarnKeyFileMax> wrapped;
    int wrappedLen = blobLen < 0
                         ? -1
                         : TZ_KEYSTORE_host_wrap(store, password, static_cast<int>(strlen(password)), blob.data(),
                                                 blobLen, wrapped.data(), static_cast<int>(wrapped.size()));
    if (wrappedLen < 0) return fail("the key store cannot wrap this key", "");
    if (!writeSystemFile(path, wrapped.data(), static_cast<size_t>(wrappedLen))) return fail("cannot write", path);
    printf("%s\n", path);
    return 0;
}

// ---- XML files ----

std::string xmlEscape(const char* text) {
    std::string out;
    for (const char* p = text; *p; ++p) {
        switch (*p) {
            case '&': out += "&amp;"; break;
            case '<': out += "&lt;"; break;
            case '>': out += "&gt;"; break;
            case '"': out += "&quot;"; break;
            default: out += *p;
        }
    }
    return out;
}

// name=value -> name="value"
bool attribute(const char* arg, std::string* out) {
    const char* eq = strchr(arg, '=');
    if (!eq || eq == arg) return false;
    *out += " " + std::string(arg, eq) + "=\"" + xmlEscape(eq + 1) + "\"";
    return true;
}

int writeXml(const char* path, const std::string& body) {
    std::string xml = "<?xml version='1.0' encoding='utf-8' standalone='yes' ?>\n" + body;
    if (!writeSystemFile(path, xml.data(), xml.size())) return fail("cannot write", path);
    printf("%s\n", path);
    return 0;
}

int provisionEngine(int argc, char** argv) {
    int id;
    if (argc < 3 || !parseInt(argv[2], &id)) return usage();
    std::string attrs;
    bool hasId = false;
    for (int i = 3; i < argc; ++i) {
        if (!attribute(argv[i], &attrs)) return usage();
        hasId = hasId || strncmp(argv[i], "id=", 3) == 0;
    }
    if (!hasId) attrs = " id=\"" + std::to_string(id) + "\"" + attrs;
    if (!makeSystemDir("/data/system/users/" + std::to_string(id))) return fail("cannot create the user folder", "");
    char path[kEnginePathSize];
    get_engine_xml_path(id, path);
    return writeXml(path, "<user" + attrs + " />\n");
}

int provisionEngineList(int argc, char** argv) {
    if (argc < 3) return usage();
    std::string body = "<engines>\n";
    for (int i = 2; i < argc; ++i) {
        std::string arg(argv[i]);
        size_t colon = arg.find(':');
        std::string idText = arg.substr(0, colon);
        int id;
        if (!parseInt(idText.c_str(), &id)) return usage();
        std::string alias = colon == std::string::npos ? "" : arg.substr(colon + 1);
        body += "  <engine alias=\"" + xmlEscape(alias.c_str()) + "\" id=\"" + std::to_string(id) + "\" />\n";
    }
    char path[kEnginePathSize];
    get_engine_list_xml_path(path);
    return writeXml(path, body + "</engines>\n");
}

int provisionSecureFs(int argc, char** argv) {
    if (argc != 4) return usage();
    char path[kEnginePathSize];
    get_secure_fs_xml_path(path);
    return writeXml(
        path, "<secure_fs quarnVersion=\"" + xmlEscape(argv[2]) + "\" version=\"" + xmlEscape(argv[3]) + "\" />\n");
}

// The password-wrapped key file a container gets when its password is first
// set, at the path the daemon reads it from.
int provisionPassword(int argc, char** argv) {
    int user = 0;
    if (argc != 4 || !parseInt(argv[2], &user)) return usage();
    char path[512];
    snprintf(path, sizeof(path), "/data/system/users/zanth_edk_%d", user);
    int result = fips_create_edk(path, argv[3]);
    pelk::wipe(argv[3], strlen(argv[3]));  // not left in the command line
    if (result != 0) {
        fprintf(stderr, "pelkprov: cannot write %s\n", path);
        return 1;
    }
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 2) return usage();
    std::string verb(argv[1]);
    if (verb == "key") return provisionKey(argc, argv);
    if (verb == "engine") return provisionEngine(argc, argv);
    if (verb == "engine-list") return provisionEngineList(argc, argv);
    if (verb == "secure-fs") return provisionSecureFs(argc, argv);
    if (verb == "password") return provisionPassword(argc, argv);
    return usage();
}
