// Close-on-exec of this process's own descriptors that are open on one path,
// so that a child about to exec does not inherit them (e.g. "/dev/qseecom"
// before the sdcard daemon starts).
#pragma once

// With closeOnExec true marks every descriptor of this process whose target
// is exactly `path` close-on-exec; with false clears all their descriptor
// flags. Null or empty paths and unreadable descriptors are passed over.
void changeInheritTypeForFile(const char* path, bool closeOnExec);
