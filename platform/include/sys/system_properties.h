// The two sizes the C library's property header gives the platform's
// <cutils/properties.h>; the rest of that header is the C library's own
// business and is not needed on a host.
#pragma once

#define PROP_NAME_MAX 32
#define PROP_VALUE_MAX 92
