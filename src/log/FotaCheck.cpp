// Whether this boot follows a software upgrade: the pre-mount markers begin
// with the build identity of the software that wrote them.
#include <cutils/properties.h>
#include <fcntl.h>
#include <string.h>
#include <unistd.h>

#include <cerrno>

#include "base/FileIo.h"
#include "base/UniqueFd.h"
#include "log/PelkLog.h"

namespace {

const size_t kMarkerReadMax = 4095;

// Reads at most size - 1 bytes of path as a NUL-terminated text; empty when
// it cannot be read.
void readMarker(const char* path, char* text, size_t size) {
    text[0] = '\0';
    pelk::UniqueFd fd(open(path, O_RDONLY | O_CLOEXEC));
    if (!fd.ok()) return;
    ssize_t done = pelk::readFully(fd.get(), text, size - 1);
    text[done > 0 ? done : 0] = '\0';
}

}  // namespace

bool PelkLog::isFotaUpgrade() {
    const char* marker = nullptr;
    if (access(PelkPremountSuccess, F_OK) == 0)
        marker = PelkPremountSuccess;
    else if (access(PelkPremountFailed, F_OK) == 0)
        marker = PelkPremountFailed;
    if (!marker) return false;  // no pre-mount ever ran: a first boot, not an upgrade

    char text[kMarkerReadMax + 1];
    readMarker(marker, text, sizeof(text));
    char build[PROPERTY_VALUE_MAX] = "";
    property_get("ro.build.PDA", build, "");
    if (text[0] == '\0' || build[0] == '\0') return true;
    // Only the length of the value counts, so the newline after it does not.
    return strncmp(text, build, strlen(build)) != 0;
}
