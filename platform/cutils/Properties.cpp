// System properties of the simulated device: the profile's "prop.<key>".
#include <cutils/properties.h>

#include <cstdio>

#include "devprofile/DeviceProfile.h"

extern "C" int property_get(const char* key, char* value, const char* default_value) {
    // An armed failure behaves as an unset property, as a read that finds
    // nothing on the device does.
    bool failed = devprofile::shouldFail("property_get");
    if (!value) return 0;
    std::string found = (failed || !key) ? std::string() : devprofile::get(std::string("prop.") + key);
    const char* answer = !found.empty() ? found.c_str() : (default_value ? default_value : "");
    int written = snprintf(value, PROPERTY_VALUE_MAX, "%s", answer);
    return written < PROPERTY_VALUE_MAX ? written : PROPERTY_VALUE_MAX - 1;
}
