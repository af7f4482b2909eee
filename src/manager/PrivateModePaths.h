// Where the private-mode store shows itself: the sdcard program's three
// views, and the media link (a bind of the writable view) that the media
// side looks for. Mounting, unmounting and the "ppm" commands share them.
#pragma once

namespace pelk {

inline constexpr const char* kPrivateViews[] = {
    "/mnt/runtime/default/Private",
    "/mnt/runtime/read/Private",
    "/mnt/runtime/write/Private",
};
inline constexpr const char* kPrivateWritableView = kPrivateViews[2];
inline constexpr char kPrivateMediaLink[] = "/mnt/media_rw/Private";

}  // namespace pelk
