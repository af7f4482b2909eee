// A bounded random driver for any fuzz target where libFuzzer is not at hand
// (the project builds with GCC): it runs the target over every file of the
// corpus folders, then over mutations of those files (bytes flipped,
// inserted, cut, repeated, spliced with another file, the separators of the
// parsers put in) until a time or input budget runs out, and prints what it
// did. A failed check or a sanitizer report aborts the run; the same seed
// and input count repeat it.
//
//   fuzz_NAME [--seconds S] [--inputs N] [--seed X] CORPUS_DIR...
#include <dirent.h>
#include <fcntl.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <random>
#include <string>
#include <vector>

#include "base/FileIo.h"
#include "base/UniqueFd.h"
#include "base/UniqueHandle.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);
extern "C" __attribute__((weak)) int LLVMFuzzerInitialize(int* argc, char*** argv);

namespace {

// Longest input the driver makes: past every fixed buffer of the parsers
// (a netlink receive of 8208 bytes, a 4096-byte read chunk).
const size_t kMaxInput = 9000;

struct Options {
    double seconds = 3;
    long maxInputs = 1000000;
    unsigned long long seed = 13;
    std::vector<std::string> corpusDirs;
};

bool parseOptions(int argc, char** argv, Options* out) {
    for (int i = 1; i < argc; ++i) {
        bool hasValue = i + 1 < argc;
        if (!strcmp(argv[i], "--seconds") && hasValue)
            out->seconds = atof(argv[++i]);
        else if (!strcmp(argv[i], "--inputs") && hasValue)
            out->maxInputs = atol(argv[++i]);
        else if (!strcmp(argv[i], "--seed") && hasValue)
            out->seed = strtoull(argv[++i], nullptr, 0);
        else if (!strncmp(argv[i], "--", 2))
            return false;
        else
            out->corpusDirs.push_back(argv[i]);
    }
    return !out->corpusDirs.empty();
}

// The files of a folder, in name order so a run is repeatable.
std::vector<std::string> readCorpus(const std::string& dir) {
    std::vector<std::string> names;
    pelk::UniqueDir d(opendir(dir.c_str()));
    if (!d) return {};
    while (dirent* e = readdir(d.get())) {
        if (e->d_name[0] != '.') names.push_back(dir + "/" + e->d_name);
    }
    std::sort(names.begin(), names.end());
    std::vector<std::string> files;
    for (const std::string& name : names) {
        std::string bytes;
        pelk::UniqueFd fd(open(name.c_str(), O_RDONLY | O_CLOEXEC));
        if (fd.ok()) pelk::readAll(fd.get(), &bytes);  // unreadable: an empty input
        files.push_back(std::move(bytes));
    }
    return files;
}

// Bytes the parsers split or stop on.
char interestingByte(std::mt19937_64& rng) {
    static const char bytes[] = {' ', '\t', '"', '\\', '\n', '\0', '<', '>', '=', '/', '-', '9', '\x7f', '\xff'};
    return bytes[rng() % sizeof(bytes)];
}

std::string mutate(std::string d, const std::vector<std::string>& corpus, std::mt19937_64& rng) {
    int steps = 1 + static_cast<int>(rng() % 4);
    for (int i = 0; i < steps; ++i) {
        size_t at = d.empty() ? 0 : rng() % (d.size() + 1);
        switch (rng() % 8) {
            case 0:  // flip bits
                if (!d.empty()) d[rng() % d.size()] ^= static_cast<char>(1 + rng() % 255);
                break;
            case 1:  // a separator in
                d.insert(at, 1, interestingByte(rng));
                break;
            case 2:  // a separator over a byte
                if (!d.empty()) d[rng() % d.size()] = interestingByte(rng);
                break;
            case 3:  // cut a piece out
                d.erase(at, rng() % 16 + 1);
                break;
            case 4:  // cut the end off
                d.resize(at);
                break;
            case 5: {  // repeat a piece, sometimes far past the buffers
                size_t len = std::min<size_t>(d.size() - std::min(at, d.size()), 1 + rng() % 32);
                std::string piece = d.substr(at, len);
                size_t times = rng() % 8 ? 1 + rng() % 4 : 1 + rng() % 512;
                for (size_t n = 0; n < times && !piece.empty(); ++n) d.insert(at, piece);
                break;
            }
            case 6: {  // splice with another input
                const std::string& other = corpus[rng() % corpus.size()];
                size_t from = other.empty() ? 0 : rng() % other.size();
                d = d.substr(0, at) + other.substr(from);
                break;
            }
            default:  // random bytes in
                for (size_t n = 1 + rng() % 8; n > 0; --n) d.insert(at, 1, static_cast<char>(rng()));
                break;
        }
    }
    if (d.size() > kMaxInput) d.resize(kMaxInput);
    return d;
}

const char* programName(const char* path) {
    const char* slash = strrchr(path, '/');
    return slash ? slash + 1 : path;
}

}  // namespace

int main(int argc, char** argv) {
    Options options;
    const char* name = programName(argv[0]);
    if (!parseOptions(argc, argv, &options)) {
        fprintf(stderr, "usage: %s [--seconds S] [--inputs N] [--seed X] CORPUS_DIR...\n", name);
        return 2;
    }
    std::vector<std::string> corpus;
    for (const std::string& dir : options.corpusDirs) {
        std::vector<std::string> files = readCorpus(dir);
        if (files.empty()) {
            fprintf(stderr, "%s: no corpus in %s\n", name, dir.c_str());
            return 2;
        }
        corpus.insert(corpus.end(), files.begin(), files.end());
    }
    // Nothing is written: no working folder of the host is left to the
    // target (a target that enters the device keeps it writable).
    if (chdir("/") != 0) return 2;
    if (LLVMFuzzerInitialize && LLVMFuzzerInitialize(&argc, &argv) != 0) {
        fprintf(stderr, "%s: the target could not start\n", name);
        return 1;
    }
    auto run = [](const std::string& input) {
        LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t*>(input.data()), input.size());
    };
    auto start = std::chrono::steady_clock::now();
    auto elapsed = [&] { return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count(); };
    long inputs = 0;
    for (const std::string& input : corpus) {
        run(input);
        ++inputs;
    }
    std::mt19937_64 rng(options.seed);
    while (inputs < options.maxInputs && elapsed() < options.seconds) {
        run(mutate(corpus[rng() % corpus.size()], corpus, rng));
        ++inputs;
    }
    printf("%s: seed %llu, %zu corpus files and %ld mutations in %.1f s, 0 crashes\n", name, options.seed,
           corpus.size(), inputs - static_cast<long>(corpus.size()), elapsed());
    return 0;
}
