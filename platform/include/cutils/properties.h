// System properties (host edition: platform/cutils, values from the device profile).
#pragma once

#define PROPERTY_KEY_MAX 32
#define PROPERTY_VALUE_MAX 92

#ifdef __cplusplus
extern "C" {
#endif

// Copies the property's value (or default_value when unset) into value, at
// most PROPERTY_VALUE_MAX - 1 characters, and answers its length.
int property_get(const char* key, char* value, const char* default_value);

#ifdef __cplusplus
}
#endif
