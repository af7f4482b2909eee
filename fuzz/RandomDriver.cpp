// A bounded random driver for the datagram target where libFuzzer is not
// at hand (the project builds with GCC): inside the device, it feeds the
// target seeds of every opcode and their mutations (bytes flipped, cut,
// extended past 8208, header length set near the limits) until a time or
// input budget runs out, and prints what it did. A failed check or a
// sanitizer report aborts the run.
//
//   fuzz_datagrams [--seconds S] [--inputs N] [--seed X]
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <chrono>
#include <random>

#include "DatagramTarget.h"
#include "Sandbox.h"
#include "fs_handler/NetlinkWire.h"

namespace {

void putLength(std::string* d, uint32_t length) {
    if (d->size() >= 4) netlinkwire::putU32(&(*d)[0], length);
}

std::string mutate(std::string d, std::mt19937_64& rng) {
    int steps = 1 + static_cast<int>(rng() % 4);
    for (int i = 0; i < steps; ++i) {
        switch (rng() % 8) {
            case 0:  // flip bytes
            case 1:
                for (int n = 0; n < 1 + static_cast<int>(rng() % 4) && !d.empty(); ++n)
                    d[rng() % d.size()] ^= static_cast<char>(1 + rng() % 255);
                break;
            case 2:  // cut
                d.resize(rng() % (d.size() + 1));
                break;
            case 3: {  // extend, sometimes past what one receive takes
                static const size_t sizes[] = {17, 43, 44, 45, 8192, 8207, 8208, 8209, 9000};
                d.resize(rng() % 2 ? sizes[rng() % 9] : d.size() + rng() % 64, static_cast<char>(rng()));
                break;
            }
            case 4: {  // header length near the limits
                static const uint32_t lengths[] = {0, 15, 16, 17, 43, 44, 45, 8192, 8208, 8209, 0xffffffffu};
                putLength(&d, rng() % 3 ? lengths[rng() % 11] : static_cast<uint32_t>(d.size()));
                break;
            }
            case 5:  // random opcode, inode or partition
                if (d.size() >= 44) {
                    size_t field = 16 + 4 * (rng() % 7);
                    for (int b = 0; b < 4; ++b) d[field + b] = static_cast<char>(rng());
                }
                break;
            case 6:  // wholly random
                d.resize(rng() % 64);
                for (char& c : d) c = static_cast<char>(rng());
                break;
            default:  // keep the length field honest
                putLength(&d, static_cast<uint32_t>(d.size()));
                break;
        }
    }
    return d;
}

}  // namespace

int main(int argc, char** argv) {
    double seconds = 20;
    long maxInputs = 1000000;
    unsigned long long seed = 13;
    for (int i = 1; i + 1 < argc; i += 2) {
        if (!strcmp(argv[i], "--seconds"))
            seconds = atof(argv[i + 1]);
        else if (!strcmp(argv[i], "--inputs"))
            maxInputs = atol(argv[i + 1]);
        else if (!strcmp(argv[i], "--seed"))
            seed = strtoull(argv[i + 1], nullptr, 0);
    }
    if (sim::enterSandbox() != 0) return 1;
    if (!fuzzdatagram::setUp()) {
        fprintf(stderr, "fuzz_datagrams: cannot set up the device\n");
        return 1;
    }
    std::vector<std::string> corpus = fuzzdatagram::seeds();
    std::mt19937_64 rng(seed);
    auto start = std::chrono::steady_clock::now();
    auto elapsed = [&] { return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count(); };
    long inputs = 0;
    for (const std::string& s : corpus) {
        LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t*>(s.data()), s.size());
        ++inputs;
    }
    while (inputs < maxInputs && elapsed() < seconds) {
        std::string input = mutate(corpus[rng() % corpus.size()], rng);
        LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t*>(input.data()), input.size());
        ++inputs;
    }
    const fuzzdatagram::Tally& t = fuzzdatagram::tally();
    printf("fuzz_datagrams: seed %llu, %ld inputs in %.1f s, %ld answered, %ld rejected, 0 crashes\n", seed, t.inputs,
           elapsed(), t.replied, t.rejected);
    return 0;
}
