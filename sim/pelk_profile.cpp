// pelk-profile: reads and writes the simulated device's profile.
//   pelk-profile show
//   pelk-profile get KEY
//   pelk-profile set KEY VALUE      (an empty VALUE removes the key)
//   pelk-profile fail FUNCTION [N]  (the next N calls of FUNCTION fail)
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "devprofile/DeviceProfile.h"

int main(int argc, char** argv) {
    if (argc == 2 && strcmp(argv[1], "show") == 0) {
        for (const auto& kv : devprofile::snapshot()) printf("%s=%s\n", kv.first.c_str(), kv.second.c_str());
        return 0;
    }
    if (argc == 3 && strcmp(argv[1], "get") == 0) {
        printf("%s\n", devprofile::get(argv[2]).c_str());
        return 0;
    }
    if (argc == 4 && strcmp(argv[1], "set") == 0) return devprofile::set(argv[2], argv[3]) ? 0 : 1;
    if ((argc == 3 || argc == 4) && strcmp(argv[1], "fail") == 0)
        return devprofile::failNext(argv[2], argc == 4 ? atoi(argv[3]) : 1) ? 0 : 1;
    fprintf(stderr, "usage: pelk-profile show | get KEY | set KEY VALUE | fail FUNCTION [N]\n");
    return 2;
}
