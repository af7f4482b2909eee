// PLACEHOLDER until the host sensitive-data library lands: lets device
// programs link; tags nothing. Replace this file with the real host edition.
#include <sdp/sdp.h>

extern "C" {

int set_sensitive(int, char*) { return 0; }
int set_protected(char*) { return 0; }

}  // extern "C"
